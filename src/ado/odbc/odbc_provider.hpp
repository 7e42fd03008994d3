#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "ado/provider.hpp"

namespace halvtiv::ado {

// How the connection strings of this layer become those of ODBC drivers. All of them raise -2146824582 where
// the driver is not installed, -2147217843 for a refused login and -2147467259 where nothing answers. No
// message shows a password.

/// Everything but "Provider" goes to the driver manager as it stands; "DSN" or "Driver" names the driver.
std::shared_ptr<Session> OpenOdbcSession(const ConnectionParameters& parameters,
                                         std::int32_t connectionTimeout,
                                         std::shared_ptr<CancelSwitch> cancel);

/// "Data Source" is host[:port][,host[:port]]..., tried one after the other, or the path of a socket; with
/// "Initial Catalog", "User ID" and "Password".
std::shared_ptr<Session> OpenMariaDbSession(const ConnectionParameters& parameters,
                                            std::int32_t connectionTimeout,
                                            std::shared_ptr<CancelSwitch> cancel);

/// "Data Source" is [tcp:]host[\instance][,port], "." or "(local)" being this machine; with "Initial
/// Catalog", "User ID" and "Password" or "Integrated Security".
std::shared_ptr<Session> OpenSqlServerSession(const ConnectionParameters& parameters,
                                              std::int32_t connectionTimeout,
                                              std::shared_ptr<CancelSwitch> cancel);

/// What the driver manager gets of such a string, for a driver of that name.
std::string SqlServerConnectionText(const ConnectionParameters& parameters, std::string_view driver);

/// "Data Source" is an Access file, which can only be read.
std::shared_ptr<Session> OpenAccessSession(const ConnectionParameters& parameters,
                                           std::int32_t connectionTimeout,
                                           std::shared_ptr<CancelSwitch> cancel);

}  // namespace halvtiv::ado
