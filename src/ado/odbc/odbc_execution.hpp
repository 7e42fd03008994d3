#pragma once

#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "ado/odbc/odbc_session.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

class OdbcCursor;

/// Whether a statement is a query by its first word.
bool AsksForRows(std::string_view text);

/// One text on its way through one statement handle, with the results that it gives one after another.
class OdbcExecution : public std::enable_shared_from_this<OdbcExecution> {
public:
    OdbcExecution(std::shared_ptr<OdbcSession> session, std::string text);
    ~OdbcExecution();
    OdbcExecution(const OdbcExecution&) = delete;
    OdbcExecution& operator=(const OdbcExecution&) = delete;

    /// Runs the text at the first call, and goes on to its next result at the others; nothing after the last.
    std::optional<StatementResult> RunNext();
    /// Before the first `RunNext`: prepares the text. Answers whether it returns rows; nothing where the
    /// driver does not know before it has run.
    std::optional<bool> PrepareAndTell();
    /// Instead of the first `RunNext`: a query that is not run before its rows are asked for, with a target
    /// if it can have one. Nothing where the text is no query.
    std::unique_ptr<Cursor> PrepareForChange();

    /// Reads all that is left into memory of our own; the driver is done with it.
    void SetAside();
    /// Whether there may be something left of its answer.
    bool IsRunning() const noexcept { return stage_ == Stage::Running; }
    /// The connection has gone.
    void Drop() noexcept;

    // For its cursors.
    OdbcSession& Owner() const noexcept { return *session_; }
    SQLHSTMT Handle() const noexcept { return statement_.Get(); }
    /// Runs what was prepared and has not run.
    void Start();
    void Attach(OdbcCursor* cursor) noexcept { cursor_ = cursor; }
    void Detach(const OdbcCursor* cursor) noexcept {
        if (cursor_ == cursor) cursor_ = nullptr;
    }

private:
    enum class Stage { New, Prepared, Running, Done };
    /// The result at which the driver stands.
    StatementResult CurrentResult();
    bool HasMoreResults() const;
    /// Prepares the text, unless that is done.
    void Prepare();
    /// Frees the handle, and before it what the cursor has bound to it.
    void Free() noexcept;
    std::optional<StatementResult> NextOfDriver();

    std::shared_ptr<OdbcSession> session_;
    std::string text_;
    OdbcHandle statement_;
    Stage stage_ = Stage::New;
    bool isPrepared_ = false;       // the driver has taken the text
    OdbcCursor* cursor_ = nullptr;  // over the result at which the driver stands
    std::deque<std::variant<StatementResult, std::exception_ptr>> setAside_;
};

}  // namespace halvtiv::ado
