#include "ado/postgresql/postgresql_types.hpp"

#include <algorithm>
#include <array>
#include <charconv>

#include <halvtiv/ado.hpp>

namespace halvtiv::ado {
namespace {

using Form = PostgresqlForm;

// The most that a field holds, less its own head.
constexpr std::int64_t kUnbounded = (std::int64_t{1} << 30) - 5;
// Type modifiers of texts count from here.
constexpr int kModifierBase = 4;

struct KnownType {
    Oid oid;  // the server's number, the same in every database
    std::int32_t type;
    std::int64_t size;
    Form form = Form::Plain;
};

constexpr std::array<KnownType, 19> kKnownTypes{{{16, adBoolean, 2, Form::Boolean},
                                                 {17, adLongVarBinary, kUnbounded, Form::Binary},
                                                 {18, adWChar, 1},
                                                 {19, adVarWChar, 63},
                                                 {20, adBigInt, 8},
                                                 {21, adSmallInt, 2},
                                                 {23, adInteger, 4},
                                                 {26, adBigInt, 8},
                                                 {700, adSingle, 4, Form::Floating},
                                                 {701, adDouble, 8, Form::Floating},
                                                 {790, adCurrency, 8, Form::Money},
                                                 {1042, adWChar, kUnbounded},
                                                 {1043, adVarWChar, kUnbounded},
                                                 {1082, adDBDate, 6},
                                                 {1083, adDBTime, 6},
                                                 {1114, adDBTimeStamp, 16},
                                                 {1184, adDBTimeStamp, 16, Form::Moment},
                                                 {1700, adNumeric, 19},
                                                 {2950, adGUID, 16, Form::Guid}}};

// Texts, lists, documents, addresses and what else there may be go out as the text they are.
constexpr KnownType kAnyOther{0, adVarWChar, kUnbounded};

const KnownType& TypeOf(Oid oid) {
    const auto* const found = std::lower_bound(kKnownTypes.begin(), kKnownTypes.end(), oid,
                                               [](const KnownType& type, Oid o) { return type.oid < o; });
    return found != kKnownTypes.end() && found->oid == oid ? *found : kAnyOther;
}

// Left to itself the server writes an exponent earlier than the fixed format does.
std::string_view FloatingText(std::string_view raw, CellBuffer& buffer) {
    if (raw.find('e') == std::string_view::npos) return raw;
    double value = 0;
    const auto [end, error] = std::from_chars(raw.data(), raw.data() + raw.size(), value);
    if (error != std::errc{} || end != raw.data() + raw.size()) return raw;
    return platform::DoubleText(value, buffer.number);
}

// As "-$1,234.50" comes, in the language-less form that the session asks for.
std::string_view MoneyText(std::string_view raw, CellBuffer& buffer) {
    char* out = buffer.number;
    for (const char c : raw) {
        if (c == '$' || c == ',') continue;
        if (out == buffer.number + sizeof buffer.number) return raw;
        *out++ = c;
    }
    return {buffer.number, static_cast<std::size_t>(out - buffer.number)};
}

constexpr int HexValue(char digit) noexcept {
    return digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10;
}

}  // namespace

PostgresqlColumn ColumnOf(const PGresult* result, int column) {
    const auto oid = PQftype(result, column);
    return {oid, TypeOf(oid).form, -1};
}

ColumnInfo InfoOf(const PGresult* result, int column) {
    const auto& known = TypeOf(PQftype(result, column));
    ColumnInfo info;
    info.name = PQfname(result, column);
    info.type = known.type;
    info.definedSize = known.size;
    const bool isText = known.type == adWChar || known.type == adVarWChar;
    const int modifier = PQfmod(result, column);
    if (isText && known.size == kUnbounded && known.oid != 0 && modifier > kModifierBase) {
        info.definedSize = modifier - kModifierBase;
    }
    info.attributes = adFldMayBeNull | adFldIsNullable | AttributesOfType(known.type);
    if (PQftable(result, column) != 0) info.attributes |= adFldUpdatable;
    return info;
}

std::string_view PostgresqlText(std::string_view raw, PostgresqlForm form, CellBuffer& buffer,
                                std::string& wholeValue) {
    if (raw.empty()) return {};
    switch (form) {
        case Form::Plain:
            return raw;
        case Form::Boolean:
            return raw == "t" ? "True" : "False";
        case Form::Floating:
            return FloatingText(raw, buffer);
        case Form::Money:
            return MoneyText(raw, buffer);
        case Form::Guid:
            return CellTextOfText(raw, adGUID, buffer);
        case Form::Moment:
            if (raw.ends_with("+00")) raw.remove_suffix(3);
            return raw;
        case Form::Binary:
            break;
    }
    wholeValue.resize(static_cast<std::size_t>(SizeOfHex(raw)));
    ReadHex(raw, 0, {reinterpret_cast<std::uint8_t*>(wholeValue.data()), wholeValue.size()});
    return wholeValue;
}

std::int64_t SizeOfHex(std::string_view hex) noexcept {
    constexpr std::size_t kMark = 2;
    return hex.size() < kMark ? 0 : static_cast<std::int64_t>((hex.size() - kMark) / 2);
}

std::size_t ReadHex(std::string_view hex, std::int64_t offset, std::span<std::uint8_t> piece) {
    const auto left = SizeOfHex(hex) - offset;
    if (offset < 0 || left <= 0) return 0;
    const auto count = std::min(piece.size(), static_cast<std::size_t>(left));
    const char* digits = hex.data() + 2 + 2 * offset;
    for (std::size_t i = 0; i < count; ++i, digits += 2) {
        piece[i] = static_cast<std::uint8_t>(HexValue(digits[0]) << 4 | HexValue(digits[1]));
    }
    return count;
}

}  // namespace halvtiv::ado
