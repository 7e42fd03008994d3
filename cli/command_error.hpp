#pragma once

#include <exception>
#include <string>
#include <utility>

namespace halvtiv::cli {

/// The exit statuses of the command.
enum class ExitStatus : int {
    Done = 0,
    Failed = 1,        ///< something ran and failed, or its outcome could not be written
    NotRun = 2,        ///< nothing was run
    Interrupted = 130  ///< Ctrl-C cancelled what ran; the number is the one that shells know
};

/// Ends the command with a message on standard error.
class CommandError : public std::exception {
public:
    CommandError(ExitStatus status, std::string message) : status_(status), message_(std::move(message)) {}

    ExitStatus Status() const noexcept { return status_; }
    const char* what() const noexcept override { return message_.c_str(); }

private:
    ExitStatus status_;
    std::string message_;
};

/// Nobody reads the output any more: the command ends without a word.
struct BrokenPipe {};

}  // namespace halvtiv::cli
