#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "copy/array_rows.hpp"
#include "copy/catalogue.hpp"
#include "copy/table_reader.hpp"

namespace halvtiv::cli::copy {

/// Writes rows into a table: many with one statement, those with a long value one by one, the value in
/// pieces. What was added is written by `Flush`, and kept by the transaction of whoever called.
class RowWriter {
public:
    /// sourceKinds: what the cells hold, one for each column.
    RowWriter(Database database, const Table& table, std::vector<const Column*> columns,
              std::vector<Kind> sourceKinds);

    /// Returns about how many bytes the row has.
    std::size_t Add(const std::vector<SourceCell>& cells);
    void Flush();

private:
    std::size_t AddLong(const std::vector<SourceCell>& cells);
    void KeepTypes(const std::vector<SourceCell>& cells) const;
    void AppendRow(const std::vector<SourceCell>& cells);
    void AppendToArrays(const std::vector<SourceCell>& cells);
    std::size_t Bytes() const { return arrays_ ? arrays_->Bytes() : sql_.size(); }

    Database database_;
    std::string table_;
    std::string rowNumber_;  ///< the name of SQLite's own, "" where there is none
    std::vector<const Column*> columns_;
    std::vector<Kind> kinds_;
    std::string start_;  ///< of a statement
    std::string sql_;
    std::optional<ArrayRows> arrays_;  ///< where the rows wait instead, if the database likes that better
    std::size_t rows_ = 0;
};

}  // namespace halvtiv::cli::copy
