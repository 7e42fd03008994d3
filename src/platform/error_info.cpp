#include <utility>

#include <halvtiv/error_info.hpp>

namespace halvtiv {

ErrorInfo::ErrorInfo(std::int32_t number, std::string description, std::string source)
    : Number(number), Description(std::move(description)), Source(std::move(source)) {}

// Defined here so that the type's run-time information stands in one place: in the library.
ErrorInfo::~ErrorInfo() = default;

const char* ErrorInfo::what() const noexcept {
    return Description.c_str();
}

}  // namespace halvtiv
