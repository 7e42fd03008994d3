#include "ado/connection_parameters.hpp"

#include <algorithm>
#include <utility>

#include "ado/connection_keywords.hpp"
#include "ado/errors.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

[[noreturn]] void RaiseMalformed() {
    throw MakeProviderError(AdoError::Unspecified, "The connection string is not a list of key=value pairs.",
                            "HalvTiv");
}

// The rest of a connection string while it is read.
class Rest {
public:
    explicit Rest(std::string_view text) : text_(text) {}

    bool IsEmpty() const { return at_ == text_.size(); }
    std::string_view Text() const { return text_.substr(at_); }
    std::size_t Position() const { return at_; }
    void Drop(std::size_t count) { at_ += std::min(count, text_.size() - at_); }

    // Reads the value at the front and drops it with its ";".
    std::string TakeValue() {
        Drop(Text().find_first_not_of(' '));
        if (const auto length = BracedLength(); length > 0) {
            std::string value(Text().substr(0, length));
            Drop(length);
            DropBehind();
            return value;
        }
        if (!Text().starts_with('"') && !Text().starts_with('\'')) {
            const auto value = platform::TrimBlanks(Text().substr(0, Text().find(';')));
            DropBehind();
            return std::string(value);
        }
        const char quote = Text().front();
        std::string value;
        for (Drop(1);; Drop(1)) {
            if (IsEmpty()) RaiseMalformed();
            if (Text().front() == quote) {
                Drop(1);
                if (!Text().starts_with(quote)) break;
            }
            value += Text().front();
        }
        if (!platform::TrimBlanks(Text().substr(0, Text().find(';'))).empty()) RaiseMalformed();
        DropBehind();
        return value;
    }

private:
    void DropBehind() {
        const auto end = Text().find(';');
        Drop(end == std::string_view::npos ? end : end + 1);
    }

    // The length of a value in braces at the front; 0 where there is none, or more than a ";" behind it. Two
    // closing braces are one of the value, so the first run of an odd number of them ends it: the same run
    // for every opening brace before it, which is looked for once.
    std::size_t BracedLength() {
        if (!Text().starts_with('{')) return 0;
        while (close_ < at_) {
            const auto run = text_.find('}', scanned_ = std::max(scanned_, at_));
            if (run == std::string_view::npos) {
                close_ = run;
                break;
            }
            scanned_ = std::min(text_.find_first_not_of('}', run), text_.size());
            if ((scanned_ - run) % 2 == 0) continue;
            close_ = scanned_ - 1;
            const auto behind = text_.find_first_not_of(' ', scanned_);
            closesValue_ = behind == std::string_view::npos || text_[behind] == ';';
        }
        return close_ != std::string_view::npos && closesValue_ ? close_ + 1 - at_ : 0;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    std::size_t scanned_ = 0;   // there is no closing brace between `at_` and here
    std::size_t close_ = 0;     // the closing brace behind `at_`, npos without one; not looked for below that
    bool closesValue_ = false;  // nothing but blanks stands between that brace and the ";"
};

}  // namespace

ConnectionParameters::ConnectionParameters(std::string_view connectionString) {
    for (Rest rest(connectionString); !rest.IsEmpty();) {
        const auto keyEnd = rest.Text().find_first_of("=;");
        const auto name = platform::TrimBlanks(rest.Text().substr(0, keyEnd));
        if (keyEnd == std::string_view::npos || rest.Text()[keyEnd] == ';') {
            if (!name.empty()) RaiseMalformed();
            rest.Drop(keyEnd == std::string_view::npos ? keyEnd : keyEnd + 1);
            continue;
        }
        auto key = platform::NormalKeyword(name);
        if (key.empty()) RaiseMalformed();
        const auto begin = rest.Position();
        rest.Drop(keyEnd + 1);
        values_[key] = rest.TakeValue();
        pairs_.push_back({std::move(key), std::string(name),
                          std::string(connectionString.substr(begin, rest.Position() - begin))});
    }
}

std::optional<std::string_view> ConnectionParameters::Find(std::string_view key) const {
    const auto found = values_.find(platform::NormalKeyword(key));
    if (found == values_.end()) return std::nullopt;
    return found->second;
}

std::string_view ConnectionParameters::Get(std::string_view key) const {
    return Find(key).value_or(std::string_view{});
}

std::string ConnectionParameters::TextWithout(std::string_view key) const {
    const auto normal = platform::NormalKeyword(key);
    std::string text;
    for (const auto& pair : pairs_) {
        if (pair.key == normal) continue;
        text += pair.text;
        if (!text.ends_with(';')) text += ';';
    }
    return text;
}

bool ConnectionParameters::IsSet(std::string_view key) const {
    const auto value = platform::ToLower(Get(key));
    if (value == "1" || value == "true" || value == "yes" || value == "on") return true;
    if (value.empty() || value == "0" || value == "false" || value == "no" || value == "off") return false;
    throw MakeProviderError(AdoError::Unspecified, "\"" + std::string(key) + "\" is neither yes nor no.",
                            "HalvTiv");
}

void ConnectionParameters::SetDefault(std::string_view key, std::string_view value) {
    if (Get(key).empty()) values_[platform::NormalKeyword(key)] = value;
}

std::vector<std::string> ConnectionParameters::Secrets() const {
    std::vector<std::string> secrets;
    for (const auto& [key, value] : values_) {
        if (!value.empty() && platform::IsSecretKeyword(key) && !HasNoEffect(key)) secrets.push_back(value);
    }
    return secrets;
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
        const auto value = parameters.Get(key);
        if (platform::HoldsSecret(value)) {
            throw MakeProviderError(AdoError::Unspecified,
                                    "The value of \"" + std::string(key) +
                                        "\" holds a password: there is a \";\" missing before it.",
                                    source);
        }
        if (value.find('\0') != std::string_view::npos) {
            throw MakeProviderError(AdoError::Unspecified,
                                    "The value of \"" + std::string(key) + "\" holds a NUL character.",
                                    source);
        }
    }
}

}  // namespace halvtiv::ado
