#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// A literal that a shape leaves out. It refers to the statement's text.
struct ShapeLiteral {
    enum class Kind : std::uint8_t {
        Text,
        Integer,
        Decimal,  ///< has a decimal point: 1.50
        Float     ///< has an exponent: 1e3
    };
    Kind kind = Kind::Text;
    std::string_view text;     ///< as it is written, with quotes or with its sign
    std::size_t position = 0;  ///< in the statement

    /// The value as text: without quotes, doubled ones undone.
    std::string Value() const;
};

/// What statements that differ in literals alone have in common.
struct Shape {
    std::string text;  ///< the statement with a parameter marker in the place of each literal
    std::vector<ShapeLiteral> literals;  ///< in the order of their markers
};

/// Lifts the literals that stand where a parameter of the same type means exactly the same. Nothing where
/// there are none, where the statement is not a single SELECT, INSERT, UPDATE, DELETE, REPLACE or WITH
/// statement, and where it has parameter markers of its own. NULL is never lifted.
std::optional<Shape> ReadShape(std::string_view statement, Dialect dialect);

}  // namespace halvtiv::sql
