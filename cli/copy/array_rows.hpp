#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "copy/catalogue.hpp"

namespace halvtiv::cli::copy {

/// Rows as PostgreSQL takes them fastest: an array for each column, which is one literal for its parser
/// instead of one a value.
class ArrayRows {
public:
    /// Whether every column's values can go this way.
    static bool CanCarry(const std::vector<const Column*>& columns);

    explicit ArrayRows(const std::vector<const Column*>& columns);

    /// Appends a value to a column. Raises `ErrorInfo` for a text with a NUL character.
    void Add(std::size_t column, std::string_view value);
    void AddNull(std::size_t column);

    std::size_t Bytes() const { return bytes_; }
    /// The query that gives the rows, without them from then on.
    std::string TakeQuery();

private:
    struct Array {
        Kind kind = Kind::Text;
        std::string type;  ///< of its elements
        std::string cast;  ///< "::json" where a text does not become the column's type by itself
        std::string values;
    };
    std::string& Next(std::size_t column);

    std::vector<Array> arrays_;
    std::size_t bytes_ = 0;
};

}  // namespace halvtiv::cli::copy
