#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "ado/postgresql/postgresql_plan.hpp"
#include "ado/postgresql/postgresql_session.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// Large values read piece by piece, by the row's key.
///
/// One piece is held for each cursor, 1 MiB of a value at first and 8 MiB from there on, and once more what
/// the line holds of it: in all at most 24 MiB. Where the server keeps a value compressed, it decompresses
/// all that stands before a piece to give it, which is why the later pieces are larger.
class PostgresqlDeferredValues final : public DeferredValues {
public:
    PostgresqlDeferredValues(std::shared_ptr<PostgresqlSession> session, const PostgresqlPlan& plan);

    bool Holds(std::int32_t column) const override;
    std::int64_t Size(RowSource& row, std::int32_t column) override;
    std::size_t Read(RowSource& row, std::int32_t column, std::int64_t offset,
                     std::span<std::uint8_t> piece) override;
    void Release() noexcept override { piece_.reset(); }

private:
    std::string QueryFor(std::int32_t column) const;
    std::vector<std::string> KeyOf(RowSource& row) const;
    /// Raises -2146825267 when the row has gone.
    void Fetch(std::int32_t column, std::int64_t offset);
    bool PieceHolds(std::int32_t column, const std::vector<std::string>& key, std::int64_t offset) const;

    std::shared_ptr<PostgresqlSession> session_;
    std::vector<std::int32_t> sizeColumns_;
    std::vector<std::string> names_;
    std::string table_;
    std::vector<ChangeTarget::KeyColumn> key_;

    PostgresqlResult piece_;  // null for none
    std::int32_t pieceColumn_ = -1;
    std::vector<std::string> pieceKey_;
    std::int64_t pieceOffset_ = 0;
};

}  // namespace halvtiv::ado
