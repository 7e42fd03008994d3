#include "ado/link_limits.hpp"

#include <charconv>
#include <cstdint>
#include <string>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

// Systems count these times in milliseconds, in 32 bits.
constexpr std::int32_t kMostSeconds = 1'000'000;

void Read(const ConnectionParameters& parameters, const char* key, std::string_view source,
          std::chrono::seconds& limit) {
    const auto text = parameters.Get(key);
    if (text.empty()) return;
    std::int32_t seconds = -1;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    const bool isWhole = error == std::errc{} && end == text.data() + text.size();
    if (!isWhole || seconds < 0 || seconds > kMostSeconds) {
        throw MakeProviderError(AdoError::Unspecified,
                                "\"" + std::string(key) + "\" is not a number of seconds.", source);
    }
    limit = std::chrono::seconds(seconds);
}

}  // namespace

LinkLimits ReadLinkLimits(const ConnectionParameters& parameters, std::string_view source) {
    LinkLimits limits;
    Read(parameters, "Link Timeout", source, limits.lost);
    Read(parameters, "Read Timeout", source, limits.silent);
    return limits;
}

}  // namespace halvtiv::ado
