#include "ado/connection_keywords.hpp"

#include <algorithm>
#include <array>
#include <vector>

#include "ado/errors.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// Settings of other clients that have no effect here, and time-outs, which are properties of `Connection`.
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
// Common keywords of other clients. Messages name them after a password too: they are public words.
constexpr std::array<std::string_view, 24> kForeign{"Port",
                                                    "Server",
                                                    "Host",
                                                    "Driver",
                                                    "DSN",
                                                    "Database",
                                                    "Initial Catalog",
                                                    "Current Language",
                                                    "Language",
                                                    "Version",
                                                    "Charset",
                                                    "Option",
                                                    "Socket",
                                                    "SSL Mode",
                                                    "Failover Partner",
                                                    "Network Address",
                                                    "Address",
                                                    "Addr",
                                                    "Timeout",
                                                    "Encrypt",
                                                    "Mode",
                                                    "User",
                                                    "Username",
                                                    "Trusted_Connection"};

template <typename Names>
bool IsOneOf(std::string_view key, const Names& names) {
    return std::any_of(names.begin(), names.end(),
                       [key](std::string_view name) { return platform::NormalKeyword(name) == key; });
}

bool IsHarmless(const ConnectionParameters& parameters, std::string_view key) {
    // A non-empty value selects another file format.
    if (key == "extendedproperties") return parameters.Get(key).empty();
    return key.starts_with(kHarmlessPrefix) || HasNoEffect(key);
}

std::string UnknownKeyword(std::string_view name, const std::vector<std::string>& known) {
    const auto nearest = platform::FindNearest(name, known);
    return "Unknown keyword \"" + platform::Shown(name) + "\" in the connection string" +
           (nearest.isNear ? "; the nearest known one is \"" + std::string(nearest.name) + "\"." : ".");
}

}  // namespace

bool HasNoEffect(std::string_view key) {
    return IsOneOf(key, kHarmless);
}

void RequireKnownKeywords(const ConnectionParameters& parameters, std::span<const std::string> known,
                          std::string_view source) {
    std::vector<std::string> all{"Provider", "Data Source", "User ID", "Password"};
    all.insert(all.end(), known.begin(), known.end());
    const ConnectionParameters::Pair* before = nullptr;
    for (const auto& pair : parameters.Pairs()) {
        if (!IsOneOf(pair.key, all) && !IsHarmless(parameters, pair.key)) {
            // After an unquoted password with a ";", the keyword may be part of the password.
            const bool mayBeSecret = before != nullptr && platform::IsSecretKeyword(before->key) &&
                                     !HasNoEffect(before->key) && !IsOneOf(pair.key, kForeign);
            throw MakeProviderError(
                AdoError::Unspecified,
                mayBeSecret ? "Unknown keyword behind \"" + before->name +
                                  "\" in the connection string: a value with a \";\" must stand in quotes."
                            : UnknownKeyword(pair.name, all),
                source);
        }
        before = &pair;
    }
}

bool IsReadOnly(const ConnectionParameters& parameters, std::string_view source) {
    constexpr std::array<std::string_view, 4> kKnown{"Read", "Write", "ReadWrite", "Share Deny None"};
    const auto value = parameters.Get("Mode");
    bool isRead = false;
    bool isWritten = false;
    for (auto rest = value; !rest.empty();) {
        const auto end = rest.find('|');
        const auto part = platform::NormalKeyword(rest.substr(0, end));
        rest.remove_prefix(std::min(end, rest.size() - 1) + 1);
        if (!IsOneOf(part, kKnown)) {
            throw MakeProviderError(AdoError::Unspecified,
                                    "The \"Mode\" \"" + platform::Shown(value) +
                                        "\" is no combination of Read, Write, ReadWrite and Share Deny None.",
                                    source);
        }
        isRead = isRead || part == "read";
        isWritten = isWritten || part.find("write") != std::string::npos;
    }
    return parameters.IsSet("Read Only") || (isRead && !isWritten);
}

}  // namespace halvtiv::ado
