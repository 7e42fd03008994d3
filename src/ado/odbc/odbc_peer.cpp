#include "ado/odbc/odbc_peer.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <string_view>
#include <utility>

#include "ado/left_behind.hpp"
#include "ado/odbc/odbc_connect.hpp"
#include "ado/odbc/odbc_session.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::int32_t kSecondConnectionTakes = 3;  // seconds

std::string AskOne(OdbcSession& session, std::string_view question) {
    const auto statement = session.NewStatement();
    std::string text(question);
    session.Check(SQLPrepare(statement.Get(), reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS),
                  statement.Get());
    session.Check(SQLExecute(statement.Get()), statement.Get());
    session.Check(SQLFetch(statement.Get()), statement.Get());
    std::array<char, 256> answer{};
    SQLLEN length = 0;
    session.Check(SQLGetData(statement.Get(), 1, SQL_C_CHAR, answer.data(), answer.size(), &length),
                  statement.Get());
    return answer.data();
}

}  // namespace

OdbcPeer::OdbcPeer(std::string address, std::string secondText)
    : address_(std::move(address)),
      secondText_(std::move(secondText)),
      before_(platform::SocketsTo(address_)) {}

void OdbcPeer::FindSocket(std::vector<platform::OpenSocket> mayBe, std::optional<std::uint16_t> port) {
    std::erase_if(mayBe, [this](const auto& socket) {
        return std::find(before_.begin(), before_.end(), socket) != before_.end();
    });
    // The driver has its own ideas about how to reach this machine. Then they are somebody else's.
    const bool isPath = address_.starts_with('/');
    if (isPath == port.has_value()) return;
    if (mayBe.size() > 1) {
        // Somebody else has connected at the same time.
        std::erase_if(mayBe,
                      [port](const auto& socket) { return platform::LocalPort(socket.descriptor) != port; });
    }
    if (!mayBe.empty() && (port || mayBe.size() == 1)) {
        socket_ = platform::SharedSocket(mayBe.front().descriptor);
    }
}

void OdbcPeer::Meet(OdbcSession& session, const LinkLimits& limits) {
    auto now = platform::SocketsTo(address_);
    // "17 127.0.0.1:40312", the port being the one at this end unless the network translates addresses; none
    // through the server's own socket.
    const auto answer = AskOne(session,
                               "select concat(connection_id(), ' ', (select host from "
                               "information_schema.processlist where id = connection_id()))");
    serverId_ = answer.substr(0, answer.find(' '));
    std::optional<std::uint16_t> port;
    if (const auto colon = answer.rfind(':'); colon != std::string::npos) {
        std::uint16_t number = 0;
        std::from_chars(answer.data() + colon + 1, answer.data() + answer.size(), number);
        port = number;
    }
    FindSocket(std::move(now), port);
    if (socket_) platform::WatchSocket(socket_.Get(), limits.lost);
}

bool OdbcPeer::HasGone() const noexcept {
    return socket_ && platform::IsSocketClosed(socket_.Get());
}

bool OdbcPeer::KillStatement() const noexcept {
    try {
        auto killed = ThatMayBeLeftBehind<bool>([text = secondText_, id = serverId_] {
            const auto second = OdbcEnvironment().Connect(text, "MariaDB", kSecondConnectionTakes, {},
                                                          std::make_shared<CancelSwitch>());
            const auto statement = second->NewStatement();
            return SQL_SUCCEEDED(second->ExecuteText(statement.Get(), "KILL QUERY " + id));
        });
        const std::chrono::seconds limit{kSecondConnectionTakes};
        return killed.wait_for(limit) == std::future_status::ready && killed.get();
    } catch (...) {
        return false;
    }
}

}  // namespace halvtiv::ado
