#include "ado/postgresql/postgresql_statement.hpp"

#include <algorithm>
#include <functional>
#include <utility>

namespace halvtiv::ado {
namespace {

constexpr std::size_t kMostStatements = 64;

}  // namespace

void PostgresqlStatement::ReadColumns(const PGresult* result) {
    layout.reset();
    columns.clear();
    formats.clear();
    for (int i = 0; i < PQnfields(result); ++i) {
        columns.push_back(InfoOf(result, i));
        formats.push_back(ColumnOf(result, i));
    }
}

bool PostgresqlStatement::Fits(const PGresult* result) const {
    if (static_cast<std::size_t>(PQnfields(result)) != formats.size()) return false;
    for (std::size_t i = 0; i < formats.size(); ++i) {
        const int column = static_cast<int>(i);
        if (PQftype(result, column) != formats[i].type) return false;
        // A plan's added items have names of their own.
        if (!plan && columns[i].name != PQfname(result, column)) return false;
    }
    return true;
}

std::shared_ptr<PostgresqlStatement> PostgresqlStatementCache::Find(std::string_view text, Purpose purpose) {
    if (text.size() > kLongestText) return nullptr;
    const auto hash = std::hash<std::string_view>{}(text);
    const auto found = std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& entry) {
        return entry.hash == hash && entry.statement->purpose == purpose && entry.statement->text == text;
    });
    if (found == entries_.rend()) return nullptr;
    std::rotate(std::next(found).base(), found.base(), entries_.end());
    return entries_.back().statement;
}

std::shared_ptr<PostgresqlStatement> PostgresqlStatementCache::Keep(
    std::shared_ptr<PostgresqlStatement> statement) {
    std::shared_ptr<PostgresqlStatement> fallen;
    if (entries_.size() == kMostStatements) {
        fallen = std::move(entries_.front().statement);
        entries_.erase(entries_.begin());
    }
    const auto hash = std::hash<std::string_view>{}(statement->text);
    statement->isKept = true;
    entries_.push_back({hash, std::move(statement)});
    return fallen;
}

void PostgresqlStatementCache::Forget(const PostgresqlStatement& statement) noexcept {
    std::erase_if(entries_, [&](const Entry& entry) { return entry.statement.get() == &statement; });
}

std::vector<std::shared_ptr<PostgresqlStatement>> PostgresqlStatementCache::TakeAll() {
    std::vector<std::shared_ptr<PostgresqlStatement>> all;
    for (auto& entry : std::exchange(entries_, {})) all.push_back(std::move(entry.statement));
    return all;
}

}  // namespace halvtiv::ado
