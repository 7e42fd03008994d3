#include "platform/sockets.hpp"

#include <poll.h>

namespace halvtiv::platform {

bool AwaitSocket(int socket, SocketReady what, std::chrono::milliseconds limit) {
    const short events = what == SocketReady::Reading ? POLLIN : POLLOUT;
    pollfd entry{socket, events, 0};
    return poll(&entry, 1, static_cast<int>(limit.count())) > 0;
}

}  // namespace halvtiv::platform
