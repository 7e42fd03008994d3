// The database core: files into binary and long columns, and out of them.

#include <memory>
#include <string>
#include <utility>

#include "ado/value_file.hpp"
#include "db/row_loops.hpp"
#include "db/tiv_core.hpp"
#include "foundation/guarded.hpp"
#include "foundation/this_utils.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kNoSuchField = "Specified field not found.";
constexpr std::string_view kNotBinaryOrLong = "Not a valid field (neither binary nor long).";
constexpr std::string_view kWrongWay = "Not a valid field.";

std::int32_t RequireColumn(const ado::RecordsetState& rows, std::string_view name) {
    const std::int32_t column = ado::FindColumn(rows.Columns(), platform::TrimBlanks(name));
    if (column < 0) throw OwnError("clsZorbTivCore", std::string(kNoSuchField));
    return column;
}

const ado::ColumnInfo& InfoOf(const ado::RecordsetState& rows, std::int32_t column) {
    return rows.Columns()[static_cast<std::size_t>(column)];
}

bool IsLong(const ado::RecordsetState& rows, std::int32_t column) {
    return (InfoOf(rows, column).attributes & ado::adFldLong) != 0;
}

void Require(bool condition, std::string_view message) {
    if (!condition) throw OwnError("clsZorbTivCore", std::string(message));
}

void AssignNull(ado::RecordsetState& rows, std::int32_t column) {
    rows.Edit().Assign(column, ado::Variant());
}

}  // namespace

std::int32_t clsZorbTivCore::GetBinaryData(std::string_view sql, std::string_view fieldName,
                                           std::string_view filePath) {
    return Guarded(errors_, -1, [&] {
        const ado::RecordsetPtr recordset =
            ado::RecordsetState::OpenRows(sql, connection_, ado::adOpenForwardOnly, ado::adLockReadOnly);
        auto& rows = ado::RecordsetState::Of(recordset);
        Require(!rows.AtEnd(), "No data retrieved from database.");
        if (!ReadFieldToFile(rows, RequireColumn(rows, fieldName), filePath)) errors_.Raise();
        recordset->Close();
        return 1;
    });
}

std::int32_t clsZorbTivCore::SetBinaryData(std::string_view sql, std::string_view fieldName,
                                           std::string_view filePath) {
    bool begun = false;
    return Guarded(
        errors_, -1,
        [&] {
            RequireConnection().BeginTrans();
            begun = true;
            const ado::RecordsetPtr recordset = OpenToChange(sql);
            auto& rows = ado::RecordsetState::Of(recordset);
            Require(!rows.AtEnd(), "Specified data not found.");
            const std::int32_t column = RequireColumn(rows, fieldName);
            rows.PassOnce({column});
            rows.UndoneTogether();
            RowCount count;
            ForEachRow(rows, count, [&] {
                if (filePath.empty()) {
                    AssignNull(rows, column);
                } else {
                    AssignFile(rows, column, filePath);
                }
                rows.Update();
            });
            recordset->Close();
            begun = false;  // a commit that fails leaves nothing to roll back
            connection_->CommitTrans();
            return count.done;
        },
        [&] {
            if (begun) connection_->RollbackTrans();
        });
}

std::int32_t clsZorbTivCore::DeleteBinaryData(std::string_view sql, std::string_view fieldName) {
    return ChangeRows(sql, [&](ado::RecordsetState& rows, RowCount& count) {
        const std::int32_t column = RequireColumn(rows, fieldName);
        rows.PassOnce({column});
        ForEachRow(rows, count, [&] {
            AssignNull(rows, column);
            rows.Update();
        });
    });
}

bool clsZorbTivCore::WriteFileToField(ado::RecordsetState& rows, std::int32_t column,
                                      std::string_view filePath) {
    return Guarded(errors_, false, [&] {
        Require(IsBlobField(InfoOf(rows, column).type), kNotBinaryOrLong);
        return IsLong(rows, column) ? AppendFileChunks(rows, column, filePath)
                                    : PutFileValue(rows, column, filePath);
    });
}

// An empty file leaves the column as it was.
bool clsZorbTivCore::AppendFileChunks(ado::RecordsetState& rows, std::int32_t column,
                                      std::string_view filePath) {
    return Succeeds(errors_, [&] {
        Require(IsLong(rows, column), kWrongWay);
        const auto source = ado::OpenFileAsValue(filePath, copyProgress_);
        if (source->Size() > 0) rows.Edit().AssignSource(column, source);
    });
}

// An empty file makes the column null.
bool clsZorbTivCore::PutFileValue(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath) {
    return Succeeds(errors_, [&] {
        Require(!IsLong(rows, column), kWrongWay);
        const auto source = ado::OpenFileAsValue(filePath);
        Require(source->Size() <= InfoOf(rows, column).definedSize, "File size are too big for the field.");
        if (source->Size() < 1) return AssignNull(rows, column);
        ado::Bytes bytes(static_cast<std::size_t>(source->Size()));
        source->Read(0, bytes);
        rows.Edit().Assign(column, ado::Variant(std::move(bytes)));
    });
}

bool clsZorbTivCore::ReadFieldToFile(ado::RecordsetState& rows, std::int32_t column,
                                     std::string_view filePath) {
    return Guarded(errors_, false, [&] {
        Require(IsBlobField(InfoOf(rows, column).type), kNotBinaryOrLong);
        rows.RequireOtherFile(filePath);
        return IsLong(rows, column) ? GetFieldChunks(rows, column, filePath)
                                    : GetFieldValue(rows, column, filePath);
    });
}

bool clsZorbTivCore::GetFieldChunks(ado::RecordsetState& rows, std::int32_t column,
                                    std::string_view filePath) {
    return Succeeds(errors_, [&] {
        Require(IsLong(rows, column), kWrongWay);
        rows.ReadRow(
            [&](ado::RowSource& row) { ado::CopyValueToFile(row, column, filePath, copyProgress_); });
    });
}

bool clsZorbTivCore::GetFieldValue(ado::RecordsetState& rows, std::int32_t column,
                                   std::string_view filePath) {
    return Succeeds(errors_, [&] {
        Require(!IsLong(rows, column), kWrongWay);
        rows.ReadRow([&](ado::RowSource& row) { ado::CopyValueToFile(row, column, filePath); });
    });
}

}  // namespace halvtiv
