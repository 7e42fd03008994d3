#pragma once

#include <cstdint>
#include <string>

#include <halvtiv/ado.hpp>

#include "ado/provider.hpp"

namespace halvtiv::ado {

/// A cell's value with a text of its own.
struct OwnedCell {
    CellKind kind = CellKind::Null;
    std::int64_t integer = 0;
    double number = 0;
    std::string text;

    CellValue View() const noexcept { return {kind, integer, number, text}; }
};

/// What a column of that type holds for a value: texts are read as the type's own, numbers rounded half to
/// even where the column holds integers. Raises -2146824867 where there is no such value.
OwnedCell CellForColumn(const Variant& value, std::int32_t type);

/// A number as it is. Raises -2146824867 for any other value.
OwnedCell NumberCell(const Variant& value);

}  // namespace halvtiv::ado
