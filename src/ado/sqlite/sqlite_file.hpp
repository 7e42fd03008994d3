#pragma once

#include <cstdint>
#include <memory>

#include "ado/provider.hpp"

namespace halvtiv::ado {

/// Opens the file that "Data Source" names, or ":memory:". "Create" makes a missing file, "Read Only" or
/// "Mode=Read" forbids changes, "Busy Timeout" is the time in milliseconds to wait for another connection's
/// lock, 5000 at first. A name is never taken as a URI. The connection time-out has no meaning here.
std::shared_ptr<Session> OpenSqliteSession(const ConnectionParameters& parameters,
                                           std::int32_t connectionTimeout,
                                           std::shared_ptr<CancelSwitch> cancel);

}  // namespace halvtiv::ado
