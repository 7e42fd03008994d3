#pragma once

#include <chrono>
#include <string_view>

#include "ado/connection_parameters.hpp"

namespace halvtiv::ado {

/// How long a connection puts up with a server of which nothing is heard.
struct LinkLimits {
    /// "Link Timeout": a network that loses every packet is taken for a lost connection after about that
    /// time, however long a statement may run. 0 leaves it to the operating system, which takes hours.
    std::chrono::seconds lost{30};
    /// "Read Timeout": a server that is there and sends nothing, were it busy, is given up after that time.
    /// 0, the default, is no limit.
    std::chrono::seconds silent{0};
};

/// Raises -2147467259 for a value that is no whole number of seconds; source is that of the error.
LinkLimits ReadLinkLimits(const ConnectionParameters& parameters, std::string_view source);

}  // namespace halvtiv::ado
