#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_session.hpp"

namespace halvtiv::ado {

/// The statements of one command text; each is prepared when its turn comes, for it may need what an earlier
/// one has made.
class SqliteBatch final : public Batch {
public:
    SqliteBatch(std::shared_ptr<SqliteSession> session, std::string commandText, Purpose purpose);

    std::optional<StatementResult> RunNext() override;

private:
    std::optional<StatementResult> RunAt(std::size_t position);

    std::shared_ptr<SqliteSession> session_;
    std::string text_;
    Purpose purpose_;           // of the first statement
    std::size_t position_ = 0;  // where the next statement begins
};

}  // namespace halvtiv::ado
