#include <halvtiv/output_file.hpp>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <ctime>
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

void RemoveIfStale(const std::string& path) noexcept {
    constexpr std::time_t kDay = 24 * 60 * 60;
    struct stat status;
    if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return;
    if (std::time(nullptr) - status.st_mtime > kDay) ::unlink(path.c_str());
}

struct Temporary {
    Descriptor file;
    std::string path;
};

// Not open, with `errno` set, when it fails. The names are few, so that what killed processes have left under
// them is found without reading the folder.
Temporary CreateTemporary(const std::string& target, mode_t mode) {
    constexpr int kNames = 4;
    const std::string prefix = TemporaryPrefix(target);
    Temporary made;
    const auto tryName = [&](const std::string& middle) {
        std::string path = prefix + middle + ".tmp";
        RemoveIfStale(path);
        if (made.file.IsOpen()) return;
        made.file = TryOpen(path, O_WRONLY | O_CREAT | O_EXCL, mode);
        if (made.file.IsOpen()) made.path = std::move(path);
    };
    for (int number = 1; number <= kNames; ++number) tryName(std::to_string(number));
    if (made.file.IsOpen() || errno != EEXIST) return made;
    const auto random = NewGuid();
    if (!random) RaiseRunTimeError(RunTimeError::DeviceIo, target);
    std::string unique;
    for (std::size_t at = 0; at < 6; ++at) unique += HexPadded((*random)[at], 2);
    tryName(unique);
    return made;
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
        file = Descriptor();
        if (!temporary.empty()) ::unlink(temporary.c_str());
        temporary.clear();
    }

    [[noreturn]] void Fail(int error) {
        Abandon();
        RaiseFileError(error, path);
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
            // The links may have changed since the system was asked what they lead to.
            const auto found = StatusOf(target);
            if (!found || found->st_dev != earlier->st_dev || found->st_ino != earlier->st_ino) {
                RaiseFileError(EACCES, path);
            }
            // A file that may not be written is not to be replaced either.
            if (::access(target.c_str(), W_OK) != 0) RaiseFileError(errno, path);
        }
        Temporary made = CreateTemporary(target, earlier ? kPrivate : 0666);
        if (!made.file.IsOpen()) RaiseFileError(errno, path);
        file = std::move(made.file);
        temporary = std::move(made.path);
        struct stat status;
        if (::fstat(file.Get(), &status) != 0) Fail(errno);
        mode = (earlier ? earlier->st_mode : status.st_mode) & 0777;
        if (::fchmod(file.Get(), kPrivate) != 0) Fail(errno);
    }

    void Flush() {
        if (!WriteAll(file.Get(), buffer)) Fail(errno);
        buffer.clear();
    }

    // Closes the file, whole.
    void Finish() {
        if (!file.IsOpen()) RaiseRunTimeError(RunTimeError::DeviceIo, path);
        Flush();
        if (!temporary.empty() && ::fchmod(file.Get(), mode) != 0) Fail(errno);
        if (!file.Close()) Fail(errno);
    }

    void Rename() {
        if (temporary.empty()) return;
        if (::rename(temporary.c_str(), target.c_str()) != 0) Fail(errno);
        temporary.clear();
    }
};

OutputFile::OutputFile(std::string_view path) : impl_(std::make_unique<Impl>()) {
    impl_->path = CheckedPath(path);
    const auto earlier = StatusOf(impl_->path);
    // What cannot be looked at is not a missing file: a link of somebody else may lead there.
    if (!earlier && errno != ENOENT) RaiseFileError(errno, impl_->path);
    if (impl_->path.empty()) RaiseFileError(ENOENT, impl_->path);
    if (impl_->path.back() == '/' || (earlier && S_ISDIR(earlier->st_mode)))
        RaiseFileError(EISDIR, impl_->path);

    impl_->target = FollowLinks(impl_->path);
    if (IsOfProcesses(impl_->target) || (earlier && !S_ISREG(earlier->st_mode))) {
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
    // Not every file system has such links; a file that is there is found by its name then.
    const bool isLinked = ::link(impl_->temporary.c_str(), impl_->target.c_str()) == 0;
    struct stat status;
    if (!isLinked && ::lstat(impl_->target.c_str(), &status) == 0) {
        impl_->Abandon();
        throw ErrorInfo(static_cast<std::int32_t>(RunTimeError::PathAccess),
                        "Somebody else has made the file meanwhile. (" + impl_->path + ")", "HalvTiv");
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
