#include "ado/odbc/odbc_batch.hpp"

#include <string_view>
#include <utility>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_script.hpp"
#include "ado/sql_scanner.hpp"

namespace halvtiv::ado {

namespace {

// That driver takes a ";" in a comment for the end of the statement, and a "?" for a value's place.
std::string WithoutComments(std::string_view statement) {
    std::string text;
    SqlScanner scanner(statement);
    std::size_t end = 0;
    for (auto token = scanner.Next(); token.kind != SqlToken::Kind::End; token = scanner.Next()) {
        const auto between = statement.substr(end, token.position - end);
        const bool isBlank = between.find_first_not_of(" \t\r\n\f\v") == std::string_view::npos;
        if (!text.empty()) text += isBlank ? between : " ";
        text += token.text;
        end = token.position + token.text.size();
    }
    return text;
}

bool IsQuery(std::string_view statement) {
    return SqlScanner(statement).Next().IsWord("select");
}

}  // namespace

OdbcBatch::OdbcBatch(std::shared_ptr<OdbcSession> session, std::string commandText, Purpose purpose)
    : session_(std::move(session)), text_(std::move(commandText)), purpose_(purpose) {}

std::optional<std::string> OdbcBatch::TakeText() {
    const auto rest = std::string_view(text_).substr(position_);
    const auto& traits = session_->Traits();
    if (IsEmptyScript(rest, traits.dialect)) return std::nullopt;
    auto length = rest.size();
    if (traits.splitsScripts || purpose_ == Purpose::Change) {
        length = FirstStatementLength(rest, traits.dialect);
        // An empty statement is none.
        if (IsEmptyScript(rest.substr(0, length), traits.dialect)) {
            position_ += length;
            return TakeText();
        }
    }
    position_ += length;
    auto statement = rest.substr(0, length);
    if (length < rest.size() || traits.splitsScripts) {
        if (statement.ends_with(';')) statement.remove_suffix(1);
    }
    return traits.dialect == OdbcDialect::Sqlite ? WithoutComments(statement) : std::string(statement);
}

std::optional<StatementResult> OdbcBatch::RunNext() {
    if (execution_) {
        if (auto result = execution_->RunNext()) return result;
        execution_.reset();
    }
    auto text = TakeText();
    if (!text) return std::nullopt;
    const bool isReadOnly = session_->Traits().dialect == OdbcDialect::Access;
    if (isReadOnly && !IsQuery(*text)) {
        throw MakeProviderError(AdoError::NotSupported, kAccessIsReadOnly, session_->Traits().databaseName);
    }
    const bool asksForRows = AsksForRows(*text);
    execution_ = std::make_shared<OdbcExecution>(session_, *std::move(text));
    const auto purpose = std::exchange(purpose_, Purpose::Read);
    if (!isReadOnly && RequiresRows()) {
        const auto returnsRows = execution_->PrepareAndTell();
        if (!returnsRows) return RunOrUndo(purpose);
        CheckFirst(purpose, *returnsRows, !asksForRows);
    }
    if (purpose == Purpose::Change && !isReadOnly) {
        if (auto rows = execution_->PrepareForChange()) {
            StatementResult result;
            result.rows = std::move(rows);
            return result;
        }
    }
    return execution_->RunNext();
}

std::optional<StatementResult> OdbcBatch::RunOrUndo(Purpose purpose) {
    constexpr std::int32_t kLevel = 0;  // below those that a connection counts
    const bool isSavepoint = session_->InTransaction();
    if (isSavepoint) {
        session_->SetSavepoint(kLevel);
    } else {
        session_->Begin();
    }
    try {
        auto result = execution_->RunNext();
        CheckFirst(purpose, result && result->rows, true);
        execution_->SetAside();
        if (isSavepoint) {
            session_->ReleaseSavepoint(kLevel);
        } else {
            session_->Commit();
        }
        return result;
    } catch (...) {
        try {
            if (isSavepoint && session_->InTransaction()) session_->RollbackToSavepoint(kLevel);
            if (!isSavepoint) session_->Rollback();
        } catch (const ErrorInfo&) {  // NOLINT(bugprone-empty-catch): the first error is the one that counts
        }
        throw;
    }
}

}  // namespace halvtiv::ado
