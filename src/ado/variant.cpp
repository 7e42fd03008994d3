#include <type_traits>

#include <halvtiv/ado.hpp>

#include "platform/date_time.hpp"
#include "platform/number.hpp"

namespace halvtiv::ado {

std::string Variant::Text() const {
    return std::visit(
        [](const auto& value) -> std::string {
            using Kind = std::decay_t<decltype(value)>;
            if constexpr (std::is_same_v<Kind, std::monostate>) {
                return {};
            } else if constexpr (std::is_same_v<Kind, bool>) {
                return value ? "True" : "False";
            } else if constexpr (std::is_same_v<Kind, std::int64_t>) {
                char buffer[platform::kNumberTextSize];
                return std::string(platform::IntegerText(value, buffer));
            } else if constexpr (std::is_same_v<Kind, double>) {
                char buffer[platform::kNumberTextSize];
                return std::string(platform::DoubleText(value, buffer));
            } else if constexpr (std::is_same_v<Kind, Decimal>) {
                return value.Digits;
            } else if constexpr (std::is_same_v<Kind, DateTime>) {
                char buffer[platform::kDateTimeTextSize];
                return std::string(platform::DateTimeText(value, buffer));
            } else {
                return std::string(value.begin(), value.end());
            }
        },
        value_);
}

}  // namespace halvtiv::ado
