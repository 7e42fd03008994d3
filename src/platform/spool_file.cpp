#include "platform/spool_file.hpp"

#include <cerrno>
#include <cstdlib>
#include <string>

#include "platform/descriptor.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::platform {

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
    if (impl_->buffer.size() + bytes.size() > kFileBufferSize && !impl_->buffer.empty()) impl_->Flush();
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
