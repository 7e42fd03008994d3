#include "source_columns.hpp"

#include <algorithm>
#include <set>

#include "utf8.hpp"

namespace halvtiv::exporters {

namespace {

ColumnKind KindOf(std::int32_t type) {
    switch (type) {
        case ado::adSmallInt:
        case ado::adInteger:
        case ado::adTinyInt:
        case ado::adUnsignedTinyInt:
        case ado::adUnsignedSmallInt:
        case ado::adUnsignedInt:
        case ado::adBigInt:
        case ado::adUnsignedBigInt:
            return ColumnKind::Integer;
        case ado::adSingle:
        case ado::adDouble:
            return ColumnKind::Double;
        case ado::adCurrency:
        case ado::adDecimal:
        case ado::adNumeric:
        case ado::adVarNumeric:
            return ColumnKind::Decimal;
        case ado::adBoolean:
            return ColumnKind::Boolean;
        case ado::adDate:
        case ado::adDBDate:
        case ado::adDBTime:
        case ado::adDBTimeStamp:
            return ColumnKind::DateTime;
        case ado::adBinary:
        case ado::adVarBinary:
        case ado::adLongVarBinary:
            return ColumnKind::Bytes;
        default:
            return ColumnKind::Text;
    }
}

}  // namespace

std::vector<SourceColumn> ColumnsOf(ado::Recordset& rows) {
    std::vector<SourceColumn> columns;
    ado::Fields& fields = rows.Fields();
    for (std::int32_t index = 0; index < fields.Count(); ++index) {
        const ado::FieldPtr field = fields.Item(index);
        columns.push_back({field, field->Name(), field->Type(), KindOf(field->Type())});
    }
    return columns;
}

std::string AsciiLower(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return lower;
}

std::vector<std::string> DistinctNames(const std::vector<SourceColumn>& columns, NameCase nameCase) {
    std::set<std::string> taken;
    const auto take = [&](const std::string& name) {
        return taken.insert(nameCase == NameCase::IsIgnored ? AsciiLower(name) : name).second;
    };
    std::vector<std::string> names;
    for (const SourceColumn& column : columns) {
        const std::string plain = RepairedUtf8(column.name);
        std::string name = plain;
        for (int number = 2; !take(name); ++number) name = plain + "#" + std::to_string(number);
        names.push_back(std::move(name));
    }
    return names;
}

std::size_t SignificantDigits(std::string_view number) {
    if (number.starts_with('-') || number.starts_with('+')) number.remove_prefix(1);
    std::size_t digits = 0;
    bool hasPoint = false;
    for (const char character : number) {
        if (character == '.' && !hasPoint) {
            hasPoint = true;
        } else if (character < '0' || character > '9') {
            return 0;
        } else if (digits > 0 || character != '0') {
            ++digits;
        }
    }
    const bool hasDigit = number.size() > (hasPoint ? 1U : 0U);
    return digits == 0 && hasDigit ? 1 : digits;
}

}  // namespace halvtiv::exporters
