#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_plan.hpp"
#include "ado/sqlite/sqlite_session.hpp"

struct sqlite3_blob;

namespace halvtiv::ado {

struct CloseSqliteBlob {
    void operator()(sqlite3_blob* blob) const noexcept;
};
using SqliteBlobHandle = std::unique_ptr<sqlite3_blob, CloseSqliteBlob>;

/// Long values read in place, by the row's id.
class SqliteDeferredValues final : public DeferredValues {
public:
    SqliteDeferredValues(std::shared_ptr<SqliteSession> session, const SqlitePlan& plan);
    ~SqliteDeferredValues() override;
    SqliteDeferredValues(const SqliteDeferredValues&) = delete;
    SqliteDeferredValues& operator=(const SqliteDeferredValues&) = delete;

    bool Holds(std::int32_t column) const override;
    std::int64_t Size(RowSource& row, std::int32_t column) override;
    std::size_t Read(RowSource& row, std::int32_t column, std::int64_t offset,
                     std::span<std::uint8_t> piece) override;
    void Release() noexcept override { open_.clear(); }

private:
    struct Open {
        SqliteBlobHandle handle;
        std::int64_t rowId = 0;
    };

    /// The value's handle, moved to the row. Raises -2146825267 when the row has gone.
    sqlite3_blob* HandleFor(RowSource& row, std::int32_t column);

    std::shared_ptr<SqliteSession> session_;
    std::vector<bool> deferred_;
    std::vector<std::string> names_;
    std::string schema_;
    std::string table_;
    std::int32_t rowIdColumn_;
    std::map<std::int32_t, Open> open_;
};

/// Fills a column's value, which has the source's size already, from the source.
void FillSqliteBlob(SqliteSession& session, const ChangeTarget::Table& table, const std::string& column,
                    std::int64_t rowId, ByteSource& source);

}  // namespace halvtiv::ado
