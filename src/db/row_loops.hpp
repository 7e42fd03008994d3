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

/// Whether the database has ended the transaction that the caller had begun.
inline bool HasLostTransaction(ado::Connection& connection) {
    try {
        return connection.State() != ado::adStateClosed && !ado::ConnectionInside::InTransaction(connection);
    } catch (const ErrorInfo&) {  // cancelled: the commit tells
        return false;
    }
}

/// Runs a loop over the rows of a recordset that `open` gives in a transaction of its own, so that the rows
/// are read and changed under one lock and committed once; returns how many there were. The rest of the batch
/// runs once, behind a loop that has succeeded.
///
/// Rows changed before a failure are committed, too. Where the database has undone them with the row that
/// failed, they are changed once more. Where a deferred constraint refuses the commit, each row is committed
/// by itself up to the one that is refused. None of that is done within a transaction of the caller, who ends
/// it.
template <typename Open, typename Loop>
std::int32_t InOneCommit(ado::Connection& connection, Open&& open, Loop&& loop, RowCount count = {}) {
    const bool isRepeated = count.most != RowCount{}.most;
    ado::RecordsetPtr recordset = open();
    connection.BeginTrans();
    const bool isOutermost = ado::ConnectionInside::IsOutermostTransaction(connection);
    std::exception_ptr failure;
    try {
        loop(ado::RecordsetState::Of(recordset), count);
        if (isRepeated) {
            ado::RecordsetState::EndBatch(recordset);
        } else {
            recordset->Close();
        }
    } catch (...) {
        failure = std::current_exception();
        ado::RecordsetState::EndBatch(recordset);
    }
    const bool isWhole = !failure;
    const bool isUndone = failure && isOutermost && HasLostTransaction(connection);
    bool isRefused = false;
    try {
        connection.CommitTrans();
        if (isWhole) return count.done;
    } catch (const ErrorInfo& error) {
        isRefused =
            isOutermost && error.Number == static_cast<std::int32_t>(ado::AdoError::ConstraintViolation);
        if (isWhole) failure = std::current_exception();
    }
    recordset.reset();
    RowCount again{0, count.done};
    if (!isRefused && !(isUndone && count.done > 0)) std::rethrow_exception(failure);
    try {
        if (isRefused) {
            recordset = open();
            loop(ado::RecordsetState::Of(recordset), again);
            if (isWhole && !isRepeated) recordset->Close();
            ado::RecordsetState::EndBatch(recordset);
            if (isWhole) return again.done;
        } else {
            InOneCommit(connection, open, loop, again);
        }
    } catch (...) {
        ado::RecordsetState::EndBatch(recordset);
        if (isWhole) throw;
    }
    std::rethrow_exception(failure);
}

}  // namespace halvtiv
