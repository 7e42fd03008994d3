#include "errors.hpp"

#include <exception>
#include <new>
#include <utility>

namespace halvtiv::exporters {

void Raise(ErrorNumber number, std::string description) {
    throw ErrorInfo(static_cast<std::int32_t>(number), std::move(description), "HalvTiv");
}

void RaisePathAccess(std::string_view path) {
    Raise(ErrorNumber::PathAccess, "Path/File access error. (" + std::string(path) + ")");
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
