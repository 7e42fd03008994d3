#include "ado/connection_parameters.hpp"

#include <algorithm>

#include "ado/errors.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

[[noreturn]] void RaiseMalformed() {
    throw MakeProviderError(AdoError::Unspecified, "The connection string is not a list of key=value pairs.",
                            "HalvTiv");
}

// The length of a value in braces at the front; 0 where there is none, or more than a ";" behind it.
std::size_t BracedLength(std::string_view text) {
    if (!text.starts_with('{')) return 0;
    for (std::size_t i = 1; i < text.size(); ++i) {
        if (text[i] != '}') continue;
        if (i + 1 < text.size() && text[i + 1] == '}') {
            ++i;
            continue;
        }
        const auto behind = text.find_first_not_of(' ', i + 1);
        return behind == std::string_view::npos || text[behind] == ';' ? i + 1 : 0;
    }
    return 0;
}

// Reads one value at the front of `rest` and drops it with its ";".
std::string TakeValue(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    if (const auto length = BracedLength(rest); length > 0) {
        std::string value(rest.substr(0, length));
        rest.remove_prefix(std::min(rest.find(';', length), rest.size() - 1) + 1);
        return value;
    }
    if (rest.empty() || (rest.front() != '"' && rest.front() != '\'')) {
        const auto end = std::min(rest.find(';'), rest.size());
        std::string value(platform::TrimBlanks(rest.substr(0, end)));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        return value;
    }
    const char quote = rest.front();
    std::string value;
    for (rest.remove_prefix(1);; rest.remove_prefix(1)) {
        if (rest.empty()) RaiseMalformed();
        if (rest.front() == quote) {
            rest.remove_prefix(1);
            if (!rest.starts_with(quote)) break;
        }
        value += rest.front();
    }
    const auto end = std::min(rest.find(';'), rest.size());
    if (!platform::TrimBlanks(rest.substr(0, end)).empty()) RaiseMalformed();
    rest.remove_prefix(std::min(end + 1, rest.size()));
    return value;
}

}  // namespace

ConnectionParameters::ConnectionParameters(std::string_view connectionString) {
    auto rest = connectionString;
    while (!rest.empty()) {
        const auto keyEnd = rest.find_first_of("=;");
        const auto key = platform::TrimBlanks(rest.substr(0, keyEnd));
        if (keyEnd == std::string_view::npos || rest[keyEnd] == ';') {
            if (!key.empty()) RaiseMalformed();
            rest.remove_prefix(keyEnd == std::string_view::npos ? rest.size() : keyEnd + 1);
            continue;
        }
        if (key.empty()) RaiseMalformed();
        const auto before = rest;
        rest.remove_prefix(keyEnd + 1);
        auto value = TakeValue(rest);
        auto lowerKey = platform::ToLower(key);
        written_.emplace_back(lowerKey, before.substr(0, before.size() - rest.size()));
        std::erase_if(values_, [&](const auto& pair) { return pair.first == lowerKey; });
        values_.emplace_back(std::move(lowerKey), std::move(value));
    }
}

std::optional<std::string_view> ConnectionParameters::Find(std::string_view key) const {
    const auto lowerKey = platform::ToLower(key);
    for (const auto& [name, value] : values_) {
        if (name == lowerKey) return value;
    }
    return std::nullopt;
}

std::string_view ConnectionParameters::Get(std::string_view key) const {
    return Find(key).value_or(std::string_view{});
}

std::string ConnectionParameters::TextWithout(std::string_view key) const {
    const auto lowerKey = platform::ToLower(key);
    std::string text;
    for (const auto& [name, pair] : written_) {
        if (name == lowerKey) continue;
        text += pair;
        if (!text.ends_with(';')) text += ';';
    }
    return text;
}

bool ConnectionParameters::IsSet(std::string_view key) const {
    const auto value = platform::ToLower(Get(key));
    return value == "1" || value == "true" || value == "yes";
}

void ConnectionParameters::SetDefault(std::string_view key, std::string_view value) {
    if (!Get(key).empty()) return;
    auto lowerKey = platform::ToLower(key);
    std::erase_if(values_, [&](const auto& pair) { return pair.first == lowerKey; });
    values_.emplace_back(std::move(lowerKey), std::string(value));
}

void RequirePlainNames(const ConnectionParameters& parameters, std::string_view source) {
    for (const char* key : {"Data Source", "Server", "Servername"}) {
        const auto at = parameters.Get(key).find('@');
        if (at != std::string_view::npos && at > 0) {  // a socket's name may begin with it
            throw MakeProviderError(AdoError::Unspecified,
                                    "The value of \"" + std::string(key) +
                                        "\" is no server: user and password have keys of their own.",
                                    source);
        }
    }
    for (const char* key :
         {"Data Source", "Server", "Servername", "Initial Catalog", "Database", "User ID", "UID"}) {
        const auto value = platform::ToLower(parameters.Get(key));
        for (const char* word : {"password", "pwd"}) {
            const auto found = value.find(word);
            if (found != std::string::npos && value.find('=', found) != std::string::npos) {
                throw MakeProviderError(AdoError::Unspecified,
                                        "The value of \"" + std::string(key) +
                                            "\" holds a password: there is a \";\" missing before it.",
                                        source);
            }
        }
        if (value.find('\0') != std::string::npos) {
            throw MakeProviderError(AdoError::Unspecified,
                                    "The value of \"" + std::string(key) + "\" holds a NUL character.",
                                    source);
        }
    }
}

}  // namespace halvtiv::ado
