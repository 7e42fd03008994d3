#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "copy/catalogue.hpp"
#include "copy/copy_state.hpp"
#include "copy/table_ddl.hpp"

namespace halvtiv::cli::copy {

/// One table on its way.
struct TableCopy {
    Table source;
    Table target;                     ///< as it is there, or is to be made
    bool isThere = false;             ///< the target has it already
    std::vector<const Column*> from;  ///< columns of `source`
    std::vector<const Column*> to;    ///< those of `target` that they go to, in the same order
    std::vector<std::string> lacks;   ///< what of the source's will not be there, in words
    TableState state;

    std::int64_t sourceRows = 0;
    std::int64_t copiedRows = 0;  ///< by this run
    double seconds = 0;
    bool isEqual = false;
    std::vector<std::string> differingColumns;  ///< of as many rows on both sides
};

/// What tells one source from another.
std::string IdentityOf(const Database& source);

/// The tables of these names, all when there are none, parents before children. Raises `CommandError` (not
/// run) where one cannot be copied: nothing has been changed then.
std::vector<TableCopy> PlanCopy(const Database& source, const Database& target, const CopyState& state,
                                const std::vector<std::string>& names);

/// Makes the tables that the target lacks, and notes in the state that they are this copy's own.
void MakeTables(const Database& source, const Database& target, CopyState& state,
                std::vector<TableCopy>& tables);

/// Of the tables that this copy has made: indexes, foreign keys, numbers that go on. Returns what could not
/// be made, in words.
std::vector<std::string> CompleteTables(const Database& target, const std::vector<TableCopy>& tables);

}  // namespace halvtiv::cli::copy
