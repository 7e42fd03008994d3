#include "platform/descriptor.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/files.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::optional<struct stat> StatusOf(const std::string& path) noexcept {
    struct stat status;
    if (::stat(path.c_str(), &status) != 0) return std::nullopt;
    return status;
}

bool IsSameFile(const struct stat& one, const struct stat& other) noexcept {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino;
}

bool IsFolder(const std::string& path) noexcept {
    const auto status = StatusOf(path);
    return status && S_ISDIR(status->st_mode);
}

bool IsInProc(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> folder(::realpath(FolderOf(path).c_str(), nullptr),
                                                             &std::free);
    if (!folder && errno == ENOMEM) throw std::bad_alloc();
    return folder && std::string_view(folder.get()).starts_with("/proc/");
}

std::string FollowLinks(std::string path) {
    constexpr int kMostLinks = 40;
    for (int links = 0; !IsInProc(path); ++links) {
        struct stat link, folder;
        if (::lstat(path.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) break;
        if (links == kMostLinks) RaiseFileError(ELOOP, path);
        const bool isOwn = link.st_uid == ::geteuid();
        constexpr mode_t kShared = S_ISVTX | S_IWOTH;
        if (!isOwn && ::stat(FolderOf(path).c_str(), &folder) == 0 && (folder.st_mode & kShared) == kShared &&
            folder.st_uid != link.st_uid) {
            RaiseFileError(EACCES, path);
        }
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) RaiseFileError(errno, path);
        const std::string_view next(target, static_cast<std::size_t>(length));
        if (next.starts_with('/')) {
            path = next;
        } else {
            path = FolderOf(path).append("/").append(next);
        }
    }
    return path;
}

void RaiseFileError(int error, const std::string& path) {
    RunTimeError raised = FileErrorFromErrno(error);
    if (raised == RunTimeError::FileNotFound && (path.empty() || !IsFolder(FolderOf(path)))) {
        raised = RunTimeError::PathNotFound;
    }
    RaiseRunTimeError(raised, path);
}

std::string CheckedPath(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) RaiseRunTimeError(RunTimeError::PathAccess);
    return NativePath(path);
}

Descriptor TryOpen(const std::string& path, int flags, mode_t mode) noexcept {
    int number = -1;
    do {
        number = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    } while (number < 0 && errno == EINTR);
    return Descriptor(number);
}

Descriptor OpenFile(const std::string& path, int flags) {
    Descriptor file = TryOpen(path, flags);
    if (!file.IsOpen()) RaiseFileError(errno, path);
    return file;
}

ssize_t ReadSome(int file, char* bytes, std::size_t count) noexcept {
    ssize_t got = 0;
    do {
        got = ::read(file, bytes, count);
    } while (got < 0 && errno == EINTR);
    return got;
}

void ReadAt(int file, std::uint64_t offset, char* bytes, std::size_t count, const std::string& name) {
    while (count > 0) {
        const ssize_t got = ::pread(file, bytes, count, static_cast<off_t>(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) RaiseRunTimeError(RunTimeError::DeviceIo, name);
        bytes += got;
        offset += static_cast<std::uint64_t>(got);
        count -= static_cast<std::size_t>(got);
    }
}

bool WriteAll(int file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

}  // namespace halvtiv::platform
