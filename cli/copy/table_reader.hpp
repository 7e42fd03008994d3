#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "copy/catalogue.hpp"
#include "copy/copy_state.hpp"

namespace halvtiv::cli::copy {

/// One cell of the row that is being read.
struct SourceCell {
    ado::FieldPtr field;
    ado::FieldPtr literal;  ///< the same in SQLite's words, which say its type, too; null where not asked for
    bool isLong = false;
};

/// Reads a table in the order of its key, page by page, each page by a query of its own: so nothing but a
/// page is ever kept, whatever the database keeps of an open query, and reading can go on from any row. The
/// database compares the keys itself. A table without a key is one page.
///
///     while (reader.OpenPage()) {
///         do { ... reader.Cells() ... } while (reader.NextRow());
///     }
class TableReader {
public:
    /// after: the key of the row to go on behind. withLiterals: of SQLite alone. The table lives as long as
    /// the reader.
    TableReader(Database database, const Table& table, std::vector<const Column*> columns,
                std::int64_t pageRows, std::optional<Key> after = std::nullopt, bool withLiterals = false);

    bool HasKey() const { return !keyColumns_.empty(); }

    /// Stands on the first row of the next page; false when there is none.
    bool OpenPage();
    /// Goes to the page's next row; false at its end. bytes: about the size of the row that it leaves. A page
    /// ends early when it has become large.
    bool NextRow(std::size_t bytes);
    const std::vector<SourceCell>& Cells() const { return cells_; }
    /// The key of the last row that `NextRow` has left.
    const Key& LastKey() const { return last_; }

private:
    void ChooseLiterals();
    std::string PageText() const;
    std::string Condition() const;
    void EndPage();

    Database database_;
    const Table& table_;
    std::vector<const Column*> columns_;
    std::vector<std::string> keyColumns_;
    std::vector<Kind> keyKinds_;
    bool hasLiteralKeys_ = false;        // the key's values are read as SQL
    std::vector<std::size_t> literals_;  // the columns that are read as SQL, too
    std::int64_t mostPageRows_;
    std::int64_t pageRows_;
    bool hasLast_ = false;
    bool isAtEnd_ = false;
    Key last_;
    ado::RecordsetPtr rows_;
    std::vector<SourceCell> cells_;
    std::vector<ado::FieldPtr> keyFields_;
    std::int64_t rowsRead_ = 0;
    std::size_t bytesRead_ = 0;
};

}  // namespace halvtiv::cli::copy
