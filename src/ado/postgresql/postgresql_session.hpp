#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ado/postgresql/postgresql_link.hpp"
#include "ado/postgresql/postgresql_statement.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// What the fixed formats of cells stand on, whatever the server's own settings are.
inline constexpr const char* kPostgresqlSettings =
    "SET DateStyle = 'ISO, YMD'; SET IntervalStyle = 'postgres'; SET TimeZone = 'UTC';"
    "SET bytea_output = 'hex'; SET extra_float_digits = 1; SET lc_monetary = 'C';"
    "SET standard_conforming_strings = on";
/// What values cannot be read without.
inline constexpr const char* kPostgresqlFormats = "SET client_encoding = 'UTF8'; SET bytea_output = 'hex'";

class PostgresqlCursor;

/// A connection to one PostgreSQL server.
class PostgresqlSession final : public Session, public std::enable_shared_from_this<PostgresqlSession> {
public:
    explicit PostgresqlSession(std::unique_ptr<PostgresqlLink> link);
    ~PostgresqlSession() override;
    PostgresqlSession(const PostgresqlSession&) = delete;
    PostgresqlSession& operator=(const PostgresqlSession&) = delete;

    std::unique_ptr<Batch> Prepare(std::string commandText, Purpose purpose) override;
    RowChangeResult Change(const RowChange& change) override;
    std::string_view DatabaseName() const override { return "PostgreSQL"; }
    bool IsAlive() override { return link_ && link_->IsAlive(); }
    bool IsClosed() const noexcept override { return link_ == nullptr; }
    void Close() override;
    bool InTransaction() override { return link_ && link_->InTransaction(); }
    void Begin() override;
    void Commit() override;
    void Rollback() override;
    void SetSavepoint(std::int32_t level) override;
    void ReleaseSavepoint(std::int32_t level) override;
    void RollbackToSavepoint(std::int32_t level) override;
    bool FailureSpoilsTransaction() const override { return true; }
    void SetCommandTimeout(std::int32_t seconds) override;

    // For the batches and cursors of this session.

    /// The line to the server. Raises -2146824579 after `Close`.
    PostgresqlLink& Link();
    /// The line with nothing under way: the rest of a cursor that is being read is kept by that cursor.
    /// Raises that this was cancelled; the line is free then, too.
    PostgresqlLink& FreeLine();
    /// The cursor that reads from the line; null for none.
    void SetReader(PostgresqlCursor* reader) noexcept { reader_ = reader; }
    bool IsReader(const PostgresqlCursor* cursor) const noexcept { return reader_ == cursor; }

    /// The statement of that text, which the server keeps, with its columns and its plan.
    std::shared_ptr<PostgresqlStatement> Acquire(std::string_view text, Purpose purpose);
    /// The same where the server keeps it already; null otherwise.
    std::shared_ptr<PostgresqlStatement> FindKept(std::string_view text, Purpose purpose);
    /// Whether a statement returns rows, asked of the server without running it.
    bool ReturnsRows(std::string_view text);
    /// Runs it up to its first result. A statement that the database's changes have outdated is prepared
    /// anew, which replaces it.
    PostgresqlResult Start(std::shared_ptr<PostgresqlStatement>& statement);
    /// Forgets what the server keeps: a statement may have changed what it stands on.
    void ForgetStatements();
    /// Lets these settings, a text that stays, be made again before the next statement.
    void SetAgain(const char* settings) noexcept { dueSettings_ = settings; }
    /// Runs a statement of this provider's own with values, by its text in the cache.
    PostgresqlResult Query(const std::string& text, const PostgresqlParameters& parameters, bool binary);

private:
    std::shared_ptr<PostgresqlStatement> PrepareNew(std::string_view text, Purpose purpose);
    std::string PrepareNamed(const std::string& text);
    /// As `PrepareNamed`, leaving a transaction as it was when the server does not take the text; "" then.
    std::string TryPrepare(const std::string& text, PostgresqlResult& description);
    void Deallocate(const PostgresqlStatement& statement);
    /// Lets the server forget the statements that are too long to be kept, once nobody reads them.
    void DropUnused();
    bool IsOutdated() const;
    PostgresqlResult RunChange(const std::string& text, const PostgresqlParameters& parameters);
    void RunToUndo(const std::string& text);
    void MakeDueSettings();
    void DeallocateAll(const std::vector<std::string>& names);
    /// Does something that neither the cancel switch nor a time-out stops.
    template <typename Action>
    void WithoutStops(Action&& action) {
        auto& link = Link();
        const bool was = link.IsUninterrupted();
        link.Uninterrupted(true);
        try {
            action();
        } catch (...) {
            link.Uninterrupted(was);
            throw;
        }
        link.Uninterrupted(was);
    }

    std::unique_ptr<PostgresqlLink> link_;  // null after `Close`
    PostgresqlStatementCache cache_;
    std::vector<std::shared_ptr<PostgresqlStatement>> tooLong_;  // not in the cache
    PostgresqlCursor* reader_ = nullptr;
    std::uint64_t lastName_ = 0;
    const char* dueSettings_ = nullptr;
};

}  // namespace halvtiv::ado
