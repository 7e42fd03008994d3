#include <algorithm>

#include "ado/provider.hpp"

namespace halvtiv::ado {

std::string_view ReadWholeValue(RowSource& row, std::int32_t column, std::string& buffer) {
    buffer.resize(static_cast<std::size_t>(std::max<std::int64_t>(row.Size(column), 0)));
    const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(buffer.data()), buffer.size());
    std::size_t filled = 0;
    while (filled < bytes.size()) {
        const auto count = row.Read(column, static_cast<std::int64_t>(filled), bytes.subspan(filled));
        if (count == 0) break;
        filled += count;
    }
    buffer.resize(filled);
    return buffer;
}

}  // namespace halvtiv::ado
