#include "platform/files.hpp"

#include <dlfcn.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <optional>
#include <utility>

#include "platform/descriptor.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

std::string NativePath(std::string_view path) {
    std::string native(path);
    std::replace(native.begin(), native.end(), '\\', '/');
    return native;
}

bool FileExists(std::string_view path) noexcept try {
    if (path.find('\0') != std::string_view::npos) return false;
    const auto status = StatusOf(NativePath(path));
    return status && !S_ISDIR(status->st_mode);
} catch (const std::bad_alloc&) {
    return false;
}

bool FolderExists(std::string_view path) noexcept try {
    return path.find('\0') == std::string_view::npos && IsFolder(NativePath(path));
} catch (const std::bad_alloc&) {
    return false;
}

bool StreamExists(std::string_view path) noexcept try {
    if (path.find('\0') != std::string_view::npos) return false;
    const auto status = StatusOf(NativePath(path));
    return status && !S_ISREG(status->st_mode) && !S_ISDIR(status->st_mode);
} catch (const std::bad_alloc&) {
    return false;
}

bool WouldReplace(std::string_view path, std::string_view file) try {
    const auto isSame = [](const std::string& one, const std::string& other) {
        const auto left = StatusOf(one);
        const auto right = StatusOf(other);
        return left && right && IsSameFile(*left, *right);
    };
    const std::string written = CheckedPath(path);
    const std::string kept = CheckedPath(file);
    if (written.empty() || kept.empty()) return false;
    if (const auto status = StatusOf(written)) return S_ISREG(status->st_mode) && isSame(written, kept);
    const std::string from = FollowLinks(written);
    const std::string to = FollowLinks(kept);
    const auto nameOf = [](const std::string& whole) { return whole.substr(whole.find_last_of('/') + 1); };
    return nameOf(from) == nameOf(to) && isSame(FolderOf(from), FolderOf(to));
} catch (const ErrorInfo&) {
    return false;  // a path that cannot be written
}

std::string ReadWholeFile(std::string_view path) {
    const std::string native = CheckedPath(path);
    const Descriptor file = OpenFile(native, O_RDONLY);
    std::string content;
    struct stat status;
    if (::fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode)) {
        if (std::cmp_greater_equal(status.st_size, content.max_size())) {
            RaiseRunTimeError(RunTimeError::OutOfMemory, native);
        }
        // One more byte, so that the last read finds the end without growing the string.
        content.resize(static_cast<std::size_t>(status.st_size) + 1);
    }
    std::size_t size = 0;
    for (;;) {
        if (size == content.size()) content.resize(std::max(kFileBufferSize, size * 2));
        const ssize_t got = ReadSome(file.Get(), content.data() + size, content.size() - size);
        if (got < 0) RaiseFileError(errno, native);
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
    }
    content.resize(size);
    return content;
}

struct InputFile::Impl {
    std::string path;
    Descriptor file;
    std::optional<std::uint64_t> size;
};

InputFile::InputFile(std::string_view path) : impl_(std::make_unique<Impl>()) {
    impl_->path = CheckedPath(path);
    impl_->file = OpenFile(impl_->path, O_RDONLY);
    struct stat status;
    if (::fstat(impl_->file.Get(), &status) != 0) RaiseFileError(errno, impl_->path);
    if (S_ISDIR(status.st_mode)) RaiseFileError(EISDIR, impl_->path);
    if (S_ISREG(status.st_mode)) impl_->size = static_cast<std::uint64_t>(status.st_size);
}

InputFile::~InputFile() = default;

std::optional<std::uint64_t> InputFile::Size() const noexcept {
    return impl_->size;
}

void InputFile::Read(std::uint64_t offset, char* bytes, std::size_t count) {
    ReadAt(impl_->file.Get(), offset, bytes, count, impl_->path);
}

std::size_t InputFile::ReadNext(char* bytes, std::size_t count) {
    const ssize_t got = ReadSome(impl_->file.Get(), bytes, count);
    if (got < 0) RaiseFileError(errno, impl_->path);
    return static_cast<std::size_t>(got);
}

void RemoveEmptyFile(const std::string& nativePath) noexcept {
    struct stat status {};
    const bool isEmptyFile =
        ::stat(nativePath.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
    if (isEmptyFile) ::unlink(nativePath.c_str());
}

std::string LibraryFolder() {
    Dl_info info{};
    if (::dladdr(reinterpret_cast<const void*>(&LibraryFolder), &info) == 0 || info.dli_fname == nullptr)
        return ".";
    // A program that holds the library in itself may be known only by the name it was called with, and a
    // library loaded by a relative path is out of sight once the current folder has changed: then the
    // program's own counts.
    for (const std::string& file : {std::string(info.dli_fname), std::string("/proc/self/exe")}) {
        if (file.find('/') == std::string::npos) continue;
        const std::unique_ptr<char, decltype(&std::free)> real(::realpath(file.c_str(), nullptr), &std::free);
        if (real) return FolderOf(real.get());
    }
    return ".";
}

}  // namespace halvtiv::platform
