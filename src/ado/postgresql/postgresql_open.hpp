#pragma once

#include <memory>

#include "ado/provider.hpp"

namespace halvtiv::ado {

/// An `OpenSession` for PostgreSQL servers. "Data Source" is `host[:port][,host[:port]]...` or the folder of
/// the server's socket; "Initial Catalog", "User ID", "Password"; what else libpq knows goes to it.
/// connectionTimeout counts for each host.
std::shared_ptr<Session> OpenPostgresqlSession(const ConnectionParameters& parameters,
                                               std::int32_t connectionTimeout,
                                               std::shared_ptr<CancelSwitch> cancel);

}  // namespace halvtiv::ado
