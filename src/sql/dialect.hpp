#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace halvtiv::sql {

/// Whose SQL a text is written in. `Generic` is a database behind ODBC of which nothing else is known.
enum class Dialect : std::uint8_t { Sqlite, PostgreSql, MariaDb, SqlServer, Access, Generic };

/// The lexical rules in which the dialects differ. All have '...' strings with doubled quotes, "..." names,
/// `--` comments and block comments. No dialect has backslash escapes in plain strings: sessions set
/// standard_conforming_strings on PostgreSQL, and NO_BACKSLASH_ESCAPES and ANSI_QUOTES on MariaDB.
struct Syntax {
    bool hasBacktickNames = false;
    bool hasBracketNames = false;
    bool doublesClosingBracket = false;   ///< in [a]]b]; SQLite ends the name at the first ]
    std::string_view stringPrefixes;      ///< lower-case letters that may stand before a quote: n'...'
    bool hasEscapeStrings = false;        ///< e'...' with backslash escapes
    bool hasUnicodePrefix = false;        ///< u&'...' and u&"..."
    bool hasDollarQuotes = false;         ///< $tag$...$tag$
    bool continuesStrings = false;        ///< 'a' and 'b' on different lines are one string
    bool hasCharsetPrefix = false;        ///< _utf8mb4'...'
    bool hasHashComments = false;         ///< # to the end of the line
    bool dashesNeedBlank = false;         ///< -- begins a comment only before a blank
    bool endsLineAtReturn = false;        ///< a carriage return ends a line comment, too
    bool hasNestedComments = false;       ///< block comments nest
    bool hasExecutableComments = false;   ///< the content of /*! ... */ and /*M! ... */ is SQL
    bool namesMayBeginWithDigit = false;  ///< 1a is a name
    std::array<bool, 256> beginsName{};   ///< by byte
    std::array<bool, 256> isInName{};     ///< by byte
    bool hasQuestionMarks = false;        ///< ? is a parameter marker
    bool numbersQuestionMarks = false;    ///< ?1
    std::string_view parameterPrefixes;   ///< a name behind one of them is a parameter: :name
    bool hasDollarNumbers = false;        ///< $1 is a parameter marker
    bool hasUserVariables = false;        ///< @name and @@name are words
    bool hasFreeOperators = false;        ///< any run of operator characters is one operator
};

/// The rules of a dialect.
const Syntax& SyntaxOf(Dialect dialect) noexcept;

}  // namespace halvtiv::sql
