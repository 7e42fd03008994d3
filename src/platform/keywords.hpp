#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

namespace halvtiv::platform {

/// A keyword of a connection string for comparisons: ASCII letters in lower case, without blanks and
/// underscores.
std::string NormalKeyword(std::string_view keyword);

/// Whether the keyword's name suggests a password ("Password", "PWD", "sslpassword", "Client Secret"):
/// no message may show its value.
bool IsSecretKeyword(std::string_view keyword);

/// Whether a text holds "keyword=value" with such a keyword.
bool HoldsSecretPair(std::string_view text);
/// Whether a text holds such a pair or "user:password@host".
bool HoldsSecret(std::string_view text);
/// A text as messages quote it: cut before the password that it holds, with "..." in the place of the rest.
/// Also cuts where ":" or a blank stands between the keyword and the value.
std::string Shown(std::string_view text);

/// The candidate that is reached from a word with the fewest letters changed, added and removed; letter case,
/// blanks and underscores do not count.
struct NearestName {
    std::string_view name;  ///< "" without candidates
    bool isNear = false;    ///< the edit distance is at most 2, or a third of the length
};
NearestName FindNearest(std::string_view word, std::span<const std::string> candidates);

}  // namespace halvtiv::platform
