#include "platform/run_time_error.hpp"

#include <cerrno>
#include <string>
#include <utility>

#include "platform/keywords.hpp"

namespace halvtiv::platform {

std::string_view RunTimeErrorText(RunTimeError error) noexcept {
    switch (error) {
        case RunTimeError::InvalidArgument:
            return "Invalid procedure call or argument.";
        case RunTimeError::Overflow:
            return "Overflow.";
        case RunTimeError::OutOfMemory:
            return "Out of memory.";
        case RunTimeError::SubscriptOutOfRange:
            return "Subscript out of range.";
        case RunTimeError::TypeMismatch:
            return "Type mismatch.";
        case RunTimeError::FileNotFound:
            return "File not found.";
        case RunTimeError::DeviceIo:
            return "Device I/O error.";
        case RunTimeError::DiskFull:
            return "Disk full.";
        case RunTimeError::PermissionDenied:
            return "Permission denied.";
        case RunTimeError::PathAccess:
            return "Path/File access error.";
        case RunTimeError::PathNotFound:
            return "Path not found.";
        case RunTimeError::ObjectNotSet:
            return "Object variable or With block variable not set.";
        case RunTimeError::DuplicateKey:
            return "This key is already associated with an element of this collection.";
    }
    return "Unknown error.";
}

ErrorInfo MakeRunTimeError(RunTimeError error, std::string_view concerns) {
    std::string description(RunTimeErrorText(error));
    if (!concerns.empty()) description.append(" (").append(Shown(concerns)).append(")");
    return ErrorInfo(static_cast<std::int32_t>(error), std::move(description), "HalvTiv");
}

void RaiseRunTimeError(RunTimeError error, std::string_view concerns) {
    throw MakeRunTimeError(error, concerns);
}

RunTimeError FileErrorFromErrno(int error) noexcept {
    switch (error) {
        case ENOENT:
            return RunTimeError::FileNotFound;
        case EACCES:
        case EPERM:
            return RunTimeError::PermissionDenied;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return RunTimeError::DiskFull;
        case ENOTDIR:
            return RunTimeError::PathNotFound;
        case EISDIR:
        case ELOOP:
        case ENAMETOOLONG:
        case EINVAL:
        case EILSEQ:
        case EEXIST:
        case EROFS:
        case EBUSY:
        case ETXTBSY:
        case EXDEV:
            return RunTimeError::PathAccess;
        default:
            return RunTimeError::DeviceIo;
    }
}

}  // namespace halvtiv::platform
