#include "sql/lexer.hpp"

#include <algorithm>
#include <array>

#include "platform/text.hpp"
#include "sql/characters.hpp"

namespace halvtiv::sql {
namespace {

constexpr std::string_view kOperatorCharacters = "+-*/<>=~!@#%^&|`?";
/// By byte: what may stand in an operator, or in "::", ":=" and "..".
constexpr auto kIsInOperator = [] {
    std::array<bool, 256> table{};
    for (const char c : kOperatorCharacters) table[static_cast<unsigned char>(c)] = true;
    table[':'] = table['.'] = true;
    return table;
}();
// A longer one is no operator anywhere, and reading on would make a long run of signs quadratic.
constexpr std::size_t kLongestOperator = 64;

// Of the dialects without free operators; the longer ones first.
constexpr std::array<std::string_view, 20> kOperators{
    "<=>", "->>", "||", "&&", "<=", ">=", "<>", "!=", "==", "<<",
    ">>",  "->",  ":=", "::", "..", "+=", "-=", "*=", "/=", "|="};

constexpr bool IsHexDigit(char c) noexcept {
    const char lower = LowerAscii(c);
    return IsDigit(c) || (lower >= 'a' && lower <= 'f');
}

}  // namespace

std::string Token::Name() const {
    if (kind != Kind::QuotedName) return std::string(text);
    const auto open = text.find_first_of("\"`[");
    const char close = text[open] == '[' ? ']' : text[open];
    auto inside = text.substr(open + 1);
    if (inside.ends_with(close)) inside.remove_suffix(1);
    std::string name;
    name.reserve(inside.size());
    for (std::size_t i = 0; i < inside.size(); ++i) {
        name += inside[i];
        if (inside[i] == close) ++i;  // a doubled quote stands for one
    }
    return name;
}

bool Token::Names(std::string_view name) const {
    if (kind == Kind::Word) return platform::EqualIgnoringCase(text, name);
    return kind == Kind::QuotedName && platform::EqualIgnoringCase(Name(), name);
}

Token Lexer::Next() {
    SkipBlanksAndComments();
    const auto begin = position_;
    if (begin >= text_.size()) return {Token::Kind::End, false, {}, text_.size()};
    const char first = text_[begin];
    auto kind = Token::Kind::Symbol;
    std::size_t end = 0;
    if (syntax_->beginsName[static_cast<unsigned char>(first)]) {
        kind = Token::Kind::Word;
        end = EndOfPrefixed(begin, kind);
        if (end == begin) end = EndOfName(begin);
    } else if (IsDigit(first) || (first == '.' && IsDigit(At(begin + 1)) && !IsBehindName(begin))) {
        kind = Token::Kind::Number;
        end = EndOfNumber(begin);
        if (syntax_->namesMayBeginWithDigit && IsNameCharacter(At(end)) && IsDigit(first)) {
            kind = Token::Kind::Word;
            end = EndOfName(begin);
        }
    } else if (first == '\'') {
        kind = Token::Kind::String;
        end = EndOfString(begin, false);
    } else if (first == '"' || (first == '`' && syntax_->hasBacktickNames)) {
        kind = Token::Kind::QuotedName;
        end = EndOfQuoted(begin, first, false);
    } else if (first == '[' && syntax_->hasBracketNames) {
        kind = Token::Kind::QuotedName;
        end = EndOfQuoted(begin, ']', false, syntax_->doublesClosingBracket);
    } else if (end = EndOfDollarQuoted(begin); end != begin) {
        kind = Token::Kind::String;
    } else if (end = EndOfParameter(begin); end != begin) {
        kind = Token::Kind::Parameter;
    } else if (end = EndOfVariable(begin); end != begin) {
        kind = Token::Kind::Word;
    } else {
        end = EndOfOperator(begin);
    }
    position_ = end;
    return {kind, inExecutableComment_, text_.substr(begin, end - begin), begin};
}

void Lexer::SkipBlanksAndComments() {
    for (;;) {
        while (position_ < text_.size() && IsBlank(text_[position_])) ++position_;
        if (position_ >= text_.size() || !SkipComment()) return;
    }
}

bool Lexer::SkipComment() {
    const char first = text_[position_];
    if (first != '-' && first != '/' && first != '#' && first != '*') return false;
    if (IsLineComment()) {
        position_ = EndOfLine(position_);
        return true;
    }
    const auto rest = text_.substr(position_);
    if (inExecutableComment_ && rest.starts_with("*/")) {
        inExecutableComment_ = false;
        position_ += 2;
        return true;
    }
    if (!rest.starts_with("/*")) return false;
    if (syntax_->hasExecutableComments && (rest.starts_with("/*!") || rest.starts_with("/*M!"))) {
        inExecutableComment_ = true;
        position_ += rest[2] == '!' ? 3 : 4;
        constexpr std::size_t kVersionDigits = 5;
        const auto version = text_.substr(position_, kVersionDigits);
        if (version.size() == kVersionDigits && std::all_of(version.begin(), version.end(), IsDigit)) {
            position_ += kVersionDigits;
            if (IsDigit(At(position_))) ++position_;
        }
        return true;
    }
    position_ = EndOfComment(position_);
    return true;
}

bool Lexer::IsLineComment() const {
    if (text_[position_] == '#') return syntax_->hasHashComments;
    if (!text_.substr(position_).starts_with("--")) return false;
    if (!syntax_->dashesNeedBlank || position_ + 2 == text_.size()) return true;
    const auto behind = static_cast<unsigned char>(text_[position_ + 2]);
    return behind <= ' ' || behind == 0x7f;
}

std::size_t Lexer::EndOfLine(std::size_t begin) const {
    return std::min(text_.find_first_of(syntax_->endsLineAtReturn ? "\n\r" : "\n", begin), text_.size());
}

std::size_t Lexer::EndOfComment(std::size_t begin) const {
    int depth = 1;
    for (auto i = text_.find_first_of("*/", begin + 2); i < text_.size(); i = text_.find_first_of("*/", i)) {
        const auto pair = text_.substr(i, 2);
        if (pair == "*/") {
            i += 2;
            if (--depth == 0) return i;
        } else if (pair == "/*" && syntax_->hasNestedComments) {
            ++depth;
            i += 2;
        } else {
            ++i;
        }
    }
    return text_.size();
}

std::size_t Lexer::EndOfName(std::size_t begin) const {
    auto end = begin + 1;
    while (end < text_.size() && IsNameCharacter(text_[end])) ++end;
    return end;
}

// The point of "t.1" belongs to the names around it.
bool Lexer::IsBehindName(std::size_t begin) const {
    if (begin == 0) return false;
    const char before = text_[begin - 1];
    return IsNameCharacter(before) || before == '"' || before == '`' || before == ']';
}

// Letters behind the number are a part of it: "0x1f", and what no database takes.
std::size_t Lexer::EndOfNumber(std::size_t begin) const {
    auto end = begin;
    if (text_[begin] == '0' && LowerAscii(At(begin + 1)) == 'x') {
        end += 2;
        while (IsHexDigit(At(end))) ++end;
        if (syntax_->namesMayBeginWithDigit) return end;
    }
    const auto skipDigits = [&] {
        while (IsDigit(At(end))) ++end;
    };
    skipDigits();
    if (At(end) == '.' && At(end + 1) != '.') {
        ++end;
        skipDigits();
    }
    if (LowerAscii(At(end)) == 'e') {
        const bool hasSign = At(end + 1) == '+' || At(end + 1) == '-';
        if (IsDigit(At(end + (hasSign ? 2 : 1)))) {
            end += hasSign ? 2 : 1;
            skipDigits();
        }
    }
    if (syntax_->namesMayBeginWithDigit) return end;
    while (end < text_.size() && IsNameCharacter(text_[end])) ++end;
    return end;
}

std::size_t Lexer::EndOfQuoted(std::size_t begin, char close, bool hasEscapes, bool isDoubled) const {
    const std::array<char, 2> stops{close, hasEscapes ? '\\' : close};
    for (auto i = begin + 1;; i += 2) {
        i = hasEscapes ? text_.find_first_of(std::string_view(stops.data(), 2), i) : text_.find(close, i);
        if (i == std::string_view::npos) return text_.size();
        if (text_[i] == close && (!isDoubled || At(i + 1) != close)) return i + 1;
    }
}

std::size_t Lexer::EndOfString(std::size_t begin, bool hasEscapes) const {
    auto end = EndOfQuoted(begin, '\'', hasEscapes);
    while (syntax_->continuesStrings) {
        auto next = end;
        bool hasNewLine = false;
        for (; next < text_.size(); ++next) {
            if (text_.substr(next).starts_with("--")) next = EndOfLine(next);
            if (!IsBlank(At(next))) break;
            hasNewLine = hasNewLine || text_[next] == '\n' || text_[next] == '\r';
        }
        if (!hasNewLine || At(next) != '\'') break;
        end = EndOfQuoted(next, '\'', hasEscapes);
    }
    return end;
}

std::size_t Lexer::EndOfPrefixed(std::size_t begin, Token::Kind& kind) const {
    const char first = LowerAscii(text_[begin]);
    const char second = At(begin + 1);
    if (second == '\'') {
        const bool hasEscapes = syntax_->hasEscapeStrings && first == 'e';
        if (!hasEscapes && syntax_->stringPrefixes.find(first) == std::string_view::npos) return begin;
        kind = Token::Kind::String;
        return EndOfString(begin + 1, hasEscapes);
    }
    if (first == 'u' && second == '&' && syntax_->hasUnicodePrefix) {
        const char quote = At(begin + 2);
        if (quote != '\'' && quote != '"') return begin;
        kind = quote == '"' ? Token::Kind::QuotedName : Token::Kind::String;
        return quote == '"' ? EndOfQuoted(begin + 2, quote, false) : EndOfString(begin + 2, false);
    }
    if (first == '_' && syntax_->hasCharsetPrefix) {
        const auto quote = EndOfName(begin);
        if (At(quote) != '\'') return begin;
        kind = Token::Kind::String;
        return EndOfString(quote, false);
    }
    return begin;
}

std::size_t Lexer::EndOfDollarQuoted(std::size_t begin) const {
    if (!syntax_->hasDollarQuotes || text_[begin] != '$' || IsDigit(At(begin + 1))) return begin;
    auto tagEnd = begin + 1;
    while (tagEnd < text_.size() && text_[tagEnd] != '$' && IsNameCharacter(text_[tagEnd])) ++tagEnd;
    if (At(tagEnd) != '$') return begin;
    const auto tag = text_.substr(begin, tagEnd + 1 - begin);
    const auto close = text_.find(tag, tagEnd + 1);
    return close == std::string_view::npos ? text_.size() : close + tag.size();
}

std::size_t Lexer::EndOfParameter(std::size_t begin) const {
    const char first = text_[begin];
    auto end = begin + 1;
    if (first == '?' && syntax_->hasQuestionMarks) {
        while (syntax_->numbersQuestionMarks && IsDigit(At(end))) ++end;
        return end;
    }
    if (first == '$' && syntax_->hasDollarNumbers) {
        while (IsDigit(At(end))) ++end;
        return end == begin + 1 ? begin : end;
    }
    if (syntax_->parameterPrefixes.find(first) == std::string_view::npos) return begin;
    return end < text_.size() && IsNameCharacter(text_[end]) ? EndOfName(begin) : begin;
}

std::size_t Lexer::EndOfVariable(std::size_t begin) const {
    if (!syntax_->hasUserVariables || text_[begin] != '@') return begin;
    auto name = begin + 1;
    if (At(name) == '@') ++name;
    const char first = At(name);
    if (first == '\'' || first == '"' || first == '`') return EndOfQuoted(name, first, false);
    // Points are a part of such a name.
    while (name < text_.size() && (IsNameCharacter(text_[name]) || text_[name] == '.')) ++name;
    return name;
}

std::size_t Lexer::EndOfOperator(std::size_t begin) const {
    if (!kIsInOperator[static_cast<unsigned char>(At(begin + 1))]) return begin + 1;
    const auto rest = text_.substr(begin, kLongestOperator);
    if (!syntax_->hasFreeOperators || kOperatorCharacters.find(rest.front()) == std::string_view::npos) {
        const auto* const found = std::find_if(kOperators.begin(), kOperators.end(),
                                               [&](auto symbol) { return rest.starts_with(symbol); });
        return begin + (found == kOperators.end() ? 1 : found->size());
    }
    auto length = std::min(rest.find_first_not_of(kOperatorCharacters), rest.size());
    for (const auto comment : {"--", "/*"}) length = std::min(length, rest.find(comment));
    // A sign ends an operator only where one of the other characters stands in it, so that a sign can follow.
    const bool mayEndInSign = rest.substr(0, length).find_first_of("~!@#%^&|`?") != std::string_view::npos;
    while (length > 1 && !mayEndInSign && (rest[length - 1] == '+' || rest[length - 1] == '-')) --length;
    return begin + length;
}

}  // namespace halvtiv::sql
