#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace halvtiv::cli {

// What the command asks of the operating system beyond the library's own platform layer.

/// To be called first: a closed pipe becomes an error of writing instead of a signal, and the three standard
/// descriptors are taken, so that no file opened later is mistaken for one of them.
void PrepareProcess();

/// Whether standard output is a terminal.
bool OutputIsTerminal();

/// Everything on standard input. Raises `CommandError` (not run) when it cannot be read.
std::string ReadStandardInput();

/// The whole content of a file; unlike a plain file, a pipe or device is read to its end. Raises `ErrorInfo`.
std::string ReadInputFile(const std::string& path);

/// The environment variable's value; nothing when it is missing or empty.
std::optional<std::string> Environment(const char* name);

/// Whether something other than a plain file or a folder stands at the path: a device, a pipe.
bool IsSpecialFile(const std::string& path);

/// An open descriptor to write to, closed by the object unless it is standard output.
class Descriptor {
public:
    /// Standard output.
    Descriptor();
    /// A device or pipe. Raises `CommandError` (not run) when it cannot be opened.
    explicit Descriptor(const std::string& path);
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    /// Raises `BrokenPipe`, or `CommandError` (failed) with the system's words.
    void Write(std::string_view bytes);

private:
    int descriptor_;
    std::string name_;
};

}  // namespace halvtiv::cli
