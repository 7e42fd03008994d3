#include "platform/keywords.hpp"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>
#include <vector>

namespace halvtiv::platform {
namespace {

constexpr std::array<std::string_view, 8> kSecretWords{"pass",  "pwd",    "word",       "secret",
                                                       "token", "phrase", "credential", "apikey"};
// These words are unambiguous, so a value after a blank counts as well.
constexpr std::array<std::string_view, 3> kPasswordWords{"password", "passwd", "pwd"};

char LowerLetter(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string LowerLetters(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(), LowerLetter);
    return lower;
}

bool IsWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

// Where the first keyword of a password stands that is followed by one of the marks; npos without any.
template <typename Words>
std::size_t FindKeyword(const std::string& lower, const Words& words, std::string_view marks) {
    std::size_t first = std::string::npos;
    for (const std::string_view word : words) {
        for (std::size_t at = 0; (at = lower.find(word, at)) < first; ++at) {
            std::size_t end = at + word.size();
            while (end < lower.size() && IsWordCharacter(lower[end])) ++end;
            const std::size_t value = std::min(lower.find_first_not_of(' ', end), lower.size());
            if (value == lower.size()) continue;
            const bool isBlank = value > end && marks.find(' ') != std::string_view::npos;
            if (isBlank || marks.find(lower[value]) != std::string_view::npos) first = at;
        }
    }
    return first;
}

// Where the password of "user:password@host" begins; npos without one.
std::size_t FindUserInfo(std::string_view text) {
    const std::size_t host = text.rfind('@');
    if (host == std::string_view::npos) return host;
    for (std::size_t colon = 0; (colon = text.find(':', colon)) < host; ++colon) {
        if (text.substr(colon, 3) != "://") return colon + 1;
    }
    return std::string_view::npos;
}

std::size_t FindSecret(std::string_view text) {
    const std::string lower = LowerLetters(text);
    return std::min({FindKeyword(lower, kSecretWords, "=:"), FindKeyword(lower, kPasswordWords, " "),
                     FindUserInfo(text)});
}

std::size_t EditDistance(std::string_view left, std::string_view right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < left.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < right.size(); ++j) {
            const std::size_t changed = diagonal + (left[i] == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row.back();
}

}  // namespace

std::string NormalKeyword(std::string_view keyword) {
    std::string normal = LowerLetters(keyword);
    std::erase_if(normal, [](char c) { return c == ' ' || c == '_'; });
    return normal;
}

bool IsSecretKeyword(std::string_view keyword) {
    const std::string normal = NormalKeyword(keyword);
    return std::any_of(kSecretWords.begin(), kSecretWords.end(),
                       [&](std::string_view word) { return normal.find(word) != std::string::npos; });
}

bool HoldsSecretPair(std::string_view text) {
    return FindKeyword(LowerLetters(text), kSecretWords, "=") != std::string::npos;
}

bool HoldsSecret(std::string_view text) {
    return HoldsSecretPair(text) || FindUserInfo(text) != std::string_view::npos;
}

std::string Shown(std::string_view text) {
    const std::size_t secret = FindSecret(text);
    return std::string(text.substr(0, secret)) + (secret == std::string_view::npos ? "" : "...");
}

NearestName FindNearest(std::string_view word, std::span<const std::string> candidates) {
    constexpr std::size_t kLongest = 64;  // what is longer is no misspelt name
    const std::string normal = NormalKeyword(word.substr(0, kLongest));
    NearestName nearest;
    std::size_t least = std::string::npos;
    for (const std::string& candidate : candidates) {
        const std::size_t distance =
            EditDistance(normal, NormalKeyword(std::string_view(candidate).substr(0, kLongest)));
        if (distance >= least) continue;
        least = distance;
        nearest = {candidate, distance <= std::max<std::size_t>(2, normal.size() / 3)};
    }
    return nearest;
}

}  // namespace halvtiv::platform
