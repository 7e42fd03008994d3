#include "ado/odbc/odbc_script.hpp"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "ado/sql_characters.hpp"

namespace halvtiv::ado {
namespace {

constexpr bool IsBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool IsWordCharacter(char c) noexcept {
    return IsSqlNameCharacter(c) || c == '@';
}

template <std::size_t Count>
bool IsOneOf(std::string_view word, const std::array<std::string_view, Count>& words) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/// Reads a script word by word, in the database's own way of writing texts and comments.
class ScriptReader {
public:
    ScriptReader(std::string_view script, OdbcDialect dialect)
        : script_(script),
          isMariaDb_(dialect == OdbcDialect::MariaDb),
          isPostgreSql_(dialect == OdbcDialect::PostgreSql) {}

    /// The next word in lower case, or the next symbol; "" at the end. Texts and names in quotes are "'".
    std::string_view Next() {
        SkipBlanksAndComments();
        if (AtEnd()) return {};
        const char first = script_[position_];
        if (first == '\'' || first == '"' || first == '`' ||
            (first == '[' && !isMariaDb_ && !isPostgreSql_)) {
            SkipQuoted(first == '[' ? ']' : first, false);
            return "'";
        }
        if (isPostgreSql_ && SkipOwnQuoted()) return "'";
        word_.assign(1, LowerAscii(first));
        ++position_;
        if (!IsWordCharacter(first)) return word_;
        while (!AtEnd() && IsWordCharacter(script_[position_])) word_ += LowerAscii(script_[position_++]);
        return word_;
    }
    std::size_t Position() const noexcept { return position_; }

private:
    bool AtEnd() const noexcept { return position_ >= script_.size(); }
    bool StartsWith(std::string_view text) const { return script_.substr(position_).starts_with(text); }

    // "--" begins a comment there only with a blank behind it.
    bool IsLineComment() const {
        if (isMariaDb_ && StartsWith("#")) return true;
        if (!StartsWith("--")) return false;
        return !isMariaDb_ || position_ + 2 == script_.size() || IsBlank(script_[position_ + 2]);
    }

    void SkipBlanksAndComments() {
        while (!AtEnd()) {
            if (IsBlank(script_[position_])) {
                ++position_;
            } else if (IsLineComment()) {
                position_ = std::min(script_.find('\n', position_), script_.size());
            } else if (StartsWith("/*") && !(isMariaDb_ && (StartsWith("/*!") || StartsWith("/*M!")))) {
                const auto end = script_.find("*/", position_ + 2);
                position_ = end == std::string_view::npos ? script_.size() : end + 2;
            } else {
                return;
            }
        }
    }

    // E'...' and $tag$...$tag$.
    bool SkipOwnQuoted() {
        if (StartsWith("E'") || StartsWith("e'")) {
            ++position_;
            SkipQuoted('\'', true);
            return true;
        }
        if (!StartsWith("$")) return false;
        auto end = position_ + 1;
        while (end < script_.size() && IsWordCharacter(script_[end]) && script_[end] != '$') ++end;
        const bool isPlace =
            end > position_ + 1 && script_[position_ + 1] >= '0' && script_[position_ + 1] <= '9';
        if (end == script_.size() || script_[end] != '$' || isPlace) return false;
        const auto tag = script_.substr(position_, end + 1 - position_);
        const auto close = script_.find(tag, end + 1);
        position_ = close == std::string_view::npos ? script_.size() : close + tag.size();
        return true;
    }

    void SkipQuoted(char close, bool hasEscapes) {
        for (++position_; !AtEnd(); ++position_) {
            if (hasEscapes && script_[position_] == '\\') {
                ++position_;
            } else if (script_[position_] == close) {
                const bool isDoubled = position_ + 1 < script_.size() && script_[position_ + 1] == close;
                if (!isDoubled) {
                    ++position_;
                    return;
                }
                ++position_;
            }
        }
        position_ = script_.size();
    }

    std::string_view script_;
    bool isMariaDb_;
    bool isPostgreSql_;
    std::size_t position_ = 0;
    std::string word_;
};

/// Follows a statement as to whether a ";" ends it.
class BodyDepth {
public:
    void Add(std::string_view word) {
        constexpr std::array<std::string_view, 5> kRoutines{"trigger", "procedure", "function", "event",
                                                            "package"};
        constexpr std::array<std::string_view, 4> kLoops{"if", "loop", "while", "repeat"};
        constexpr int kOpeningWords = 16;  // CREATE OR REPLACE DEFINER = ... PROCEDURE
        if (words_ == 0) {
            mayHaveBody_ = word == "create";
            if (word == "begin") beginsWithBegin_ = true;
        }
        if (words_ == 1 && beginsWithBegin_ && word == "not") hasBody_ = true, depth_ = 1;
        if (mayHaveBody_ && words_ < kOpeningWords && IsOneOf(word, kRoutines)) hasBody_ = true;
        ++words_;
        if (!hasBody_) return;
        const bool isAfterEnd = std::exchange(isAfterEnd_, false);
        const bool opens = !isAfterEnd && (word == "begin" || word == "case");
        const bool endedLoop = isAfterEnd && IsOneOf(word, kLoops);  // no BEGIN and no CASE
        if (opens || endedLoop) ++depth_;
        if (word == "end") {
            --depth_;
            isAfterEnd_ = true;
        }
    }
    bool IsOpen() const noexcept { return hasBody_ && depth_ > 0; }

private:
    int words_ = 0;
    int depth_ = 0;
    bool beginsWithBegin_ = false;
    bool mayHaveBody_ = false;
    bool hasBody_ = false;
    bool isAfterEnd_ = false;
};

}  // namespace

std::size_t FirstStatementLength(std::string_view script, OdbcDialect dialect) {
    ScriptReader reader(script, dialect);
    BodyDepth body;
    for (auto word = reader.Next(); !word.empty(); word = reader.Next()) {
        if (word == ";" && !body.IsOpen()) return reader.Position();
        body.Add(word);
    }
    return script.size();
}

bool IsEmptyScript(std::string_view script, OdbcDialect dialect) {
    ScriptReader reader(script, dialect);
    auto word = reader.Next();
    while (word == ";") word = reader.Next();
    return word.empty();
}

bool MayHideItsRows(std::string_view statement) {
    constexpr std::array<std::string_view, 38> kWithoutRows{
        "backup",   "begin",    "binlog",    "call",      "change",  "commit",   "create",  "deallocate",
        "delete",   "do",       "drop",      "flush",     "get",     "grant",    "insert",  "install",
        "kill",     "lock",     "prepare",   "purge",     "release", "rename",   "replace", "reset",
        "resignal", "revoke",   "rollback",  "savepoint", "select",  "shutdown", "signal",  "start",
        "stop",     "truncate", "uninstall", "unlock",    "update",  "use"};
    ScriptReader reader(statement, OdbcDialect::MariaDb);
    std::string first(reader.Next());
    while (first == "(" || first == "{") first = reader.Next();
    if (IsOneOf(first, kWithoutRows)) return false;
    const std::string second(reader.Next());
    if (first == "set") return second == "statement";
    if (first == "load") return second == "index";
    if (first == "xa") return second == "recover";
    if (first != "alter") return true;
    for (auto word = reader.Next(); !word.empty(); word = reader.Next()) {
        if (word == "partition") return true;  // ANALYZE PARTITION and its like tell what they have done
    }
    return false;
}

bool MayGiveSeveralResults(std::string_view statement) {
    constexpr std::array<std::string_view, 4> kSeveral{"begin", "call", "execute", "/"};  // and /*! ... */
    ScriptReader reader(statement, OdbcDialect::MariaDb);
    auto first = reader.Next();
    if (first == "{") first = reader.Next();
    return IsOneOf(first, kSeveral);
}

}  // namespace halvtiv::ado
