#pragma once

#include <cstdint>

#include <halvtiv/ado.hpp>

namespace halvtiv::ado {

// What follows from a column's type alone, on every database.

/// Whether columns of this type hold bytes.
constexpr bool IsBytesType(std::int32_t type) noexcept {
    return type == adBinary || type == adVarBinary || type == adLongVarBinary;
}

/// Whether columns of this type hold numbers with exact digits.
constexpr bool IsDecimalType(std::int32_t type) noexcept {
    return type == adCurrency || type == adDecimal || type == adNumeric || type == adVarNumeric;
}

/// Whether columns of this type hold characters, long ones included.
constexpr bool IsTextType(std::int32_t type) noexcept {
    return type == adBSTR || type == adChar || type == adWChar || type == adVarChar || type == adVarWChar ||
           type == adLongVarChar || type == adLongVarWChar;
}

/// Whether columns of this type are read and written in pieces.
constexpr bool IsLongType(std::int32_t type) noexcept {
    return type == adLongVarBinary || type == adLongVarWChar || type == adLongVarChar;
}

/// Bits of `Field::Attributes`: fixed or long.
constexpr std::int32_t AttributesOfType(std::int32_t type) noexcept {
    if (IsLongType(type)) return adFldLong;
    return type == adVarChar || type == adVarWChar || type == adVarBinary ? 0 : adFldFixed;
}

/// What `Field::DefinedSize` says of a type whose values are all of one size; 0 for the others.
constexpr std::int64_t FixedSizeOf(std::int32_t type) noexcept {
    switch (type) {
        case adTinyInt:
        case adUnsignedTinyInt:
            return 1;
        case adSmallInt:
        case adUnsignedSmallInt:
        case adBoolean:
            return 2;
        case adInteger:
        case adUnsignedInt:
        case adSingle:
            return 4;
        case adBigInt:
        case adUnsignedBigInt:
        case adDouble:
        case adCurrency:
        case adDate:
            return 8;
        case adNumeric:
            return 19;
        case adDBDate:
        case adDBTime:
            return 6;
        case adDBTimeStamp:
        case adGUID:
            return 16;
        default:
            return 0;
    }
}

}  // namespace halvtiv::ado
