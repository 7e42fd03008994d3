#include <halvtiv/output_file.hpp>

#include <sys/file.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <optional>
#include <utility>

#include "platform/descriptor.hpp"
#include "platform/guid.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

using namespace platform;

namespace {

// The first part of a temporary file's path.
std::string TemporaryPrefix(const std::string& path) {
    constexpr std::size_t kLongest = 200;  // leaves room for the rest below the usual limit of 255
    const std::size_t slash = path.find_last_of('/');
    const std::size_t start = slash == std::string::npos ? 0 : slash + 1;
    std::string name = path.substr(start, kLongest);
    if (start + name.size() < path.size()) {
        // Do not end in the middle of a character.
        while (!name.empty() && (name.back() & 0x80) != 0) name.pop_back();
    }
    return path.substr(0, start) + "." + name + ".";
}

// Whether the path names the open file.
bool IsNameOf(const std::string& path, const Descriptor& file) noexcept {
    struct stat named, opened;
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(file.Get(), &opened) == 0 &&
           IsSameFile(named, opened);
}

void RemoveIfStale(const std::string& path) noexcept {
    constexpr std::time_t kDay = 24 * 60 * 60;
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    if (std::time(nullptr) - status.st_mtime <= kDay) return;
    // The writer holds the lock, however old the file's time is.
    const Descriptor file = TryOpen(path, O_WRONLY | O_NOFOLLOW | O_NONBLOCK);
    if (file.IsOpen() && ::flock(file.Get(), LOCK_EX | LOCK_NB) == 0 && IsNameOf(path, file)) {
        ::unlink(path.c_str());
    }
}

// Removes stale files whose names begin with the prefix and go on with a random number.
void RemoveStaleWithRandomNames(const std::string& prefix) {
    constexpr std::string_view kEnd = ".tmp";
    const std::string folder = FolderOf(prefix);
    const std::string start = prefix.substr(prefix.find_last_of('/') + 1);
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(start) || !name.ends_with(kEnd) || name.size() < start.size() + kEnd.size()) {
            continue;
        }
        const auto middle =
            std::string_view(name).substr(start.size(), name.size() - start.size() - kEnd.size());
        const bool isRandom = middle.find_first_not_of("0123456789abcdefABCDEF-") == std::string_view::npos;
        if (isRandom) RemoveIfStale(entry->path().string());
    }
}

struct Temporary {
    Descriptor file;
    std::string path;
};

// Returns a closed descriptor and sets `errno` on failure. Uses a few fixed names: stale files are then found
// without listing the folder.
Temporary CreateTemporary(const std::string& target, mode_t mode) {
    const std::string prefix = TemporaryPrefix(target);
    std::array<std::string, 4> names;
    for (std::size_t at = 0; at < names.size(); ++at) {
        names[at] = prefix + std::to_string(at + 1) + ".tmp";
        RemoveIfStale(names[at]);
    }
    Temporary made;
    // Must not throw once the file is there: nobody would remove the file.
    const auto isTaken = [&](std::string& path) noexcept {
        made.file = TryOpen(path, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (made.file.IsOpen()) made.path = std::move(path);
        return !made.file.IsOpen() && errno == EEXIST;
    };
    if (!std::all_of(names.begin(), names.end(), isTaken)) return made;
    RemoveStaleWithRandomNames(prefix);
    const auto random = NewGuid();
    if (!random) RaiseRunTimeError(RunTimeError::DeviceIo, target);
    std::string unique = prefix;
    for (std::size_t at = 0; at < 6; ++at) unique += HexPadded((*random)[at], 2);
    unique += ".tmp";
    isTaken(unique);
    return made;
}

// Some file systems have no permissions.
bool SetPermissions(const Descriptor& file, mode_t mode) noexcept {
    return ::fchmod(file.Get(), mode) == 0 || errno == EPERM || errno == ENOTSUP || errno == ENOSYS;
}

// The number of this process's open file that a path names, such as "/dev/fd/3" or "/proc/self/fd/3".
std::optional<int> OpenFileNumber(const std::string& path) {
    const std::string name = path.substr(path.find_last_of('/') + 1);
    int number = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
    if (error != std::errc{} || end != name.data() + name.size()) return std::nullopt;
    const std::unique_ptr<char, decltype(&std::free)> folder(::realpath(FolderOf(path).c_str(), nullptr),
                                                             &std::free);
    const bool isOpenFiles =
        folder && folder.get() == "/proc/" + std::to_string(::getpid()) + "/fd" && number >= 0;
    return isOpenFiles ? std::optional(number) : std::nullopt;
}

}  // namespace

struct OutputFile::Impl {
    std::string path;       // as the caller named it, for messages
    std::string target;     // where the complete file belongs
    std::string temporary;  // the name until then; empty when written straight to its target
    Descriptor file;
    mode_t mode = 0;  // of the complete file
    std::string buffer;

    ~Impl() { Abandon(); }

    void Abandon() noexcept {
        if (!temporary.empty() && IsNameOf(temporary, file)) ::unlink(temporary.c_str());
        temporary.clear();
        file = Descriptor();
    }

    [[noreturn]] void Fail(int error) {
        Abandon();
        RaiseFileError(error, path);
    }

    [[noreturn]] void Fail(std::string_view reason) {
        Abandon();
        throw ErrorInfo(static_cast<std::int32_t>(RunTimeError::PathAccess),
                        std::string(reason) + " (" + path + ")", "HalvTiv");
    }

    void OpenStraight() {
        if (const auto number = OpenFileNumber(target)) {
            // Shares its position with whoever has opened it, so that neither overwrites the other's bytes.
            file = Descriptor(::fcntl(*number, F_DUPFD_CLOEXEC, 0));
            if (!file.IsOpen()) RaiseFileError(errno, path);
            ::lseek(file.Get(), 0, SEEK_END);
        } else {
            file = OpenFile(target, O_WRONLY | O_APPEND | O_NOCTTY);
        }
    }

    void OpenTemporary(const std::optional<struct stat>& earlier) {
        constexpr mode_t kPrivate = 0600;
        if (earlier) {
            // A symbolic link may have changed since the first stat.
            const auto found = StatusOf(target);
            if (!found || !IsSameFile(*found, *earlier)) RaiseFileError(EACCES, path);
            // A file that may not be written is not to be replaced either.
            if (::access(target.c_str(), W_OK) != 0) RaiseFileError(errno, path);
        }
        Temporary made = CreateTemporary(target, earlier ? kPrivate : 0666);
        if (!made.file.IsOpen()) RaiseFileError(errno, path);
        file = std::move(made.file);
        temporary = std::move(made.path);
        ::flock(file.Get(), LOCK_EX | LOCK_NB);  // not supported by every file system
        struct stat status;
        if (::fstat(file.Get(), &status) != 0) Fail(errno);
        mode = (earlier ? earlier->st_mode : status.st_mode) & 0777;
        if (!SetPermissions(file, kPrivate)) Fail(errno);
    }

    void Flush() {
        if (!WriteAll(file.Get(), buffer)) Fail(errno);
        buffer.clear();
    }

    // Flushes, sets the permissions and checks that the name is still the file's.
    void Finish() {
        if (!file.IsOpen()) RaiseRunTimeError(RunTimeError::DeviceIo, path);
        Flush();
        if (!temporary.empty() && !SetPermissions(file, mode)) Fail(errno);
        // Network file systems report failed writes at a close; the lock is kept until the rename.
        Descriptor duplicate(::fcntl(file.Get(), F_DUPFD_CLOEXEC, 0));
        if (!duplicate.IsOpen() || !duplicate.Close()) Fail(errno);
        if (!temporary.empty() && !IsNameOf(temporary, file)) {
            Fail("The temporary file has been replaced by another process.");
        }
    }

    void Rename() {
        if (!temporary.empty() && ::rename(temporary.c_str(), target.c_str()) != 0) Fail(errno);
        temporary.clear();
        file = Descriptor();
    }
};

OutputFile::OutputFile(std::string_view path) : impl_(std::make_unique<Impl>()) {
    impl_->path = CheckedPath(path);
    const auto earlier = StatusOf(impl_->path);
    // EACCES does not mean that the file is missing: the kernel also reports it for a protected symbolic
    // link.
    if (!earlier && errno != ENOENT) RaiseFileError(errno, impl_->path);
    if (impl_->path.empty()) RaiseFileError(ENOENT, impl_->path);
    if (impl_->path.back() == '/' || (earlier && S_ISDIR(earlier->st_mode)))
        RaiseFileError(EISDIR, impl_->path);

    impl_->target = FollowLinks(impl_->path);
    if (IsInProc(impl_->target) || (earlier && !S_ISREG(earlier->st_mode))) {
        impl_->OpenStraight();
    } else {
        impl_->OpenTemporary(earlier);
    }
}

OutputFile::~OutputFile() = default;

void OutputFile::Write(std::string_view bytes) {
    if (!impl_->file.IsOpen()) RaiseRunTimeError(RunTimeError::DeviceIo, impl_->path);
    if (impl_->buffer.size() + bytes.size() > kFileBufferSize) impl_->Flush();
    if (bytes.size() < kFileBufferSize) {
        impl_->buffer.append(bytes);
    } else if (!WriteAll(impl_->file.Get(), bytes)) {
        impl_->Fail(errno);
    }
}

void OutputFile::Commit() {
    impl_->Finish();
    impl_->Rename();
}

void OutputFile::CommitAsNew() {
    impl_->Finish();
    // Some file systems have no hard links; then test for an existing target with lstat.
    const bool isLinked = ::link(impl_->temporary.c_str(), impl_->target.c_str()) == 0;
    struct stat status;
    if (!isLinked && ::lstat(impl_->target.c_str(), &status) == 0) {
        impl_->Fail("The file has been created by another process in the meantime.");
    }
    if (isLinked) {
        impl_->Abandon();
    } else {
        impl_->Rename();
    }
}

const std::string& OutputFile::Path() const noexcept {
    return impl_->path;
}
const std::string& OutputFile::TargetPath() const noexcept {
    return impl_->target;
}
const std::string& OutputFile::TemporaryPath() const noexcept {
    return impl_->temporary;
}

}  // namespace halvtiv
