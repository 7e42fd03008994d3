#include "system.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "command_error.hpp"
#include "platform/files.hpp"

namespace halvtiv::cli {
namespace {

std::string SystemWords(int error) {
    return std::system_category().message(error);
}

std::string ReadToEnd(int descriptor, const std::string& name) {
    std::string content;
    std::array<char, 64 * 1024> block{};
    for (;;) {
        const ssize_t count = ::read(descriptor, block.data(), block.size());
        if (count == 0) return content;
        if (count > 0) {
            content.append(block.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            throw CommandError(ExitStatus::NotRun, "Cannot read " + name + ": " + SystemWords(errno));
        }
    }
}

}  // namespace

void PrepareProcess() {
    std::signal(SIGPIPE, SIG_IGN);
    int descriptor = 0;
    // Read only: writing to a standard output that was closed stays an error.
    do {
        descriptor = ::open("/dev/null", O_RDONLY);
    } while (descriptor >= 0 && descriptor <= STDERR_FILENO);
    if (descriptor > STDERR_FILENO) ::close(descriptor);
}

bool OutputIsTerminal() {
    return ::isatty(STDOUT_FILENO) == 1;
}

std::string ReadStandardInput() {
    return ReadToEnd(STDIN_FILENO, "standard input");
}

std::string ReadInputFile(const std::string& path) {
    if (!IsSpecialFile(path)) return platform::ReadWholeFile(path);
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        throw CommandError(ExitStatus::NotRun, "Cannot read " + path + ": " + SystemWords(errno));
    }
    struct Closer {
        int descriptor;
        ~Closer() { ::close(descriptor); }
    } const closer{descriptor};
    return ReadToEnd(descriptor, path);
}

std::optional<std::string> Environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return value;
}

bool IsSpecialFile(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    return !error && std::filesystem::is_other(status);
}

Descriptor::Descriptor() : descriptor_(STDOUT_FILENO), name_("standard output") {}

Descriptor::Descriptor(const std::string& path)
    : descriptor_(::open(path.c_str(), O_WRONLY | O_CLOEXEC)), name_(path) {
    if (descriptor_ < 0) {
        throw CommandError(ExitStatus::NotRun, "Cannot write " + path + ": " + SystemWords(errno));
    }
}

Descriptor::~Descriptor() {
    if (descriptor_ != STDOUT_FILENO) ::close(descriptor_);
}

void Descriptor::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(descriptor_, bytes.data(), bytes.size());
        if (count >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EPIPE) {
            throw BrokenPipe{};
        } else if (errno != EINTR) {
            throw CommandError(ExitStatus::Failed, "Cannot write " + name_ + ": " + SystemWords(errno));
        }
    }
}

}  // namespace halvtiv::cli
