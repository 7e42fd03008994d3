#pragma once

#include <cstdint>
#include <exception>
#include <limits>

#include <halvtiv/ado.hpp>

#include "ado/connection_impl.hpp"
#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"

namespace halvtiv {

/// How many rows a loop has changed, and how many it changes at most.
struct RowCount {
    std::int32_t done = 0;
    std::int32_t most = std::numeric_limits<std::int32_t>::max();
};

/// Does something with every row that is left, up to the most.
template <typename Change>
void ForEachRow(ado::RecordsetState& rows, RowCount& count, Change&& change) {
    for (; count.done < count.most && !rows.AtEnd(); rows.MoveNext()) {
        change();
        ++count.done;
    }
}

/// Runs a loop over the rows of a recordset that `open` gives in a transaction of its own, so that the rows
/// are read and changed under one lock and committed once; answers how many there were.
///
/// Rows changed before a failure are committed, too. Where the database has undone them with the row that
/// failed, they are changed once more. Where a deferred constraint refuses the commit, each row is committed
/// by itself up to the one that is refused. Within a transaction of the caller none of that is done: it is
/// for the caller to end.
template <typename Open, typename Loop>
std::int32_t InOneCommit(ado::Connection& connection, Open&& open, Loop&& loop, RowCount count = {}) {
    ado::RecordsetPtr recordset = open();
    connection.BeginTrans();
    const bool isOutermost = ado::ConnectionInside::IsOutermostTransaction(connection);
    std::exception_ptr failure;  // of the loop, else of the commit
    bool isRefused = false;
    bool isUndone = false;
    try {
        loop(ado::RecordsetState::Of(recordset), count);
        recordset->Close();
    } catch (...) {
        failure = std::current_exception();
    }
    const bool isWhole = !failure;
    try {
        isUndone = failure && isOutermost && connection.State() != ado::adStateClosed &&
                   !ado::ConnectionInside::InTransaction(connection);
        connection.CommitTrans();
        if (isWhole) return count.done;
    } catch (const ErrorInfo& error) {
        isRefused =
            isOutermost && error.Number == static_cast<std::int32_t>(ado::AdoError::ConstraintViolation);
        if (isWhole) failure = std::current_exception();
    }
    recordset.reset();
    RowCount again{0, count.done};
    if (isRefused) {
        recordset = open();
        loop(ado::RecordsetState::Of(recordset), again);
        if (isWhole) return again.done;
    } else if (isUndone && count.done > 0) {
        InOneCommit(connection, open, loop, again);
    }
    std::rethrow_exception(failure);
}

}  // namespace halvtiv
