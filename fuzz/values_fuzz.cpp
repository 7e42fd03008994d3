// Texts that are to be numbers, dates or connection strings.

#include <halvtiv/ado.hpp>
#include <halvtiv/error_info.hpp>

#include <string>

#include "ado/cell_text.hpp"
#include "ado/connection_parameters.hpp"
#include "platform/date_time.hpp"
#include "platform/number.hpp"
#include "property.hpp"

namespace halvtiv::fuzz {
namespace {

void ReadNumber(std::string_view text) {
    const auto number = platform::ParseNumber(text);
    if (number) {
        char buffer[platform::kNumberTextSize];
        const auto written = platform::DoubleText(*number, buffer);
        Require(platform::ParseNumber(written) == number, "a number changes when it is written");
    }
    try {
        platform::TextToInt32(text);
        Require(number.has_value(), "no number became one");
    } catch (const ErrorInfo& error) {
        Require(error.Number == (number ? 6 : 13), "a number is refused for another reason");
    }
}

void ReadMoment(std::string_view text) {
    const auto parsed = platform::ParseDateTime(text);
    const bool isPlain = platform::IsPlainTimestamp(text);
    Require(parsed || !isPlain, "a plain moment is none");
    if (!parsed) return;
    char buffer[platform::kDateTimeTextSize];
    const std::string written(platform::DateTimeText(parsed->value, buffer));
    Require(!isPlain || written == text, "a plain moment is written otherwise");
    const auto again = platform::ParseDateTime(written);
    Require(again && platform::DateTimeText(again->value, buffer) == written,
            "a moment changes when it is written");
}

void ReadCell(std::string_view text) {
    for (std::int32_t type = 0; type < 210; ++type) {
        ado::CellBuffer buffer;
        const std::string cell(ado::CellTextOfText(text, type, buffer));
        Require(ado::CellTextOfText(cell, type, buffer) == cell, "a cell changes when it is read again");
        if (ado::IsBytesType(type)) continue;
        (void)ado::CellTextOfBytes(text, type, buffer);
        (void)ado::ValueOfCellText(cell, type);
    }
}

void ReadConnectionString(std::string_view text) {
    try {
        const ado::ConnectionParameters parameters(text);
        const auto without = parameters.TextWithout("password");
        const ado::ConnectionParameters rest(without);
        Require(!rest.Find("password"), "a password stays");
        for (const char* key : {"provider", "data source", "user id"}) {
            Require(rest.Find(key) == parameters.Find(key), "another value goes with the password");
        }
    } catch (const ErrorInfo& error) {
        Require(error.Number == -2147467259, "a connection string is refused for another reason");
    }
}

}  // namespace
}  // namespace halvtiv::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvtiv::fuzz;
    const auto text = TextOf(data, size);
    ReadNumber(text);
    ReadMoment(text);
    ReadCell(text);
    ReadConnectionString(text);
    return 0;
}
