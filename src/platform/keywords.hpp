#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace halvtiv::platform {

/// A keyword of a connection string for comparisons: ASCII letters in lower case, without blanks and
/// underscores.
std::string NormalKeyword(std::string_view keyword);

/// Whether a keyword is called like one of a password ("Password", "PWD", "sslpassword", "Client Secret"):
/// no message may show its value.
bool IsSecretKeyword(std::string_view keyword);

/// Whether a text holds "keyword=value" with such a keyword.
bool HoldsSecretPair(std::string_view text);
/// Whether a text holds such a pair, also with ":" or a blank between, or "user:password@host".
bool HoldsSecret(std::string_view text);
/// A text as messages quote it: cut before the password that it holds, with "..." in the place of the rest.
std::string Shown(std::string_view text);

/// The candidate that is reached from a word with the fewest letters changed, added and removed; letter case,
/// blanks and underscores do not count.
struct NearestName {
    std::string_view name;  ///< "" without candidates
    bool isNear = false;    ///< a third of the letters or two of them differ at most
};
NearestName FindNearest(std::string_view word, std::span<const std::string> candidates);

}  // namespace halvtiv::platform
