#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "copy/column_type.hpp"
#include "copy/table_reader.hpp"

namespace halvtiv::cli::copy {

/// Values of one column are compared as this kind on both sides.
struct ComparedColumn {
    Kind kind = Kind::Text;
    bool ignoresBlanks = false;  ///< at the end: one side fills with them
};

/// Appends a value, not null, in a form that it has on every database: 1 for True, 1.5 for 1.50, a moment
/// without a fraction that is nought. A value that its kind does not allow stays as it is.
void AppendCanonical(std::string& text, const ComparedColumn& column, std::string_view value);

/// Rows of a table as a number that does not depend on their order.
class RowSum {
public:
    explicit RowSum(std::vector<ComparedColumn> columns)
        : columns_(std::move(columns)), columnSums_(columns_.size()) {}

    /// Returns about how many bytes the row has.
    std::size_t Add(const std::vector<SourceCell>& cells);

    std::int64_t Rows() const { return rows_; }
    /// Positions of columns whose values are not the same on the whole.
    std::vector<std::size_t> DifferingColumns(const RowSum& other) const;
    bool operator==(const RowSum& other) const { return rows_ == other.rows_ && sum_ == other.sum_; }

private:
    std::vector<ComparedColumn> columns_;
    std::int64_t rows_ = 0;
    std::uint64_t sum_ = 0;
    std::vector<std::uint64_t> columnSums_;
    std::string text_;
};

}  // namespace halvtiv::cli::copy
