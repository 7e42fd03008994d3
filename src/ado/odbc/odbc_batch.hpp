#pragma once

#include <memory>
#include <optional>
#include <string>

#include "ado/odbc/odbc_execution.hpp"
#include "ado/odbc/odbc_session.hpp"

namespace halvtiv::ado {

/// The statements of one command text: sent one by one where they can be told apart, else all at once.
class OdbcBatch final : public Batch {
public:
    OdbcBatch(std::shared_ptr<OdbcSession> session, std::string commandText, Purpose purpose);

    std::optional<StatementResult> RunNext() override;

private:
    /// The text of the next execution; nothing at the end.
    std::optional<std::string> TakeText();
    /// Runs the first statement, of which only its result tells whether it returns rows, and undoes it where
    /// it is refused.
    std::optional<StatementResult> RunOrUndo(Purpose purpose);

    std::shared_ptr<OdbcSession> session_;
    std::string text_;
    Purpose purpose_;           // of the first statement
    std::size_t position_ = 0;  // where the next statement begins
    std::shared_ptr<OdbcExecution> execution_;
};

}  // namespace halvtiv::ado
