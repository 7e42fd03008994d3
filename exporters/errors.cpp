#include "errors.hpp"

#include <cerrno>
#include <exception>
#include <new>
#include <utility>

namespace halvtiv::exporters {

namespace {

std::pair<ErrorNumber, const char*> FileError(int error) {
    switch (error) {
        case ENOENT:
            return {ErrorNumber::FileNotFound, "File not found."};
        case EACCES:
        case EPERM:
            return {ErrorNumber::PermissionDenied, "Permission denied."};
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return {ErrorNumber::DiskFull, "Disk full."};
        case ENOTDIR:
            return {ErrorNumber::PathNotFound, "Path not found."};
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
            return {ErrorNumber::PathAccess, "Path/File access error."};
        default:
            return {ErrorNumber::DeviceIo, "Device I/O error."};
    }
}

}  // namespace

void Raise(ErrorNumber number, std::string description) {
    throw ErrorInfo(static_cast<std::int32_t>(number), std::move(description), "HalvTiv");
}

void RaiseFileError(int error, std::string_view path) {
    const auto [number, words] = FileError(error);
    Raise(number, std::string(words).append(" (").append(path).append(")"));
}

ErrorInfo CurrentError() {
    constexpr auto kUnspecified = static_cast<std::int32_t>(ErrorNumber::Unspecified);
    try {
        throw;
    } catch (const ErrorInfo& error) {
        return error;
    } catch (const std::bad_alloc&) {
        return ErrorInfo(static_cast<std::int32_t>(ErrorNumber::OutOfMemory), "Out of memory.", "HalvTiv");
    } catch (const std::exception& error) {
        return ErrorInfo(kUnspecified, error.what(), "HalvTiv");
    } catch (...) {
        return ErrorInfo(kUnspecified, "Unexpected error.", "HalvTiv");
    }
}

}  // namespace halvtiv::exporters
