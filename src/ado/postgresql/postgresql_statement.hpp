#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ado/postgresql/postgresql_link.hpp"
#include "ado/postgresql/postgresql_plan.hpp"
#include "ado/postgresql/postgresql_types.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// A statement as it is run, with what is known of its columns.
struct PostgresqlStatement {
    std::string text;  ///< the caller's
    Purpose purpose = Purpose::Read;
    std::string name;  ///< under which the server keeps it; "" where it does not
    std::string sent;  ///< what the server was given: the text, or that of the plan
    bool isKept = false;
    std::uint64_t transaction = 0;  ///< in which it was last sent as a text
    bool onlyReads = false;

    std::vector<ColumnInfo> columns;        ///< the visible ones
    std::vector<PostgresqlColumn> formats;  ///< of all
    std::optional<PostgresqlPlan> plan;
    std::shared_ptr<const RowLayout> layout;

    /// Takes the columns from a result or a description; all of them are visible.
    void ReadColumns(const PGresult* result);
    /// Whether the rows of a result are those that are known.
    bool Fits(const PGresult* result) const;
};

/// The statements that the server keeps, for the next run of the same text: at most 64, the longest unused
/// goes first.
class PostgresqlStatementCache {
public:
    /// Texts beyond this length are scripts or carry their data: not kept.
    static constexpr std::size_t kLongestText = 8192;

    std::shared_ptr<PostgresqlStatement> Find(std::string_view text, Purpose purpose);
    /// Returns the statement that it fell out for, null when there was room.
    std::shared_ptr<PostgresqlStatement> Keep(std::shared_ptr<PostgresqlStatement> statement);
    void Forget(const PostgresqlStatement& statement) noexcept;
    /// Empties it and returns what was in it.
    std::vector<std::shared_ptr<PostgresqlStatement>> TakeAll();

private:
    struct Entry {
        std::size_t hash;
        std::shared_ptr<PostgresqlStatement> statement;
    };
    std::vector<Entry> entries_;  // the longest unused in front
};

}  // namespace halvtiv::ado
