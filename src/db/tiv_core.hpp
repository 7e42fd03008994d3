#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <halvtiv/ado.hpp>

#include "foundation/err_object.hpp"

namespace halvtiv {

/// Does the engine's database work, over the one connection that it holds.
///
/// Guarded as all classes, but for `IsConnectionOK`, `DisConnect` and `GetDatabaseConnection`. It never
/// reconnects by itself.
class clsZorbTivCore {
public:
    /// Whether there is a connection and it is not closed.
    bool IsConnectionOK() const;
    /// `SetDatabaseConnectionString`, but for an empty text: "ConnectionString is not set.", the connection
    /// stays.
    bool ReConnect(std::string_view connectionString);
    /// Closes the connection and drops it, ignoring errors.
    void DisConnect() noexcept;
    /// Closes the current connection and opens another: 3 seconds to connect, no limit for a command. Null
    /// when it fails; what is left then is a connection that is not open.
    ado::ConnectionPtr SetDatabaseConnectionString(std::string_view connectionString);
    /// The connection as it is: null, closed or open.
    ado::ConnectionPtr GetDatabaseConnection() const { return connection_; }

    /// Opens a read-only recordset on a query; null when it fails.
    bool GetData(std::string_view sql, ado::RecordsetPtr& recordset, std::int32_t cursorType);
    /// Runs a query, and before it a counting query unless that is empty. count is its first value (0 for
    /// none or null); -1 without a counting query and when it fails, which is no error.
    bool GetDataAndCount(std::string_view sql, std::string_view countSql, ado::RecordsetPtr& recordset,
                         std::int32_t& count);
    /// Runs any statements. The first one's recordset goes to `recordset`; without that, all of them run to
    /// their end here. The second argument is not used.
    bool ExecuteSQL(std::string_view sql, std::string_view reserved, ado::RecordsetPtr* recordset = nullptr);

    bool BeginTrans();
    bool CommitTrans();
    bool RollbackTrans();

    bool RaiseLastError() const { return errors_.Raise(); }
    std::string GetLastError() const { return errors_.GetErrorMsg(); }

private:
    /// The connection; raises 91 when there is none.
    ado::Connection& RequireConnection() const;
    std::int32_t RunCountQuery(std::string_view countSql) const;

    ado::ConnectionPtr connection_;
    clsZorbErrObject errors_{kProductName, "clsZorbTivCore"};
};

}  // namespace halvtiv
