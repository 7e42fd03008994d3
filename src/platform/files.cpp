#include "platform/files.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <limits>
#include <optional>
#include <utility>

#include "platform/guid.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

// The system's number of an open file, closed with the object.
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

bool IsFolder(const std::string& path) noexcept {
    const auto status = StatusOf(path);
    return status && S_ISDIR(status->st_mode);
}

[[noreturn]] void RaiseFileError(int error, const std::string& path) {
    RunTimeError raised = FileErrorFromErrno(error);
    if (raised == RunTimeError::FileNotFound && (path.empty() || !IsFolder(FolderOf(path)))) {
        raised = RunTimeError::PathNotFound;
    }
    RaiseRunTimeError(raised, path);
}

// The path for the system's calls, which would take a NUL for its end.
std::string CheckedPath(std::string_view path) {
    if (path.find('\0') != std::string_view::npos) RaiseRunTimeError(RunTimeError::PathAccess);
    return NativePath(path);
}

Descriptor TryOpen(const std::string& path, int flags, mode_t mode = 0666) noexcept {
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

// One read that interruptions do not end; -1 with `errno` set on failure.
ssize_t ReadSome(int file, char* bytes, std::size_t count) noexcept {
    ssize_t got = 0;
    do {
        got = ::read(file, bytes, count);
    } while (got < 0 && errno == EINTR);
    return got;
}

// Fills `bytes` from an offset on; `name` is for messages.
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

// False, with `errno` set, when not all could be written.
bool WriteAll(int file, std::string_view bytes) noexcept {
    while (!bytes.empty()) {
        const ssize_t written = ::write(file, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Where a new file of that name has to be put: at the end of a chain of symbolic links.
std::string FollowLinks(std::string path) {
    constexpr int kMostLinks = 40;
    for (int links = 0;; ++links) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0) return path;
        if (links == kMostLinks) RaiseFileError(ELOOP, path);
        const std::string_view next(target, static_cast<std::size_t>(length));
        if (next.starts_with('/')) {
            path = next;
        } else {
            path = FolderOf(path).append("/").append(next);
        }
        // Names of files that are open already lead here; only the system can follow them further.
        if (path.starts_with("/proc/")) return path;
    }
}

std::string TemporaryName(const std::string& path) {
    constexpr std::size_t kLongest = 200;  // leaves room for the rest below the usual limit of 255
    const std::size_t slash = path.find_last_of('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    std::string name = path.substr(start, kLongest);
    if (start + name.size() < path.size()) {
        // Do not end in the middle of a character.
        while (!name.empty() && (name.back() & 0x80) != 0) name.pop_back();
    }
    const auto random = NewGuid();
    if (!random) RaiseRunTimeError(RunTimeError::DeviceIo, path);
    std::string unique;
    for (std::size_t at = 0; at < 6; ++at) unique += HexPadded((*random)[at], 2);
    return path.substr(0, start) + "." + name + "." + unique + ".tmp";
}

}  // namespace

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

bool IsSameFile(std::string_view path, std::string_view other) noexcept try {
    if (!FileExists(path) || StreamExists(path) || !FileExists(other)) return false;
    const auto one = StatusOf(NativePath(path));
    const auto two = StatusOf(NativePath(other));
    return one && two && one->st_dev == two->st_dev && one->st_ino == two->st_ino;
} catch (const std::bad_alloc&) {
    return false;
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
        if (size == content.size()) content.resize(std::max(kBufferSize, size * 2));
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

void CreateEmptyFile(std::string_view path) {
    const std::string native = CheckedPath(path);
    Descriptor file = OpenFile(native, O_WRONLY | O_CREAT | O_TRUNC);
    if (!file.Close()) RaiseFileError(errno, native);
}

void RemoveEmptyFile(std::string_view path) noexcept {
    const std::string native = NativePath(path);
    struct stat status {};
    const bool isEmptyFile =
        ::stat(native.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0;
    if (isEmptyFile) ::unlink(native.c_str());
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

struct OutputFile::Impl {
    std::string path;       // as the caller named it, for messages
    std::string target;     // where the complete file belongs
    std::string temporary;  // the name until then; empty when written straight to its target
    Descriptor file;
    std::string buffer;

    ~Impl() { Abandon(); }

    void Abandon() noexcept {
        file = Descriptor();
        if (!temporary.empty()) ::unlink(temporary.c_str());
        temporary.clear();
    }

    [[noreturn]] void Fail(int error) {
        Abandon();
        RaiseFileError(error, path);
    }

    void OpenStraight() {
        // Appending leaves alone what a redirected standard output holds already.
        file = OpenFile(target, O_WRONLY | O_APPEND);
    }

    void OpenTemporary(const std::optional<struct stat>& earlier) {
        // A file that may not be written is not to be replaced either.
        if (earlier && ::access(target.c_str(), W_OK) != 0) RaiseFileError(errno, path);
        const mode_t mode = earlier ? earlier->st_mode & 0777 : 0666;
        std::string name = TemporaryName(target);
        file = TryOpen(name, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (!file.IsOpen()) RaiseFileError(errno, path);
        temporary = std::move(name);
        if (earlier && ::fchmod(file.Get(), mode) != 0) Fail(errno);
    }

    void Flush() {
        if (!WriteAll(file.Get(), buffer)) Fail(errno);
        buffer.clear();
    }
};

OutputFile::OutputFile(std::string_view path) : impl_(std::make_unique<Impl>()) {
    impl_->path = CheckedPath(path);
    const auto earlier = StatusOf(impl_->path);
    if (impl_->path.empty()) RaiseFileError(ENOENT, impl_->path);
    if (impl_->path.back() == '/' || (earlier && S_ISDIR(earlier->st_mode)))
        RaiseFileError(EISDIR, impl_->path);

    impl_->target = impl_->path;
    if (earlier && !S_ISREG(earlier->st_mode)) {
        impl_->OpenStraight();
        return;
    }
    impl_->target = FollowLinks(impl_->path);
    if (impl_->target.starts_with("/proc/")) {
        impl_->OpenStraight();
    } else {
        impl_->OpenTemporary(earlier);
    }
}

OutputFile::~OutputFile() = default;

void OutputFile::Write(std::string_view bytes) {
    if (!impl_->file.IsOpen()) RaiseRunTimeError(RunTimeError::DeviceIo, impl_->path);
    if (impl_->buffer.size() + bytes.size() > kBufferSize) impl_->Flush();
    if (bytes.size() < kBufferSize) {
        impl_->buffer.append(bytes);
    } else if (!WriteAll(impl_->file.Get(), bytes)) {
        impl_->Fail(errno);
    }
}

void OutputFile::Commit() {
    if (!impl_->file.IsOpen()) RaiseRunTimeError(RunTimeError::DeviceIo, impl_->path);
    impl_->Flush();
    if (!impl_->file.Close()) impl_->Fail(errno);
    if (impl_->temporary.empty()) return;
    if (::rename(impl_->temporary.c_str(), impl_->target.c_str()) != 0) impl_->Fail(errno);
    impl_->temporary.clear();
}

struct SpoolFile::Impl {
    Descriptor file;
    std::uint64_t written = 0;  // bytes in the file; those of `buffer` come after them
    std::string buffer;

    void Flush() {
        if (!WriteAll(file.Get(), buffer)) {
            const int error = errno;
            // What went out in part is written again by the next attempt.
            const bool back = ::lseek(file.Get(), static_cast<off_t>(written), SEEK_SET) >= 0;
            RaiseRunTimeError(FileErrorFromErrno(back ? error : EIO), "temporary file");
        }
        written += buffer.size();
        buffer.clear();
    }
};

SpoolFile::SpoolFile() : impl_(std::make_unique<Impl>()) {
    const char* folder = std::getenv("TMPDIR");
    std::string name = folder != nullptr && *folder != '\0' ? folder : "/tmp";
    name += "/halvtiv.XXXXXX";
    impl_->file = Descriptor(::mkostemp(name.data(), O_CLOEXEC));
    if (!impl_->file.IsOpen()) RaiseFileError(errno, name);
    ::unlink(name.c_str());
}

SpoolFile::~SpoolFile() = default;

void SpoolFile::Append(std::string_view bytes) {
    if (impl_->buffer.size() + bytes.size() > kBufferSize && !impl_->buffer.empty()) impl_->Flush();
    impl_->buffer.append(bytes);
}

void SpoolFile::Read(std::uint64_t offset, char* bytes, std::size_t count) {
    const std::uint64_t size = Size();
    if (count > size || offset > size - count) RaiseRunTimeError(RunTimeError::DeviceIo, "temporary file");
    if (offset + count > impl_->written) impl_->Flush();
    ReadAt(impl_->file.Get(), offset, bytes, count, "temporary file");
}

std::uint64_t SpoolFile::Size() const noexcept {
    return impl_->written + impl_->buffer.size();
}

}  // namespace halvtiv::platform
