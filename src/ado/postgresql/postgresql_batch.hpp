#pragma once

#include <libpq-fe.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "ado/postgresql/postgresql_session.hpp"
#include "ado/postgresql/postgresql_text.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// The statements of one command text, each sent by itself when its turn comes.
class PostgresqlBatch final : public Batch {
public:
    PostgresqlBatch(std::shared_ptr<PostgresqlSession> session, std::string commandText, Purpose purpose);

    std::optional<StatementResult> RunNext() override;

private:
    StatementResult RunQuery(std::shared_ptr<PostgresqlStatement> statement, Purpose purpose);
    StatementResult RunOther(const PostgresqlStatementText& statement, Purpose purpose);
    StatementResult ResultOf(std::shared_ptr<PostgresqlStatement> statement, PostgresqlResult first);

    std::shared_ptr<PostgresqlSession> session_;
    std::string text_;
    Purpose purpose_;           // of the first statement
    std::size_t position_ = 0;  // where the next statement begins
};

/// Raises where a transaction that was to be committed has been rolled back, because a statement in it had
/// failed.
void RequireCommitted(PGresult* result);

}  // namespace halvtiv::ado
