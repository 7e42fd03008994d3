#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace halvtiv::ado {

/// A connection string taken apart: key=value pairs separated by ";". Letter case, blanks and underscores of
/// keys do not count, blanks around values are dropped; a value in `"` or `'` may hold a ";", and its quote
/// doubled. The last of a repeated key counts. A value in braces, as ODBC has them, may hold a ";" and keeps
/// its braces.
class ConnectionParameters {
public:
    /// Raises -2147467259 "The connection string is not a list of key=value pairs." for
    /// a text of another form.
    explicit ConnectionParameters(std::string_view connectionString);

    /// The value under a key; nothing when it is not there.
    std::optional<std::string_view> Find(std::string_view key) const;
    /// The value under a key; "" when it is not there.
    std::string_view Get(std::string_view key) const;
    /// Whether the value is one of 1, true, yes, on; false for 0, false, no, off, and where there is none.
    /// Raises -2147467259 for another value.
    bool IsSet(std::string_view key) const;
    /// The string without one of its pairs, each of the others as it was written and with a ";" behind it.
    std::string TextWithout(std::string_view key) const;
    /// Adds a value when there is none, or an empty one, under the key.
    void SetDefault(std::string_view key, std::string_view value);

    /// A pair of the string.
    struct Pair {
        std::string key;   ///< as `platform::NormalKeyword` spells it
        std::string name;  ///< the key as it was written
        std::string text;  ///< the pair as it was written, with its ";"
    };
    /// The pairs in their order, each repeated key with all of its own.
    const std::vector<Pair>& Pairs() const noexcept { return pairs_; }
    /// The values that no message may show, by what their keys are called.
    std::vector<std::string> Secrets() const;

private:
    std::map<std::string, std::string, std::less<>> values_;  // under the keys of `Pair`
    std::vector<Pair> pairs_;
};

/// Raises -2147467259 where the name of a server, database or user holds a password, because a ";" is
/// missing or it stands before the server with an "@" between, or a NUL character: messages show such names.
/// source is that of the error.
void RequirePlainNames(const ConnectionParameters& parameters, std::string_view source);

}  // namespace halvtiv::ado
