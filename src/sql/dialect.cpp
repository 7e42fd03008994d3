#include "sql/dialect.hpp"

#include "sql/characters.hpp"

namespace halvtiv::sql {
namespace {

/// Enters the characters of names: letters and digits, and what the dialect adds to them.
constexpr void AllowInNames(Syntax& syntax, std::string_view inside, std::string_view atBegin) {
    for (std::size_t byte = 0; byte < syntax.isInName.size(); ++byte) {
        const auto c = static_cast<char>(byte);
        syntax.beginsName[byte] = IsLetter(c) || atBegin.find(c) != std::string_view::npos;
        syntax.isInName[byte] = IsLetter(c) || IsDigit(c) || inside.find(c) != std::string_view::npos;
    }
}

constexpr Syntax MakeSqlite() {
    Syntax syntax;
    syntax.hasBacktickNames = syntax.hasBracketNames = true;
    syntax.stringPrefixes = "x";
    syntax.hasQuestionMarks = syntax.numbersQuestionMarks = true;
    syntax.parameterPrefixes = ":@$";
    AllowInNames(syntax, "$", "");
    return syntax;
}

constexpr Syntax MakePostgreSql() {
    Syntax syntax;
    syntax.stringPrefixes = "nbx";
    syntax.hasEscapeStrings = syntax.hasUnicodePrefix = syntax.hasDollarQuotes = true;
    syntax.continuesStrings = syntax.endsLineAtReturn = syntax.hasNestedComments = true;
    syntax.hasDollarNumbers = syntax.hasFreeOperators = true;
    AllowInNames(syntax, "$", "");
    return syntax;
}

constexpr Syntax MakeMariaDb() {
    Syntax syntax;
    syntax.hasBacktickNames = true;
    syntax.stringPrefixes = "nbx";
    syntax.hasCharsetPrefix = syntax.hasHashComments = syntax.dashesNeedBlank = true;
    syntax.hasExecutableComments = syntax.namesMayBeginWithDigit = true;
    syntax.hasQuestionMarks = syntax.hasUserVariables = true;
    AllowInNames(syntax, "$", "$");
    return syntax;
}

constexpr Syntax MakeSqlServer() {
    Syntax syntax;
    syntax.hasBracketNames = syntax.doublesClosingBracket = true;
    syntax.stringPrefixes = "n";
    syntax.hasNestedComments = syntax.hasQuestionMarks = true;
    AllowInNames(syntax, "@$#", "@#");
    return syntax;
}

constexpr Syntax MakeAccess() {
    Syntax syntax;
    syntax.hasBacktickNames = syntax.hasBracketNames = syntax.hasQuestionMarks = true;
    AllowInNames(syntax, "$", "");
    return syntax;
}

constexpr Syntax MakeGeneric() {
    Syntax syntax;
    syntax.hasBacktickNames = syntax.hasBracketNames = syntax.doublesClosingBracket = true;
    syntax.stringPrefixes = "nbx";
    syntax.hasQuestionMarks = true;
    AllowInNames(syntax, "$#", "$#");
    return syntax;
}

}  // namespace

const Syntax& SyntaxOf(Dialect dialect) noexcept {
    static constexpr Syntax kSqlite = MakeSqlite();
    static constexpr Syntax kPostgreSql = MakePostgreSql();
    static constexpr Syntax kMariaDb = MakeMariaDb();
    static constexpr Syntax kSqlServer = MakeSqlServer();
    static constexpr Syntax kAccess = MakeAccess();
    static constexpr Syntax kGeneric = MakeGeneric();
    switch (dialect) {
        case Dialect::Sqlite:
            return kSqlite;
        case Dialect::PostgreSql:
            return kPostgreSql;
        case Dialect::MariaDb:
            return kMariaDb;
        case Dialect::SqlServer:
            return kSqlServer;
        case Dialect::Access:
            return kAccess;
        case Dialect::Generic:
            break;
    }
    return kGeneric;
}

}  // namespace halvtiv::sql
