#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace halvtiv::test {

/// A server that takes connections and says nothing.
class SilentServer {
public:
    SilentServer() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address_;
        ::bind(socket_, reinterpret_cast<sockaddr*>(&address_), size);
        ::listen(socket_, 8);
        ::getsockname(socket_, reinterpret_cast<sockaddr*>(&address_), &size);
    }
    ~SilentServer() { ::close(socket_); }
    SilentServer(const SilentServer&) = delete;
    SilentServer& operator=(const SilentServer&) = delete;
    std::string Port() const { return std::to_string(ntohs(address_.sin_port)); }
    std::string Address() const { return "127.0.0.1:" + Port(); }

private:
    int socket_;
    sockaddr_in address_{};
};

}  // namespace halvtiv::test
