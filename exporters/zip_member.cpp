#include "zip_member.hpp"

#include <algorithm>
#include <fstream>
#include <ios>

namespace halvtiv::exporters {

namespace {

std::uint64_t LittleEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (std::size_t at = bytes.size(); at-- > 0;) value = value << 8 | static_cast<unsigned char>(bytes[at]);
    return value;
}

}  // namespace

std::uint64_t ZipMemberSize(const std::string& path, std::string_view member) {
    // The directory stands at the end; of so few members it is short.
    constexpr std::streamoff kTail = std::streamoff{64} * 1024;
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    const std::streamoff size = file.tellg();
    const std::streamoff from = std::max<std::streamoff>(size - kTail, 0);
    std::string tail(static_cast<std::size_t>(std::max<std::streamoff>(size - from, 0)), '\0');
    if (!file.seekg(from) || !file.read(tail.data(), static_cast<std::streamsize>(tail.size()))) return 0;

    constexpr std::size_t kHeader = 46;
    for (std::size_t at = 0; (at = tail.find("PK\1\2", at)) != std::string::npos; ++at) {
        const std::string_view entry = std::string_view(tail).substr(at);
        if (entry.size() < kHeader || entry.substr(kHeader, member.size()) != member) continue;
        const std::uint64_t unpacked = LittleEndian(entry.substr(24, 4));
        // All ones: too large for this place, the size stands in the first extra field.
        if (unpacked != 0xFFFFFFFFU || entry.size() < kHeader + member.size() + 12) return unpacked;
        return LittleEndian(entry.substr(kHeader + member.size() + 4, 8));
    }
    return 0;
}

}  // namespace halvtiv::exporters
