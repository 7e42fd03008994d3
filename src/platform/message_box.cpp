#include "platform/message_box.hpp"

#include <iostream>

namespace halvtiv::platform {

void ShowMessage(std::string_view title, std::string_view text) {
    std::cerr << title << ": " << text << '\n' << std::flush;
}

}  // namespace halvtiv::platform
