#include "ado/odbc/odbc_execution.hpp"

#include <utility>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_cursor.hpp"
#include "ado/odbc/odbc_plan.hpp"
#include "ado/odbc/odbc_script.hpp"
#include "ado/sql_scanner.hpp"

namespace halvtiv::ado {

bool AsksForRows(std::string_view text) {
    const auto first = SqlScanner(text).Next();
    return first.IsWord("select") || first.IsWord("with") || first.IsWord("values");
}

namespace {

// MariaDB announces the columns of RETURNING only when the statement has run.
bool HasReturning(std::string_view text) {
    SqlScanner words(text);
    for (auto word = words.Next(); word.kind != SqlToken::Kind::End; word = words.Next()) {
        if (word.IsWord("returning")) return true;
    }
    return false;
}

}  // namespace

OdbcExecution::OdbcExecution(std::shared_ptr<OdbcSession> session, std::string text)
    : session_(std::move(session)), text_(std::move(text)), statement_(session_->NewStatement()) {
    session_->Add(*this);
}

OdbcExecution::~OdbcExecution() {
    session_->Remove(*this);
}

void OdbcExecution::Free() noexcept {
    if (auto* const cursor = std::exchange(cursor_, nullptr)) cursor->Drop();
    statement_.Free();
}

void OdbcExecution::Drop() noexcept {
    Free();
    stage_ = Stage::Done;
}

std::optional<StatementResult> OdbcExecution::RunNext() {
    if (!setAside_.empty()) {
        auto next = std::move(setAside_.front());
        setAside_.pop_front();
        if (const auto* error = std::get_if<std::exception_ptr>(&next)) std::rethrow_exception(*error);
        return std::get<StatementResult>(std::move(next));
    }
    return NextOfDriver();
}

std::optional<StatementResult> OdbcExecution::NextOfDriver() {
    if (stage_ == Stage::Done) return std::nullopt;
    SQLRETURN status = SQL_SUCCESS;
    const bool isFirst = stage_ == Stage::New;
    if (isFirst) {
        session_->RefuseHarm(text_);
        session_->MakeRoom(this);
    }
    stage_ = Stage::Done;  // holds when this fails
    if (isFirst) {
        status = isPrepared_
                     ? session_->Wait(statement_.Get(), [this] { return SQLExecute(statement_.Get()); })
                     : session_->ExecuteText(statement_.Get(), text_);
        if (status == SQL_NO_DATA) status = SQL_SUCCESS;  // a change that has hit no row
    } else {
        status = SQL_NO_DATA;
        if (HasMoreResults()) {
            status = session_->Wait(statement_.Get(), [this] { return SQLMoreResults(statement_.Get()); });
        }
        if (status == SQL_NO_DATA) {
            Free();
            return std::nullopt;
        }
    }
    session_->Check(status, statement_.Get());
    if (isFirst) session_->HasRun(text_);
    stage_ = Stage::Running;
    return CurrentResult();
}

// Asked for more, MariaDB's driver crashes after a routine or trigger whose body it has taken for a script.
bool OdbcExecution::HasMoreResults() const {
    const auto& traits = session_->Traits();
    return traits.hasMoreResults && (traits.dialect != OdbcDialect::MariaDb || MayGiveSeveralResults(text_));
}

StatementResult OdbcExecution::CurrentResult() {
    StatementResult result;
    auto columns = DescribeOdbcColumns(statement_.Get(), session_->Traits());
    if (columns.empty()) {
        // A cancellation that comes just after the end of the work makes the driver manager drop the rows.
        if (AsksForRows(text_)) session_->StopIfCancelled();
        SQLLEN rows = -1;
        if (SQL_SUCCEEDED(SQLRowCount(statement_.Get(), &rows))) result.affectedRows = rows;
        return result;
    }
    const auto count = columns.size();
    result.rows = std::make_unique<OdbcCursor>(shared_from_this(), std::move(columns), nullptr, count);
    return result;
}

void OdbcExecution::Prepare() {
    session_->RefuseHarm(text_);
    session_->MakeRoom(this);
    if (std::exchange(isPrepared_, true)) return;
    session_->Check(session_->PrepareText(statement_.Get(), text_), statement_.Get());
    if (text_.find('?') != std::string::npos) session_->RefuseMarkers(statement_.Get());
}

std::optional<bool> OdbcExecution::PrepareAndTell() {
    const auto& traits = session_->Traits();
    const bool isMariaDb = traits.dialect == OdbcDialect::MariaDb;
    if (isMariaDb && MayGiveSeveralResults(text_))
        return std::nullopt;  // its server prepares not all of these
    Prepare();
    SQLSMALLINT count = 0;
    session_->Check(SQLNumResultCols(statement_.Get(), &count), statement_.Get());
    if (count > 0) return true;
    const bool isKnown = isMariaDb ? !MayHideItsRows(text_) && !HasReturning(text_) : traits.splitsScripts;
    if (isKnown) return false;
    statement_ = session_->NewStatement();
    isPrepared_ = false;
    return std::nullopt;
}

std::unique_ptr<Cursor> OdbcExecution::PrepareForChange() {
    Prepare();
    auto columns = DescribeOdbcColumns(statement_.Get(), session_->Traits());
    if (columns.empty()) {
        statement_ = session_->NewStatement();
        isPrepared_ = false;
        return nullptr;
    }
    stage_ = Stage::Prepared;
    const auto count = columns.size();
    auto plan = PlanOdbcQuery(*session_, statement_.Get(), text_, columns);
    if (plan.target && plan.text != text_) {
        auto planned = session_->NewStatement();
        // A query that does not take the other select list runs as it is.
        if (SQL_SUCCEEDED(session_->PrepareText(planned.Get(), plan.text))) {
            statement_ = std::move(planned);
            columns = DescribeOdbcColumns(statement_.Get(), session_->Traits());
        } else {
            plan.target.reset();
        }
    }
    if (plan.target && columns.size() != static_cast<std::size_t>(plan.target->width)) plan.target.reset();
    return std::make_unique<OdbcCursor>(shared_from_this(), std::move(columns), std::move(plan.target),
                                        count);
}

void OdbcExecution::Start() {
    if (stage_ == Stage::Running) return;
    if (stage_ != Stage::Prepared) RaiseAdoError(AdoError::InvalidConnection);
    session_->MakeRoom(this);
    stage_ = Stage::Done;  // holds when this fails
    const auto status = session_->Wait(statement_.Get(), [this] { return SQLExecute(statement_.Get()); });
    session_->Check(status, statement_.Get());
    stage_ = Stage::Running;
}

void OdbcExecution::SetAside() {
    if (stage_ != Stage::Running) return;
    const auto self = shared_from_this();  // a cursor that is set aside lets go of it
    if (cursor_) cursor_->SetAside();
    try {
        while (auto result = NextOfDriver()) {
            if (cursor_) cursor_->SetAside();
            setAside_.emplace_back(*std::move(result));
        }
    } catch (const ErrorInfo& error) {
        if (IsCancelled(error)) throw;
        setAside_.emplace_back(std::current_exception());
    }
}

}  // namespace halvtiv::ado
