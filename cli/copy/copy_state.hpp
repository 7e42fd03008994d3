#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "copy/dialect.hpp"

namespace halvtiv::cli::copy {

/// The table on the target that tells how far a copy is. It goes when the copy is complete.
inline constexpr std::string_view kStateTable = "halvtiv_copy";

/// The values of a row's key, as text.
using Key = std::vector<std::string>;

/// How far the copy of one table is.
struct TableState {
    bool isCreated = false;   ///< the table is this copy's own
    bool isDone = false;      ///< all of its rows are there
    std::int64_t rows = 0;    ///< that this copy has brought
    std::optional<Key> last;  ///< the key of the last of them
};

/// What `halvtiv_copy` says. What is saved is part of the transaction that is open.
class CopyState {
public:
    /// source: what tells one source from another. Raises `CommandError` (not run) when the target has an
    /// unfinished copy from another one.
    CopyState(Database target, std::string source);

    /// Null for a table that has not been begun.
    const TableState* Find(const std::string& table) const;
    /// The tables that have been begun, by their names on the source.
    const std::map<std::string, TableState>& Tables() const { return tables_; }

    /// Makes the table where it is missing.
    void Begin();
    void Save(const std::string& table, const TableState& state);
    /// Drops the table.
    void Finish();

private:
    Database target_;
    std::string name_;
    std::string source_;
    bool isThere_ = false;
    std::map<std::string, TableState> tables_;
};

}  // namespace halvtiv::cli::copy
