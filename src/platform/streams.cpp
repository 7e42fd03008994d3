#include "platform/streams.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <vector>

#include "platform/descriptor.hpp"
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
    std::string content;
    std::vector<char> block(kFileBufferSize);
    while (const ssize_t count = ReadSome(STDIN_FILENO, block.data(), block.size())) {
        if (count < 0) RaiseRunTimeError(FileErrorFromErrno(errno), "standard input");
        content.append(block.data(), static_cast<std::size_t>(count));
    }
    return content;
}

bool WriteStandardOutput(std::string_view bytes) {
    if (WriteAll(STDOUT_FILENO, bytes)) return true;
    if (errno == EPIPE) return false;
    RaiseRunTimeError(FileErrorFromErrno(errno), "standard output");
}

}  // namespace halvtiv::platform
