#include "ado/access_file.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/files.hpp"

namespace halvtiv::ado {

bool IsAccessFile(std::string_view path) {
    constexpr std::string_view kMark("\0\1\0\0Standard ", 13);
    if (path.find('\0') != std::string_view::npos || !platform::FileExists(path)) return false;
    const auto name = platform::NativePath(path);
    std::ifstream file(std::filesystem::path(std::u8string(name.begin(), name.end())), std::ios::binary);
    std::array<char, 19> front{};
    if (!file.read(front.data(), front.size())) return false;
    const std::string_view bytes(front.data(), front.size());
    return bytes.starts_with(kMark) && (bytes.ends_with("Jet DB") || bytes.ends_with("ACE DB"));
}

}  // namespace halvtiv::ado
