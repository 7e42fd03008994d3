#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "sql/characters.hpp"
#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// One token of a text. It refers to the text.
struct Token {
    enum class Kind : std::uint8_t { End, Word, QuotedName, String, Number, Parameter, Symbol };
    Kind kind = Kind::End;
    bool isConditional = false;  ///< it stands in an executable comment: only some servers read it
    std::string_view text;       ///< with its quotes; "" at the end
    std::size_t position = 0;

    /// Whether it is this keyword, given in lower case. A quoted name never is.
    bool IsWord(std::string_view lowerCase) const noexcept {
        if (kind != Kind::Word || text.size() != lowerCase.size()) return false;
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (LowerAscii(text[i]) != lowerCase[i]) return false;
        }
        return true;
    }
    /// Whether it is this operator or punctuation mark. Operators of several characters are one token.
    bool IsSymbol(std::string_view symbol) const noexcept { return kind == Kind::Symbol && text == symbol; }
    bool IsSymbol(char symbol) const noexcept {
        return kind == Kind::Symbol && text.size() == 1 && text.front() == symbol;
    }
    bool IsName() const noexcept { return kind == Kind::Word || kind == Kind::QuotedName; }
    bool IsEnd() const noexcept { return kind == Kind::End; }
    /// The offset behind it.
    std::size_t End() const noexcept { return position + text.size(); }
    /// The name that it spells, without quotes. Letter case stays as it is.
    std::string Name() const;
    /// Whether the name that it spells is this one, without regard to ASCII letter case.
    bool Names(std::string_view name) const;
};

/// Cuts SQL into tokens, in one pass. Comments are skipped, executable ones are entered. A quote or comment
/// that is not closed ends with the text. Copying a lexer is cheap: a copy looks ahead.
class Lexer {
public:
    Lexer(std::string_view text, Dialect dialect, std::size_t position = 0) noexcept
        : text_(text), syntax_(&SyntaxOf(dialect)), position_(position) {}

    /// The next token; `End` at the end and from then on.
    Token Next();
    /// The token behind the one that `Next` has given.
    Token Peek() const { return Lexer(*this).Next(); }

private:
    char At(std::size_t position) const noexcept { return position < text_.size() ? text_[position] : '\0'; }
    bool IsNameCharacter(char c) const noexcept { return syntax_->isInName[static_cast<unsigned char>(c)]; }
    void SkipBlanksAndComments();
    /// Whether a comment begins at the position; moves behind it.
    bool SkipComment();
    bool IsLineComment() const;
    std::size_t EndOfLine(std::size_t begin) const;
    std::size_t EndOfComment(std::size_t begin) const;
    std::size_t EndOfName(std::size_t begin) const;
    bool IsBehindName(std::size_t begin) const;
    std::size_t EndOfNumber(std::size_t begin) const;
    /// Behind the quoted text whose opening quote is at `begin`.
    std::size_t EndOfQuoted(std::size_t begin, char close, bool hasEscapes, bool isDoubled = true) const;
    std::size_t EndOfString(std::size_t begin, bool hasEscapes) const;
    /// Behind the string or quoted name with a prefix that begins at `begin`; `begin` where none does.
    std::size_t EndOfPrefixed(std::size_t begin, Token::Kind& kind) const;
    std::size_t EndOfDollarQuoted(std::size_t begin) const;
    std::size_t EndOfParameter(std::size_t begin) const;
    std::size_t EndOfVariable(std::size_t begin) const;
    std::size_t EndOfOperator(std::size_t begin) const;

    std::string_view text_;
    const Syntax* syntax_;
    std::size_t position_ = 0;
    bool inExecutableComment_ = false;
};

}  // namespace halvtiv::sql
