#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace halvtiv {

/// What a text with placeholders is. In SQL a value that begins with "-" gets a blank before it where it
/// comes to stand directly behind a "-": the two would begin a comment. Quoted texts and comments stay as
/// they are.
enum class FilledText { Plain, Sql, PostgresqlSql };

/// The SQL of a database, by the name that definitions use; "" where it is not known.
FilledText SqlFor(std::string_view database);

/// Puts values in place of `%name%`, as it is spelled.
///
/// One name after the other, each on the text as it has become: a value may bring in the placeholder of a
/// later name, never of an earlier one.
class Placeholders {
public:
    void Add(std::string_view name, std::string value);
    std::size_t Count() const noexcept { return values_.size(); }
    /// Another value for the name at a position from 0.
    void SetValue(std::size_t position, std::string value) { values_[position].text = std::move(value); }

    /// The most bytes that may be written for texts of `given` bytes together: values that hold placeholders
    /// may double a text again and again.
    std::size_t Room(std::size_t given) const;
    /// Fills a text and takes what it writes on the way from `room`; false, with the text in any state, when
    /// that is not enough.
    bool Fill(std::string& text, FilledText kind, std::size_t& room) const;

private:
    struct Value {
        std::string placeholder;
        std::string text;
    };
    /// A text on the way, and where in it stands what may be the "-" of a value.
    struct Draft {
        std::string text;
        std::vector<std::size_t> starts;
    };
    enum class Outcome { Done, NoRoom, NotInOnePass };

    static Outcome Take(std::size_t& room, std::size_t bytes);
    Outcome FillInOnePass(std::string_view text, std::size_t& room, Draft& draft) const;
    Outcome FillOneByOne(std::size_t& room, Draft& draft) const;

    std::vector<Value> values_;
    std::map<std::string, std::size_t, std::less<>> positions_;  // of the first of each name
    bool hasAwkwardName_ = false;                                // one with a "%"
};

}  // namespace halvtiv
