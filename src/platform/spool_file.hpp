#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace halvtiv::platform {

/// A nameless temporary file, gone when the object is: written at its end, read anywhere.
class SpoolFile {
public:
    SpoolFile();
    ~SpoolFile();
    SpoolFile(const SpoolFile&) = delete;
    SpoolFile& operator=(const SpoolFile&) = delete;

    void Append(std::string_view bytes);
    /// Fills `bytes` from `offset` on; raises 57 when the file does not reach that far.
    void Read(std::uint64_t offset, char* bytes, std::size_t count);
    std::uint64_t Size() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvtiv::platform
