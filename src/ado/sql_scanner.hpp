#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace halvtiv::ado {

/// One piece of a statement's text.
struct SqlToken {
    enum class Kind { End, Word, QuotedName, String, Number, Symbol };
    Kind kind = Kind::End;
    std::string_view text;  ///< with its quotes
    std::size_t position = 0;

    /// Whether it is this keyword, given in lower case; a quoted name never is.
    bool IsWord(std::string_view lowerCase) const;
    bool IsSymbol(char symbol) const { return kind == Kind::Symbol && text.front() == symbol; }
    bool IsName() const { return kind == Kind::Word || kind == Kind::QuotedName; }
    /// The name that it spells, without quotes.
    std::string Name() const;
};

/// Takes a statement's text apart, as far as that is the same for every database: names and keywords, names
/// in "", `` or [], texts in '', numbers, comments (left out), and symbols of one character each.
class SqlScanner {
public:
    explicit SqlScanner(std::string_view text) : text_(text) {}

    /// The next token; `End` at the end and for ever after.
    SqlToken Next();

private:
    void SkipBlanksAndComments();
    /// Behind what a quote at `begin` encloses.
    std::size_t EndOfQuoted(std::size_t begin, char close) const;

    std::string_view text_;
    std::size_t position_ = 0;
};

}  // namespace halvtiv::ado
