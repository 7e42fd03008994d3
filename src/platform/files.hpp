#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace halvtiv::platform {

// Paths are UTF-8; every "\" in them means the system's own separator. Failures raise `ErrorInfo` with
// run-time error 53, 57, 61, 70, 75 or 76, whose words name the path.

/// The path as this system opens it.
std::string NativePath(std::string_view path);

/// Whether a file, not a folder, stands at exactly that path.
bool FileExists(std::string_view path) noexcept;
/// Whether a folder stands at exactly that path.
bool FolderExists(std::string_view path) noexcept;
/// Whether something that only passes bytes on stands there: a pipe or a device.
bool StreamExists(std::string_view path) noexcept;
/// Whether writing to `path` writes or replaces `file`, which may be missing yet. Pipes and devices are not
/// files in this sense.
bool WouldReplace(std::string_view path, std::string_view file);

/// The whole content.
std::string ReadWholeFile(std::string_view path);

/// A file open for reading.
class InputFile {
public:
    explicit InputFile(std::string_view path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Its length in bytes as it was when it was opened; nothing for what has none, such as a pipe.
    std::optional<std::uint64_t> Size() const noexcept;
    /// Fills `bytes` from `offset` on; raises 57 when the file does not reach that far. For files with a
    /// size.
    void Read(std::uint64_t offset, char* bytes, std::size_t count);
    /// Reads on behind what has been read this way and returns how many bytes came; 0 at the end.
    std::size_t ReadNext(char* bytes, std::size_t count);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// Removes the file where no byte is in it; one that cannot be removed stays. Takes a native path, so that no
/// memory is needed.
void RemoveEmptyFile(const std::string& nativePath) noexcept;

/// The folder that holds this library's own file, without a separator at its end; "." where the system cannot
/// tell.
std::string LibraryFolder();

}  // namespace halvtiv::platform
