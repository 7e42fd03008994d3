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

/// How a database writes texts, names and comments.
enum class SqlDialect {
    Common,
    /// Names in "" alone, texts also as E'..' with backslashes and between $tag$s, comments inside comments.
    Postgresql
};

/// Takes a statement's text apart: names and keywords, names in "", `` or [], texts in '', numbers, comments
/// (left out), and symbols of one character each.
class SqlScanner {
public:
    explicit SqlScanner(std::string_view text, SqlDialect dialect = SqlDialect::Common)
        : text_(text), dialect_(dialect) {}

    /// The next token; `End` at the end and for ever after.
    SqlToken Next();

private:
    void SkipBlanksAndComments();
    /// Behind what a quote at `begin` encloses.
    std::size_t EndOfQuoted(std::size_t begin, char close) const;
    /// Behind the comment at `begin`.
    std::size_t EndOfComment(std::size_t begin) const;
    /// Behind a text with backslashes whose quote is at `begin`.
    std::size_t EndOfEscaped(std::size_t begin) const;
    /// Behind the text between tags that begins at `begin`; `begin` where none does.
    std::size_t EndOfTagged(std::size_t begin) const;

    std::string_view text_;
    SqlDialect dialect_;
    std::size_t position_ = 0;
};

/// The first bind marker of a script for SQLite (`?`, `?1`, `:name`, `@name`, `$name`); "" where there is
/// none.
std::string_view BindMarkerOf(std::string_view script);

/// How a statement ends the transaction that is open, if it does.
enum class TransactionEnd { None, Plain, BeginsAnother };
TransactionEnd TransactionEndOf(std::string_view statement);

}  // namespace halvtiv::ado
