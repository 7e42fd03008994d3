#pragma once

#include <cstdint>

#include <halvtiv/ado.hpp>

#include "ado/recordset_state.hpp"

namespace halvtiv {

/// Runs a loop over rows in a transaction of its own, so that they are read and changed under one lock and
/// committed once. Rows changed before a failure are committed, too: who wants none of them has a transaction
/// around this one.
template <typename Loop>
std::int32_t InOneCommit(ado::Connection& connection, Loop&& loop) {
    connection.BeginTrans();
    std::int32_t count = -1;
    try {
        count = loop();
    } catch (...) {
        try {
            connection.CommitTrans();
        } catch (...) {  // NOLINT(bugprone-empty-catch): the first error is the one that counts
        }
        throw;
    }
    connection.CommitTrans();
    return count;
}

/// Does something with every row that is left; answers how many there were.
template <typename Change>
std::int32_t ForEachRow(ado::RecordsetState& rows, Change&& change) {
    std::int32_t count = 0;
    for (; !rows.AtEnd(); rows.MoveNext()) {
        change();
        ++count;
    }
    return count;
}

}  // namespace halvtiv
