#include "db/tiv_core.hpp"

#include <memory>
#include <utility>

#include "ado/connection_impl.hpp"
#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"
#include "foundation/guarded.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv {

namespace {

constexpr std::int32_t kConnectionTimeout = 3;  // seconds
constexpr std::int32_t kNoCommandTimeout = 0;
constexpr std::string_view kConnectFailed = "建立数据库连接时出现如下错误：\r\n\r\n";

[[noreturn]] void Raise(std::string message) {
    throw OwnError("clsZorbTivCore", std::move(message));
}

}  // namespace

bool clsZorbTivCore::IsConnectionOK() const {
    return connection_ && connection_->State() != ado::adStateClosed;
}

bool clsZorbTivCore::ReConnect(std::string_view connectionString) {
    return Guarded(errors_, false, [&] {
        if (connectionString.empty()) Raise("ConnectionString is not set.");
        if (SetDatabaseConnectionString(connectionString)) return true;
        // Recorded there already, with the words of a failed connection.
        return false;
    });
}

void clsZorbTivCore::DisConnect() noexcept {
    if (!connection_) return;
    try {
        connection_->Close();
    } catch (...) {  // NOLINT(bugprone-empty-catch): it is dropped in any case
    }
    connection_.reset();
}

ado::ConnectionPtr clsZorbTivCore::SetDatabaseConnectionString(std::string_view connectionString) {
    return Guarded(errors_, ado::ConnectionPtr(), [&] {
        try {
            DisConnect();
            connection_ = std::make_shared<ado::Connection>();
            ado::ConnectionInside::UseCancelSwitch(*connection_, cancelSwitch_);
            connection_->ConnectionTimeout(kConnectionTimeout);
            connection_->Open(connectionString);
            connection_->CommandTimeout(kNoCommandTimeout);
            return connection_;
        } catch (ErrorInfo& error) {
            error.Description.insert(0, kConnectFailed);
            throw;
        }
    });
}

bool clsZorbTivCore::GetData(std::string_view sql, ado::RecordsetPtr& recordset, std::int32_t cursorType) {
    recordset = nullptr;
    return Succeeds(errors_, [&] {
        recordset = ado::RecordsetState::OpenRows(sql, connection_, cursorType, ado::adLockReadOnly);
    });
}

bool clsZorbTivCore::GetDataAndCount(std::string_view sql, std::string_view countSql,
                                     ado::RecordsetPtr& recordset, std::int32_t& count) {
    count = -1;
    recordset = nullptr;
    return Succeeds(errors_, [&] {
        if (!countSql.empty()) count = RunCountQuery(countSql);
        recordset = RequireConnection().Execute(sql);
    });
}

// Whatever goes wrong here only means that the number of rows is unknown.
std::int32_t clsZorbTivCore::RunCountQuery(std::string_view countSql) const {
    std::int32_t count = -1;
    const bool wasInTransaction = InTransaction();
    try {
        ado::ConnectionInside::LeavingTransaction(RequireConnection(), [&] {
            ado::Recordset counted;
            counted.Open(countSql, connection_, ado::adOpenForwardOnly, ado::adLockReadOnly);
            count = 0;
            if (!counted.IsEOF()) {
                const ado::Variant value = counted.Fields().Item(0)->Value();
                if (!value.IsNull()) count = platform::TextToInt32(value.Text());
            }
            counted.Close();
        });
    } catch (const ErrorInfo& error) {
        const bool endedTransaction = wasInTransaction && !InTransaction();
        if (endedTransaction || ado::IsCancelled(error)) throw;
    }
    return count;
}

bool clsZorbTivCore::ExecuteSQL(std::string_view sql, std::string_view /*reserved*/,
                                ado::RecordsetPtr* recordset) {
    if (recordset != nullptr) *recordset = nullptr;
    return Succeeds(errors_, [&] {
        ado::RecordsetPtr first = RequireConnection().Execute(sql);
        if (recordset != nullptr) {
            *recordset = std::move(first);
        } else {
            while (first) first = first->NextRecordset();
        }
    });
}

std::string_view clsZorbTivCore::DatabaseName() const {
    return connection_ ? ado::ConnectionInside::DatabaseName(*connection_) : std::string_view();
}

bool clsZorbTivCore::InTransaction() const {
    return connection_ && ado::ConnectionInside::InTransaction(*connection_);
}

bool clsZorbTivCore::BeginTrans() {
    return Succeeds(errors_, [&] { RequireConnection().BeginTrans(); });
}

bool clsZorbTivCore::CommitTrans() {
    return Succeeds(errors_, [&] { RequireConnection().CommitTrans(); });
}

bool clsZorbTivCore::RollbackTrans() {
    return Succeeds(errors_, [&] { RequireConnection().RollbackTrans(); });
}

ado::Connection& clsZorbTivCore::RequireConnection() const {
    if (!connection_) platform::RaiseRunTimeError(platform::RunTimeError::ObjectNotSet);
    return *connection_;
}

}  // namespace halvtiv
