#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ado/link_limits.hpp"
#include "platform/sockets.hpp"

namespace halvtiv::ado {

class OdbcSession;

/// A MariaDB server as it is reached from beside the driver, which shows neither its socket nor lets go of a
/// server that is silent.
class OdbcPeer {
public:
    /// Made before the driver connects. address is the server's port or the path of its socket, secondText
    /// the connection string for what goes through a second connection, with time-outs of its own.
    OdbcPeer(std::string address, std::string secondText);

    /// Finds the socket of the session that has just been opened, asks the server who it is, and has the
    /// system watch the connection. Raises what the server answers where it is there but does not serve, as a
    /// cluster's node that is not ready. Cancelling has no hold on it.
    void Meet(OdbcSession& session, const LinkLimits& limits);

    /// Whether the server has ended the connection, looked at while nothing runs on it.
    bool HasGone() const noexcept;
    /// Has the server stop what the session runs; false where the server does not hear of it. Takes some
    /// seconds at most.
    bool KillStatement() const noexcept;
    bool CanCut() const noexcept { return static_cast<bool>(socket_); }
    /// Ends the connection under the driver.
    void Cut() const noexcept { platform::ShutSocketDown(socket_.Get()); }

private:
    /// Among those that there are now; port: the one at this end as the server sees it.
    void FindSocket(std::vector<platform::OpenSocket> mayBe, std::optional<std::uint16_t> port);

    std::string address_;
    std::string secondText_;
    std::vector<platform::OpenSocket> before_;  // the sockets that there were
    platform::SharedSocket socket_;             // the driver's, where it has been found
    std::string serverId_;                      // what the server calls the connection
};

}  // namespace halvtiv::ado
