#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace halvtiv::platform {

// What the files of this folder share of the system's calls. Nothing outside it includes this. Paths are
// `CheckedPath`s.

/// How much is read and written at a time.
inline constexpr std::size_t kFileBufferSize = 64 * 1024;

/// The system's number of an open file, closed with the object.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Descriptor() {
        if (number_ >= 0) ::close(number_);
    }

    int Get() const noexcept { return number_; }
    bool IsOpen() const noexcept { return number_ >= 0; }
    /// False, with `errno` set, when the system finds only now that something was not written.
    bool Close() noexcept { return ::close(std::exchange(number_, -1)) == 0; }

private:
    int number_ = -1;
};

/// The path for the system's calls, which would take a NUL for its end.
std::string CheckedPath(std::string_view path);
/// The folder that holds a path's last name.
std::string FolderOf(const std::string& path);
/// Empty, with `errno` set, if stat fails.
std::optional<struct stat> StatusOf(const std::string& path) noexcept;
/// Whether both are the status of one file.
bool IsSameFile(const struct stat& one, const struct stat& other) noexcept;
bool IsFolder(const std::string& path) noexcept;
/// Where a new file of that name has to be put: at the end of a chain of symbolic links, or at the first path
/// below /proc, which only the kernel can resolve. Raises an error for too many links, and for a link of
/// another user in a folder where everybody may write, as Linux does where it protects such links.
std::string FollowLinks(std::string path);
/// Whether the path lies in /proc.
bool IsInProc(const std::string& path);
/// Raises what an `errno` value says of a file.
[[noreturn]] void RaiseFileError(int error, const std::string& path);

/// Not open, with `errno` set, when it fails.
Descriptor TryOpen(const std::string& path, int flags, mode_t mode = 0666) noexcept;
Descriptor OpenFile(const std::string& path, int flags);
/// One read that interruptions do not end; -1 with `errno` set on failure.
ssize_t ReadSome(int file, char* bytes, std::size_t count) noexcept;
/// Fills `bytes` from an offset on; `name` is for messages.
void ReadAt(int file, std::uint64_t offset, char* bytes, std::size_t count, const std::string& name);
/// False, with `errno` set, when not all could be written.
bool WriteAll(int file, std::string_view bytes) noexcept;

}  // namespace halvtiv::platform
