#include "ado/postgresql/postgresql_batch.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "ado/errors.hpp"
#include "ado/postgresql/postgresql_cursor.hpp"
#include "ado/sql_scanner.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::array<std::string_view, 8> kPreparedVerbs{"select", "values", "table",  "with",
                                                         "insert", "update", "delete", "merge"};
constexpr std::array<std::string_view, 4> kChangingVerbs{"insert", "update", "delete", "merge"};
// What runs and leaves the meaning of other statements alone.
constexpr std::array<std::string_view, 17> kHarmlessVerbs{
    "begin",   "start", "commit", "end",    "rollback", "abort", "savepoint", "release", "show",
    "explain", "lock",  "listen", "notify", "declare",  "fetch", "move",      "close"};

template <std::size_t Count>
bool IsOneOf(const std::string& verb, const std::array<std::string_view, Count>& verbs) {
    return std::find(verbs.begin(), verbs.end(), verb) != verbs.end();
}

/// Only a query has rows that can be changed.
Purpose PurposeOf(const std::string& verb, Purpose wanted) {
    const bool isQuery = verb == "select" || verb == "values" || verb == "table";
    return isQuery ? wanted : Purpose::Read;
}

/// Whether it is run by a statement that the server prepares. A long one that is no query carries its data,
/// which would only be read twice; and one that calls set_config is a SET in the form of a query.
bool IsPrepared(const PostgresqlStatementText& statement) {
    constexpr std::string_view kSetting = "set_config";
    if (!IsOneOf(statement.verb, kPreparedVerbs)) return false;
    const bool isLong = statement.text.size() > PostgresqlStatementCache::kLongestText;
    if (isLong && IsOneOf(statement.verb, kChangingVerbs)) return false;
    const auto& text = statement.text;
    const auto isSame = [](char any, char lower) { return any == lower || (any | 0x20) == lower; };
    return std::search(text.begin(), text.end(), kSetting.begin(), kSetting.end(), isSame) == text.end();
}

std::int64_t AffectedRows(PGresult* result) {
    const std::string_view digits = PQcmdTuples(result);
    std::int64_t count = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), count);
    return count;
}

}  // namespace

void RequireCommitted(PGresult* result) {
    if (!result || std::string_view(PQcmdStatus(result)) != "ROLLBACK") return;
    throw MakeProviderError(AdoError::Unspecified,
                            "The transaction has been rolled back, because a statement in it has failed.",
                            kPostgresqlName);
}

PostgresqlBatch::PostgresqlBatch(std::shared_ptr<PostgresqlSession> session, std::string commandText,
                                 Purpose purpose)
    : session_(std::move(session)), text_(std::move(commandText)), purpose_(purpose) {}

std::optional<StatementResult> PostgresqlBatch::RunNext() {
    const auto begin = std::exchange(position_, text_.size());  // holds when the statement fails
    if (begin == 0) {
        // What the server keeps under the whole text is one statement.
        if (auto kept = session_->FindKept(text_, purpose_)) return RunQuery(std::move(kept), purpose_);
    }
    const auto statement = NextPostgresqlStatement(text_, begin);
    if (statement.text.empty()) return std::nullopt;
    const auto purpose = std::exchange(purpose_, Purpose::Read);
    auto result =
        IsPrepared(statement)
            ? RunQuery(session_->Acquire(statement.text, PurposeOf(statement.verb, purpose)), purpose)
            : RunOther(statement, purpose);
    position_ = statement.next;
    return result;
}

StatementResult PostgresqlBatch::RunQuery(std::shared_ptr<PostgresqlStatement> statement, Purpose purpose) {
    // A query without columns has rows all the same, and only one that reads is certain to be such a query.
    const bool isQuery = statement->purpose == purpose || statement->onlyReads;
    CheckFirst(purpose, !statement->columns.empty() || statement->onlyReads, !isQuery);
    if (statement->purpose == Purpose::Change && !statement->columns.empty()) {
        return {std::make_unique<PostgresqlCursor>(session_, std::move(statement)), -1};
    }
    auto first = session_->Start(statement);
    return ResultOf(std::move(statement), std::move(first));
}

StatementResult PostgresqlBatch::RunOther(const PostgresqlStatementText& text, Purpose purpose) {
    auto& link = session_->FreeLine();
    if (text.verb == "copy") throw MakeProviderError(AdoError::SqlError, kNoCopy, kPostgresqlName);
    if (RequiresRows()) CheckFirst(purpose, session_->ReturnsRows(text.text), true);
    const bool changesMeaning = !IsOneOf(text.verb, kHarmlessVerbs) && !IsOneOf(text.verb, kChangingVerbs);
    if (changesMeaning) session_->ForgetStatements();
    auto statement = std::make_shared<PostgresqlStatement>();
    statement->sent = text.text;
    link.SendText(statement->sent, {true, false});
    const bool wasInTransaction = link.InTransaction();
    auto first = link.Receive();
    if (wasInTransaction && TransactionEndOf(text.text) != TransactionEnd::None) {
        session_->CountEndedTransaction();
    }
    // Values must come in the known forms; a query that runs here has called set_config.
    if (text.verb == "set" || text.verb == "select") session_->SetAgain(kPostgresqlFormats);
    if (text.verb == "reset" || text.verb == "discard") session_->SetAgain(kPostgresqlSettings);
    statement->ReadColumns(first.get());
    if (text.verb == "commit" || text.verb == "end") {
        link.ReceiveAll();
        RequireCommitted(first.get());
    }
    return ResultOf(std::move(statement), std::move(first));
}

StatementResult PostgresqlBatch::ResultOf(std::shared_ptr<PostgresqlStatement> statement,
                                          PostgresqlResult first) {
    if (!statement->columns.empty() || PQresultStatus(first.get()) == PGRES_TUPLES_OK ||
        PQresultStatus(first.get()) == PGRES_SINGLE_TUPLE) {
        return {std::make_unique<PostgresqlCursor>(session_, std::move(statement), std::move(first)), -1};
    }
    StatementResult result;
    result.affectedRows = AffectedRows(first.get());
    session_->Link().ReceiveAll();
    return result;
}

}  // namespace halvtiv::ado
