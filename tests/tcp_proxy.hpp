#pragma once

#include <arpa/inet.h>
#include <linux/filter.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <limits>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace halvtiv::test {

inline std::string AddressOf(int port) {
    return "127.0.0.1:" + std::to_string(port);
}

inline sockaddr_in LoopbackAddress(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

/// A listening socket at a free port, and that port.
inline int Listen(int& port) {
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto address = LoopbackAddress(0);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listener, generic, length) != 0 || ::listen(listener, 16) != 0 ||
        ::getsockname(listener, generic, &length) != 0) {
        throw std::runtime_error("no port to listen at");
    }
    port = ntohs(address.sin_port);
    return listener;
}

/// A port at which nobody listens.
inline int FreePort() {
    int port = 0;
    ::close(Listen(port));
    return port;
}

/// A network between a client and a server that can go wrong.
class TcpProxy {
public:
    enum class Trouble {
        Drop,    ///< the connection is closed
        Freeze,  ///< nothing passes any more, but the connection stands
        Lose     ///< every packet is lost, also those of which programs know nothing
    };
    static constexpr long long kEverything = std::numeric_limits<long long>::max();

    explicit TcpProxy(int serverPort) : serverPort_(serverPort), listener_(Listen(port_)) {
        thread_ = std::thread([this] { Run(); });
    }
    ~TcpProxy() { Close(); }
    TcpProxy(const TcpProxy&) = delete;
    TcpProxy& operator=(const TcpProxy&) = delete;

    int Port() const { return port_; }
    /// The server's bytes that pass before the trouble comes, counted over all connections from now on.
    void Break(Trouble trouble, long long after) {
        trouble_ = trouble;
        left_ = after;
    }
    void Repair() { left_ = kEverything; }
    long long Passed() const { return passed_; }
    /// Drops all connections, and takes no more.
    void Close() {
        isOver_ = true;
        if (thread_.joinable()) thread_.join();
    }

private:
    struct Pair {
        int client;
        int server;
        bool isBroken = false;
    };

    void Run() {
        std::vector<Pair> pairs;
        while (!isOver_) {
            std::vector<pollfd> waits{{listener_, POLLIN, 0}};
            for (const auto& pair : pairs) {
                const bool isOpen = pair.client >= 0 && !pair.isBroken;
                waits.push_back({isOpen ? pair.client : -1, POLLIN, 0});
                waits.push_back({isOpen ? pair.server : -1, POLLIN, 0});
            }
            ::poll(waits.data(), waits.size(), 5);
            if ((waits[0].revents & POLLIN) != 0) Accept(pairs);
            for (std::size_t i = 1; i + 1 < waits.size(); i += 2) {
                auto& pair = pairs[i / 2];
                if (left_ <= 0 && pair.client >= 0 && !pair.isBroken) Trip(pair);
                if (pair.isBroken || pair.client < 0) continue;
                const bool isAlive = (waits[i].revents == 0 || Pass(pair.client, pair.server, nullptr)) &&
                                     (waits[i + 1].revents == 0 || Pass(pair.server, pair.client, &left_));
                if (!isAlive) Shut(pair);
            }
        }
        for (auto& pair : pairs) Shut(pair);
        ::close(listener_);
    }

    void Accept(std::vector<Pair>& pairs) const {
        const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto address = LoopbackAddress(serverPort_);
        Pair pair{client, server};
        if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) Shut(pair);
        pairs.push_back(pair);
    }

    bool Pass(int from, int to, std::atomic<long long>* left) {
        std::array<char, 16384> bytes{};
        const auto most = left ? std::min<long long>(bytes.size(), *left) : bytes.size();
        const auto count = ::recv(from, bytes.data(), static_cast<std::size_t>(most), 0);
        if (count <= 0) return false;
        if (left && *left != kEverything) *left -= count;
        if (left) passed_ += count;
        return ::send(to, bytes.data(), static_cast<std::size_t>(count), MSG_NOSIGNAL) == count;
    }

    void Trip(Pair& pair) const {
        if (trouble_ == Trouble::Drop) return Shut(pair);
        pair.isBroken = true;
        if (trouble_ == Trouble::Freeze) return;
        // The system's own answers are lost, too: it sees no packet of the client any more.
        sock_filter nothing{BPF_RET | BPF_K, 0, 0, 0};
        const sock_fprog program{1, &nothing};
        if (::setsockopt(pair.client, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
            throw std::runtime_error("packets cannot be lost here");
        }
    }

    static void Shut(Pair& pair) {
        if (pair.client >= 0) ::close(pair.client);
        if (pair.server >= 0) ::close(pair.server);
        pair = {-1, -1, false};
    }

    int serverPort_;
    int port_ = 0;
    int listener_;
    std::atomic<Trouble> trouble_{Trouble::Drop};
    std::atomic<long long> left_{kEverything};
    std::atomic<long long> passed_{0};
    std::atomic<bool> isOver_{false};
    std::thread thread_;
};

}  // namespace halvtiv::test
