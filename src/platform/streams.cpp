#include "platform/streams.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

void PrepareStandardStreams() noexcept {
    std::signal(SIGPIPE, SIG_IGN);
    int descriptor = 0;
    // Read only: writing to a standard output that was closed stays an error.
    do {
        descriptor = ::open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) ::close(descriptor);
}

bool OutputIsTerminal() noexcept {
    return ::isatty(STDOUT_FILENO) == 1;
}

bool ErrorsAreOnTerminal() noexcept {
    return ::isatty(STDERR_FILENO) == 1;
}

std::string ReadStandardInput() {
    constexpr std::size_t kBlockSize = 64 * 1024;
    std::string content;
    std::vector<char> block(kBlockSize);
    for (;;) {
        const ssize_t count = ::read(STDIN_FILENO, block.data(), block.size());
        if (count == 0) return content;
        if (count > 0) {
            content.append(block.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            RaiseRunTimeError(FileErrorFromErrno(errno), "standard input");
        }
    }
}

bool WriteStandardOutput(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(STDOUT_FILENO, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            return false;
        } else if (errno != EINTR) {
            RaiseRunTimeError(FileErrorFromErrno(errno), "standard output");
        }
    }
    return true;
}

}  // namespace halvtiv::platform
