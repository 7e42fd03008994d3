#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace halvtiv::platform {

/// `Either` where the next step is not known: reading or writing.
enum class SocketReady { Reading, Writing, Either };

/// Waits until a socket can be read or written without blocking, or has been closed by the other side; false
/// when it is not so within the limit. A signal may end the wait early.
bool AwaitSocket(int socket, SocketReady what, std::chrono::milliseconds limit);

inline constexpr int kNoSocket = -1;

/// A socket of this process, told from another one that gets its number later.
struct OpenSocket {
    int descriptor = kNoSocket;
    std::uint64_t serial = 0;
    bool operator==(const OpenSocket&) const = default;
};

/// The sockets with a connection to a peer, a TCP port or a socket's path, for libraries that do not show
/// theirs: who looks before and after finds the new one. Empty where the system does not tell.
std::vector<OpenSocket> SocketsTo(std::string_view peer);

/// A descriptor of one's own for a socket that belongs to somebody else. It means that socket until it goes,
/// also after the owner has closed his, whose number then soon means another one.
class SharedSocket {
public:
    SharedSocket() = default;
    /// Holds nothing where there are no descriptors left.
    explicit SharedSocket(int socket) noexcept;
    ~SharedSocket();
    SharedSocket(const SharedSocket&) = delete;
    SharedSocket& operator=(const SharedSocket&) = delete;
    SharedSocket(SharedSocket&& other) noexcept : descriptor_(std::exchange(other.descriptor_, kNoSocket)) {}
    SharedSocket& operator=(SharedSocket&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }

    explicit operator bool() const noexcept { return descriptor_ != kNoSocket; }
    int Get() const noexcept { return descriptor_; }

private:
    int descriptor_ = kNoSocket;
};

/// The TCP port at this end; nothing for other sockets.
std::optional<std::uint16_t> LocalPort(int socket);

/// Whether the other side has ended the connection. Does not read from it.
bool IsSocketClosed(int socket);

/// Has the system look after a TCP connection: one whose packets are all lost fails after about the limit.
/// Does nothing to other sockets.
void WatchSocket(int socket, std::chrono::seconds limit);

/// Ends a connection under whoever waits on it: reading finds its end. The socket stays its owner's.
void ShutSocketDown(int socket) noexcept;

}  // namespace halvtiv::platform
