#include "platform/output_file.hpp"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "platform/descriptor.hpp"
#include "platform/guid.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

namespace {

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
    if (impl_->buffer.size() + bytes.size() > kFileBufferSize) impl_->Flush();
    if (bytes.size() < kFileBufferSize) {
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

}  // namespace halvtiv::platform
