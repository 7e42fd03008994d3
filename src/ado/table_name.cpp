#include "ado/table_name.hpp"

#include <algorithm>
#include <array>

#include "ado/sql_characters.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::array<std::string_view, 16> kOneWordStatements{
    "abort",    "analyze", "analyse", "begin",   "checkpoint", "cluster", "commit",   "end",
    "optimize", "reindex", "reset",   "restart", "rollback",   "show",    "shutdown", "vacuum"};

constexpr bool IsWordCharacter(char c) noexcept {
    return IsSqlNameCharacter(c) || c == '#';
}

bool IsOneWordStatement(std::string_view word) {
    return std::any_of(kOneWordStatements.begin(), kOneWordStatements.end(), [&](std::string_view statement) {
        return std::equal(word.begin(), word.end(), statement.begin(), statement.end(),
                          [](char left, char right) { return LowerAscii(left) == right; });
    });
}

// The length of the identifier at the front; 0 when there is none.
std::size_t IdentifierLength(std::string_view text) {
    if (text.empty()) return 0;
    const char open = text.front();
    if (open == '"' || open == '`' || open == '[') {
        const char close = open == '[' ? ']' : open;
        std::size_t i = 1;
        for (; i < text.size(); ++i) {
            if (text[i] != close) continue;
            const bool doubled = i + 1 < text.size() && text[i + 1] == close;
            if (!doubled) return i + 1;
            ++i;
        }
        return 0;
    }
    if (open >= '0' && open <= '9') return 0;
    return static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), IsWordCharacter) -
                                    text.begin());
}

}  // namespace

std::string CommandTextOf(std::string_view source) {
    const auto begin = source.find_first_not_of(kSqlBlanks);
    if (begin == std::string_view::npos) return {};
    const auto name = source.substr(begin, source.find_last_not_of(kSqlBlanks) - begin + 1);
    const auto first = IdentifierLength(name);
    const auto rest = name.substr(first);
    const bool isName =
        first > 0 &&
        ((rest.empty() && !IsOneWordStatement(name)) ||
         (rest.starts_with('.') && rest.size() > 1 && IdentifierLength(rest.substr(1)) == rest.size() - 1));
    return isName ? "select * from " + std::string(name) : std::string(source);
}

}  // namespace halvtiv::ado
