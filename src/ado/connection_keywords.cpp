#include "ado/connection_keywords.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "ado/errors.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// How clients of other makers tune themselves, or what the properties of a connection say here: its
// time-outs.
constexpr std::array<std::string_view, 20> kHarmless{"Persist Security Info",
                                                     "Locale Identifier",
                                                     "OLE DB Services",
                                                     "Prompt",
                                                     "Window Handle",
                                                     "Cache Authentication",
                                                     "Mask Password",
                                                     "Connect Timeout",
                                                     "Connection Timeout",
                                                     "Application Name",
                                                     "Workstation ID",
                                                     "Packet Size",
                                                     "Auto Translate",
                                                     "Use Procedure for Prepare",
                                                     "Tag with column collation when possible",
                                                     "Network Library",
                                                     "MARS Connection",
                                                     "MultipleActiveResultSets",
                                                     "DataTypeCompatibility",
                                                     "Pooling"};
constexpr std::string_view kHarmlessPrefix = "jetoledb:";

bool IsHarmless(const ConnectionParameters& parameters, std::string_view key) {
    // Another format of the file, where there are any.
    if (key == "extendedproperties") return parameters.Get(key).empty();
    return key.starts_with(kHarmlessPrefix) ||
           std::any_of(kHarmless.begin(), kHarmless.end(),
                       [key](std::string_view name) { return platform::NormalKeyword(name) == key; });
}

}  // namespace

void RequireKnownKeywords(const ConnectionParameters& parameters, std::span<const std::string> known,
                          std::string_view source) {
    std::vector<std::string> all{"Provider", "Data Source", "User ID", "Password"};
    all.insert(all.end(), known.begin(), known.end());
    std::string_view before;
    for (const auto& pair : parameters.Pairs()) {
        const bool isKnown = std::any_of(all.begin(), all.end(), [&](const std::string& name) {
            return platform::NormalKeyword(name) == pair.key;
        });
        if (!isKnown && !IsHarmless(parameters, pair.key)) {
            const auto nearest = platform::FindNearest(pair.name, all);
            // Behind a password it may be the rest of the password.
            const bool mayBeSecret = !nearest.isNear && platform::IsSecretKeyword(before);
            throw MakeProviderError(
                AdoError::Unspecified,
                mayBeSecret ? "Unknown keyword behind \"" + std::string(before) +
                                  "\" in the connection string: a value with a \";\" must stand in quotes."
                            : "Unknown keyword \"" + platform::Shown(pair.name) +
                                  "\" in the connection string; the nearest known one is \"" +
                                  std::string(nearest.name) + "\".",
                source);
        }
        before = pair.name;
    }
}

bool IsReadOnly(const ConnectionParameters& parameters, std::string_view source) {
    const auto mode = platform::NormalKeyword(parameters.Get("Mode"));
    const bool isRead = mode == "read";
    if (!isRead && !mode.empty() && mode != "readwrite" && mode != "read|write" && mode != "sharedenynone") {
        throw MakeProviderError(AdoError::Unspecified, "\"Mode\" is neither Read nor ReadWrite.", source);
    }
    return parameters.IsSet("Read Only") || isRead;
}

}  // namespace halvtiv::ado
