#include "ado/postgresql/postgresql_values.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <utility>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::int64_t kFirstPiece = std::int64_t{1} << 20;
constexpr std::int64_t kLaterPiece = std::int64_t{8} << 20;

}  // namespace

PostgresqlDeferredValues::PostgresqlDeferredValues(std::shared_ptr<PostgresqlSession> session,
                                                   const PostgresqlPlan& plan)
    : session_(std::move(session)),
      sizeColumns_(plan.sizeColumns),
      names_(plan.names),
      table_(plan.table),
      key_(plan.key) {}

bool PostgresqlDeferredValues::Holds(std::int32_t column) const {
    const auto index = static_cast<std::size_t>(column);
    return index < sizeColumns_.size() && sizeColumns_[index] >= 0;
}

std::int64_t PostgresqlDeferredValues::Size(RowSource& row, std::int32_t column) {
    const auto digits = row.Value(sizeColumns_[static_cast<std::size_t>(column)]).text;
    std::int64_t size = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), size);
    return size;
}

std::vector<std::string> PostgresqlDeferredValues::KeyOf(RowSource& row) const {
    std::vector<std::string> key;
    for (const auto& part : key_) key.emplace_back(row.Value(part.column).text);
    return key;
}

std::string PostgresqlDeferredValues::QueryFor(std::int32_t column) const {
    auto text = "SELECT substring(" + names_[static_cast<std::size_t>(column)] +
                " FROM $1::int FOR $2::int) FROM " + table_ + " WHERE ";
    int place = 2;
    for (const auto& part : key_) {
        if (place > 2) text += " AND ";
        text += part.name + " = $" + std::to_string(++place);
    }
    return text;
}

bool PostgresqlDeferredValues::PieceHolds(std::int32_t column, const std::vector<std::string>& key,
                                          std::int64_t offset) const {
    return piece_ && pieceColumn_ == column && pieceKey_ == key && offset >= pieceOffset_ &&
           offset < pieceOffset_ + PQgetlength(piece_.get(), 0, 0);
}

void PostgresqlDeferredValues::Fetch(std::int32_t column, std::int64_t offset) {
    PostgresqlParameters parameters;
    parameters.AddText(std::to_string(offset + 1));
    parameters.AddText(std::to_string(offset == 0 ? kFirstPiece : kLaterPiece));
    for (const auto& part : pieceKey_) parameters.AddText(part);
    piece_.reset();
    auto piece = session_->Query(QueryFor(column), parameters, true);
    if (!piece || PQntuples(piece.get()) == 0) RaiseAdoError(AdoError::NoCurrentRecord);
    piece_ = std::move(piece);
    pieceColumn_ = column;
    pieceOffset_ = offset;
}

std::size_t PostgresqlDeferredValues::Read(RowSource& row, std::int32_t column, std::int64_t offset,
                                           std::span<std::uint8_t> piece) {
    session_->Link().StopIfCancelled();
    if (offset < 0 || offset >= Size(row, column) || piece.empty()) return 0;
    auto key = KeyOf(row);
    if (!PieceHolds(column, key, offset)) {
        pieceKey_ = std::move(key);
        Fetch(column, offset);
    }
    const auto skipped = static_cast<std::size_t>(offset - pieceOffset_);
    const auto count =
        std::min(piece.size(), static_cast<std::size_t>(PQgetlength(piece_.get(), 0, 0)) - skipped);
    std::memcpy(piece.data(), PQgetvalue(piece_.get(), 0, 0) + skipped, count);
    return count;
}

}  // namespace halvtiv::ado
