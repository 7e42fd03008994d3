#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "ado/provider.hpp"
#include "platform/spool_file.hpp"

namespace halvtiv::ado {

/// Bytes that come in pieces, of a length that nobody has told: in memory up to a bound, then in a temporary
/// file.
class SpooledBytes final : public ByteSource {
public:
    void Append(std::span<const std::uint8_t> bytes);

    std::int64_t Size() override;
    void Read(std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    static constexpr std::size_t kMemoryBound = std::size_t{4} << 20;

    std::string memory_;
    std::optional<platform::SpoolFile> file_;  // what comes behind those in memory
};

}  // namespace halvtiv::ado
