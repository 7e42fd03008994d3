#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/odbc/odbc_session.hpp"
#include "ado/odbc/odbc_types.hpp"
#include "ado/spooled_bytes.hpp"

namespace halvtiv::ado {

/// The rows of a running statement as its driver gives them: short cells in blocks into bound memory, the
/// others one by one when they are asked for.
class OdbcRows {
public:
    /// The statement runs, and stays as long as this object.
    OdbcRows(OdbcSession& session, SQLHSTMT statement, std::span<const OdbcColumn> columns);
    ~OdbcRows();
    OdbcRows(const OdbcRows&) = delete;
    OdbcRows& operator=(const OdbcRows&) = delete;

    /// Goes to the next row; false at the end.
    bool Next();

    // Of the current row. What is returned is valid until the next call.
    bool IsNull(std::int32_t column);
    /// The cell as its form says: a number, a struct, or the whole of a text in UTF-8.
    std::string_view Bytes(std::int32_t column);
    /// The bytes of a text or of bytes.
    std::int64_t Size(std::int32_t column);
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece);

private:
    struct Bound {
        std::vector<char> cells;  // of a block, one behind the other
        std::vector<SQLLEN> lengths;
    };
    /// A cell of the current row that has been fetched by itself: in memory up to a bound.
    struct Fetched {
        bool isThere = false;
        bool isNull = false;
        std::string memory;
        std::unique_ptr<SpooledBytes> spooled;
    };

    void Bind(SQLULEN rowsWanted);
    void Unbind() noexcept;
    /// Whether the cell in bound memory is whole.
    bool IsWhole(std::int32_t column) const;
    std::string_view BoundBytes(std::int32_t column) const;
    Fetched& Fetch(std::int32_t column);
    void FetchCell(std::int32_t column);
    void Keep(Fetched& cell, std::string_view bytes);

    OdbcSession& session_;
    SQLHSTMT statement_;
    std::span<const OdbcColumn> columns_;
    std::vector<Bound> bound_;
    std::vector<Fetched> fetched_;
    std::vector<SQLUSMALLINT> rowStates_;
    SQLULEN rowsInBlock_ = 0;
    SQLULEN row_ = 0;  // in the block, from 0
    SQLULEN blockSize_ = 1;
    bool isPlaced_ = false;    // the driver stands on the current row
    bool hasFetched_ = false;  // a cell of the current row
    bool ended_ = false;
    std::string text_;
    std::vector<char> piece_;
};

}  // namespace halvtiv::ado
