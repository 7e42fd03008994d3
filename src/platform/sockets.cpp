#include "platform/sockets.hpp"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <string>
#include <system_error>

namespace halvtiv::platform {
namespace {

std::optional<std::uint16_t> PortIn(const sockaddr_storage& address) {
    if (address.ss_family == AF_INET) return ntohs(reinterpret_cast<const sockaddr_in&>(address).sin_port);
    if (address.ss_family == AF_INET6) return ntohs(reinterpret_cast<const sockaddr_in6&>(address).sin6_port);
    return std::nullopt;
}

// A TCP port in digits, or a path; nothing where there is no connection.
std::optional<std::string> PeerOf(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getpeername(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
    if (address.ss_family == AF_UNIX) return reinterpret_cast<const sockaddr_un&>(address).sun_path;
    const auto port = PortIn(address);
    return port ? std::optional(std::to_string(*port)) : std::nullopt;
}

void Set(int socket, int option, int value) {
    setsockopt(socket, IPPROTO_TCP, option, &value, sizeof value);
}

}  // namespace

bool AwaitSocket(int socket, SocketReady what, std::chrono::milliseconds limit) {
    short events = POLLIN | POLLOUT;
    if (what == SocketReady::Reading) events = POLLIN;
    if (what == SocketReady::Writing) events = POLLOUT;
    pollfd entry{socket, events, 0};
    return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

std::vector<OpenSocket> SocketsTo(std::string_view peer) {
    std::vector<OpenSocket> sockets;
    std::error_code failed;
    for (std::filesystem::directory_iterator entry("/proc/self/fd", failed), end; !failed && entry != end;
         entry.increment(failed)) {
        const auto name = entry->path().filename().string();
        OpenSocket found;
        std::from_chars(name.data(), name.data() + name.size(), found.descriptor);
        struct stat about {};
        if (fstat(found.descriptor, &about) != 0 || !S_ISSOCK(about.st_mode)) continue;
        found.serial = about.st_ino;
        if (PeerOf(found.descriptor) == peer) sockets.push_back(found);
    }
    return sockets;
}

SharedSocket::SharedSocket(int socket) noexcept : descriptor_(fcntl(socket, F_DUPFD_CLOEXEC, 0)) {}

SharedSocket::~SharedSocket() {
    if (descriptor_ != kNoSocket) close(descriptor_);
}

std::optional<std::uint16_t> LocalPort(int socket) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length) != 0) return std::nullopt;
    return PortIn(address);
}

bool IsSocketClosed(int socket) {
    pollfd entry{socket, POLLRDHUP, 0};
    return poll(&entry, 1, 0) > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

void WatchSocket(int socket, std::chrono::seconds limit) {
    const auto seconds = static_cast<int>(limit.count());
    const int isOn = 1;
    if (seconds <= 0 || setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &isOn, sizeof isOn) != 0) return;
    Set(socket, TCP_KEEPIDLE, std::max(seconds / 2, 1));
    Set(socket, TCP_KEEPINTVL, std::max(seconds / 6, 1));
    Set(socket, TCP_KEEPCNT, 3);
    Set(socket, TCP_USER_TIMEOUT, seconds * 1000);
}

void ShutSocketDown(int socket) noexcept {
    if (socket != kNoSocket) shutdown(socket, SHUT_RDWR);
}

}  // namespace halvtiv::platform
