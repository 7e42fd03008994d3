#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ado/odbc/odbc_handle.hpp"
#include "ado/odbc/odbc_session.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// The driver manager, and the way to a connection.
class OdbcEnvironment {
public:
    OdbcEnvironment();

    /// The names under which drivers are installed.
    std::vector<std::string> Drivers() const;
    /// Opens a session and ends this object's use. connectionString is in the driver manager's form, secrets
    /// is what no message may show of it, source is that of its errors.
    std::shared_ptr<OdbcSession> Connect(const std::string& connectionString, std::string_view source,
                                         std::int32_t connectionTimeout,
                                         const std::vector<std::string>& secrets,
                                         std::shared_ptr<CancelSwitch> cancel);

private:
    OdbcHandle environment_;
};

/// A connection string in the driver manager's form.
class OdbcConnectionText {
public:
    /// Nothing where the value is empty. Values with characters that have a meaning there get braces.
    OdbcConnectionText& Add(std::string_view key, std::string_view value);
    const std::string& Text() const noexcept { return text_; }

private:
    std::string text_;
};

}  // namespace halvtiv::ado
