#include "ado/sql_scanner.hpp"

#include <algorithm>

#include "ado/sql_characters.hpp"

namespace halvtiv::ado {
namespace {

constexpr bool IsWordCharacter(char c) noexcept {
    return IsSqlNameCharacter(c) || c == '#';
}

constexpr char ClosingQuote(char open) noexcept {
    return open == '[' ? ']' : open;
}

}  // namespace

bool SqlToken::IsWord(std::string_view lowerCase) const {
    return kind == Kind::Word && std::equal(text.begin(), text.end(), lowerCase.begin(), lowerCase.end(),
                                            [](char left, char right) { return LowerAscii(left) == right; });
}

std::string SqlToken::Name() const {
    if (kind != Kind::QuotedName) return std::string(text);
    const char close = ClosingQuote(text.front());
    std::string name;
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        name += text[i];
        if (text[i] == close) ++i;  // a doubled quote stands for one
    }
    return name;
}

SqlToken SqlScanner::Next() {
    SkipBlanksAndComments();
    if (position_ >= text_.size()) return {SqlToken::Kind::End, {}, text_.size()};
    const std::size_t begin = position_;
    const char first = text_[begin];
    const bool isCommon = dialect_ == SqlDialect::Common;
    auto kind = SqlToken::Kind::Symbol;
    if (first == '\'') {
        kind = SqlToken::Kind::String;
        position_ = EndOfQuoted(begin, first);
    } else if (!isCommon && LowerAscii(first) == 'e' && text_.substr(begin + 1).starts_with('\'')) {
        kind = SqlToken::Kind::String;
        position_ = EndOfEscaped(begin + 1);
    } else if (const auto end = isCommon ? begin : EndOfTagged(begin); end != begin) {
        kind = SqlToken::Kind::String;
        position_ = end;
    } else if (first == '"' || (isCommon && (first == '`' || first == '['))) {
        kind = SqlToken::Kind::QuotedName;
        position_ = EndOfQuoted(begin, ClosingQuote(first));
    } else if (IsWordCharacter(first)) {
        kind = IsSqlDigit(first) ? SqlToken::Kind::Number : SqlToken::Kind::Word;
        while (position_ < text_.size() && IsWordCharacter(text_[position_])) ++position_;
    } else {
        ++position_;
    }
    return {kind, text_.substr(begin, position_ - begin), begin};
}

void SqlScanner::SkipBlanksAndComments() {
    for (;;) {
        position_ = std::min(text_.find_first_not_of(kSqlBlanks, position_), text_.size());
        const auto rest = text_.substr(position_);
        if (rest.starts_with("--")) {
            position_ = std::min(text_.find('\n', position_), text_.size());
        } else if (rest.starts_with("/*")) {
            position_ = EndOfComment(position_);
        } else {
            return;
        }
    }
}

std::size_t SqlScanner::EndOfComment(std::size_t begin) const {
    int depth = 1;
    for (std::size_t i = begin + 2; i + 1 < text_.size(); ++i) {
        const auto pair = text_.substr(i, 2);
        if (pair == "*/") {
            if (--depth == 0) return i + 2;
            ++i;
        } else if (pair == "/*" && dialect_ == SqlDialect::Postgresql) {
            ++depth;
            ++i;
        }
    }
    return text_.size();
}

std::size_t SqlScanner::EndOfEscaped(std::size_t begin) const {
    for (std::size_t i = begin + 1; i < text_.size(); ++i) {
        if (text_[i] == '\\') {
            ++i;
        } else if (text_[i] == '\'') {
            if (!text_.substr(i + 1).starts_with('\'')) return i + 1;
            ++i;
        }
    }
    return text_.size();
}

std::size_t SqlScanner::EndOfTagged(std::size_t begin) const {
    if (text_[begin] != '$') return begin;
    auto tagEnd = begin + 1;
    while (tagEnd < text_.size() && text_[tagEnd] != '$' && IsWordCharacter(text_[tagEnd])) ++tagEnd;
    const bool isTag = tagEnd < text_.size() && text_[tagEnd] == '$' && !IsSqlDigit(text_[begin + 1]);
    if (!isTag) return begin;
    const auto tag = text_.substr(begin, tagEnd + 1 - begin);
    const auto close = text_.find(tag, tagEnd + 1);
    return close == std::string_view::npos ? text_.size() : close + tag.size();
}

std::size_t SqlScanner::EndOfQuoted(std::size_t begin, char close) const {
    for (std::size_t i = begin + 1; i < text_.size(); ++i) {
        if (text_[i] != close) continue;
        if (i + 1 < text_.size() && text_[i + 1] == close) {
            ++i;
        } else {
            return i + 1;
        }
    }
    return text_.size();
}

std::string_view BindMarkerOf(std::string_view script) {
    constexpr std::string_view kMarkers = "?:@$";
    if (script.find_first_of(kMarkers) == std::string_view::npos) return {};
    SqlScanner scanner(script);
    for (auto token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        const bool isWord = token.kind == SqlToken::Kind::Word;
        const bool isSymbol = token.kind == SqlToken::Kind::Symbol;
        if ((!isWord && !isSymbol) || kMarkers.find(token.text.front()) == std::string_view::npos) continue;
        auto end = token.position + 1;
        while (end < script.size() && IsSqlNameCharacter(script[end])) ++end;
        return script.substr(token.position, end - token.position);
    }
    return {};
}

TransactionEnd TransactionEndOf(std::string_view statement) {
    SqlScanner words(statement);
    auto before = words.Next();
    if (!before.IsWord("commit") && !before.IsWord("rollback") && !before.IsWord("end") &&
        !before.IsWord("abort")) {
        return TransactionEnd::None;
    }
    for (auto word = words.Next(); word.kind != SqlToken::Kind::End; before = word, word = words.Next()) {
        if (word.IsWord("to")) return TransactionEnd::None;
        if (word.IsWord("chain") && !before.IsWord("no")) return TransactionEnd::BeginsAnother;
    }
    return TransactionEnd::Plain;
}

}  // namespace halvtiv::ado
