#pragma once

#include <chrono>

namespace halvtiv::platform {

enum class SocketReady { Reading, Writing };

/// Waits until a socket can be read or written without blocking, or has been closed by the other side; false
/// when it is not so within the limit. A signal may end the wait early.
bool AwaitSocket(int socket, SocketReady what, std::chrono::milliseconds limit);

}  // namespace halvtiv::platform
