#pragma once

#include <string>
#include <string_view>

namespace halvtiv::platform {

// The standard streams of a program that is a command. Failures raise `ErrorInfo` as those of files do.

/// To be called first: a closed pipe becomes an error of writing instead of a signal, and standard streams
/// that the program was started without are taken, so that no file opened later is mistaken for one of them.
void PrepareStandardStreams() noexcept;

/// Whether standard output is a terminal.
bool OutputIsTerminal() noexcept;

/// Whether standard error is a terminal.
bool ErrorsAreOnTerminal() noexcept;

/// Everything on standard input, to its end.
std::string ReadStandardInput();

/// Writes all bytes to standard output. False when it is a pipe that nobody reads any more.
[[nodiscard]] bool WriteStandardOutput(std::string_view bytes);

}  // namespace halvtiv::platform
