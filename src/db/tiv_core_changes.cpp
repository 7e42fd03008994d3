// The database core: changing rows.

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ado/data_type_traits.hpp"
#include "ado/errors.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/table_name.hpp"
#include "db/row_loops.hpp"
#include "db/tiv_core.hpp"
#include "db/variant_addition.hpp"
#include "foundation/guarded.hpp"
#include "platform/number.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

constexpr std::int32_t kText = 0;  // what an item's value is, by its type
constexpr std::int32_t kFile = 1;
constexpr std::int32_t kNoColumn = -1;

void AssignText(ado::RecordsetState& rows, std::int32_t column, std::string_view text) {
    rows.Edit().Assign(column, text.empty() ? ado::Variant() : ado::Variant(text));
}

constexpr bool IsNumericType(std::int32_t type) noexcept {
    return ado::IsDecimalType(type) || (type >= ado::adSmallInt && type <= ado::adDouble) ||
           (type >= ado::adTinyInt && type <= ado::adUnsignedBigInt);
}

/// The number in a column whose type does not hold it, which SQLite permits; nothing for all other values.
std::optional<ado::Variant> NumberOfOtherType(const ado::CellValue& cell, const ado::Variant& current,
                                              std::int32_t type) {
    if (current.AsInteger() || current.AsDouble() || current.AsDecimal()) return std::nullopt;
    const bool isTruth = current.AsBool() && (cell.integer == 0 || cell.integer == 1);
    if (cell.kind == ado::CellKind::Integer && !isTruth) return ado::Variant(cell.integer);
    if (cell.kind == ado::CellKind::Double) return ado::Variant(cell.number);
    if (!current.AsText() || !IsNumericType(type)) return std::nullopt;
    const auto number = platform::ParseNumber(platform::TrimBlanks(*current.AsText()));
    return number ? std::optional(ado::Variant(*number)) : std::nullopt;
}

void AddToValue(ado::RecordsetState& rows, std::int32_t column, std::string_view text) {
    const ado::Variant current = rows.FieldAt(column)->Value();
    const auto type = rows.Columns()[static_cast<std::size_t>(column)].type;
    const auto cell = rows.ReadRow([column](ado::RowSource& row) { return row.Value(column); });
    if (current.IsNull()) {
        AssignText(rows, column, text);
    } else if (const auto number = NumberOfOtherType(cell, current, type)) {
        rows.Edit().AssignNumber(column, AddText(*number, text));
    } else {
        rows.Edit().AssignSum(column, AddText(current, text));
    }
}

/// What the provider says of a key that is there already, in words for the person at the keyboard.
[[noreturn]] void RaiseAddFailure(ErrorInfo error) {
    constexpr auto kViolation = static_cast<std::int32_t>(ado::AdoError::ConstraintViolation);
    if (error.Number == kViolation && error.Description.find("UNIQUE") != std::string::npos) {
        error.Description = "The field you input that required unique has already been existed.";
    }
    throw error;
}

}  // namespace

ado::RecordsetPtr clsZorbTivCore::OpenToChange(std::string_view sql) const {
    return ado::RecordsetState::OpenRows(sql, connection_, ado::adOpenDynamic, ado::adLockOptimistic);
}

clsZorbTivCore::Assignments clsZorbTivCore::Match(const ado::RecordsetState& rows,
                                                  const ZorbColumnDataItems& items) {
    Assignments matched;
    std::int32_t column = 0;
    for (const ado::ColumnInfo& info : rows.Columns()) {
        const ZorbColumnDataItemPtr item = items.GetItemByName(info.name, 1);
        const bool counts = item && (item->DataType == kText || item->DataType == kFile);
        // Of columns with one name, the first is meant.
        if (counts && ado::FindColumn(rows.Columns(), info.name) == column) matched.push_back({column, item});
        ++column;
    }
    return matched;
}

std::vector<std::string> clsZorbTivCore::ColumnsToChange(std::string_view sql) const {
    const std::string text = ado::CommandTextOf(sql);
    ado::SqlScanner scanner(text);
    std::vector<std::string> columns;
    if (!scanner.Next().IsWord("select")) return columns;
    for (ado::SqlToken token = scanner.Next(); token.kind != ado::SqlToken::Kind::End;) {
        const bool isEnd = token.IsSymbol(';');
        token = scanner.Next();
        if (isEnd && token.kind != ado::SqlToken::Kind::End) return columns;
    }
    const ado::RecordsetPtr recordset = OpenToChange(sql);
    for (const ado::ColumnInfo& info : ado::RecordsetState::Of(recordset).Columns()) {
        columns.push_back(info.name);
    }
    return columns;
}

void clsZorbTivCore::AssignFile(ado::RecordsetState& rows, std::int32_t column, std::string_view filePath) {
    if (!WriteFileToField(rows, column, filePath)) errors_.Raise();
}

std::int32_t clsZorbTivCore::AddData(std::string_view sql, const ZorbColumnDataItems* items) {
    return Guarded(errors_, -1, [&] {
        InsertRow(sql, items);
        return 1;
    });
}

void clsZorbTivCore::InsertRow(std::string_view sql, const ZorbColumnDataItems* items) {
    if (items == nullptr) throw OwnError("clsZorbTivCore", "Invalid data parametner to added.");
    try {
        const ado::RecordsetPtr recordset = OpenToChange(sql);
        auto& rows = ado::RecordsetState::Of(recordset);
        rows.AddNew();
        for (const auto& [column, item] : Match(rows, *items)) {
            if (item->Value.empty()) continue;
            if (item->DataType == kFile) {
                AssignFile(rows, column, item->Value);
            } else {
                AssignText(rows, column, item->Value);
            }
        }
        rows.Update();
        recordset->Close();
    } catch (const ErrorInfo& error) {
        RaiseAddFailure(error);
    }
}

void clsZorbTivCore::AssignAll(ado::RecordsetState& rows, const Assignments& assignments,
                               std::int32_t addColumn) {
    for (const auto& [column, item] : assignments) {
        if (item->DataType == kFile && !item->Value.empty()) {
            AssignFile(rows, column, item->Value);
        } else if (item->DataType == kText && column == addColumn) {
            AddToValue(rows, column, item->Value);
        } else {
            AssignText(rows, column, item->Value);
        }
    }
}

void clsZorbTivCore::UpdateRows(ado::RecordsetState& rows, const ZorbColumnDataItems* items,
                                std::string_view addColumn, RowCount& count) {
    if (rows.AtEnd()) return;
    if (items == nullptr) platform::RaiseRunTimeError(platform::RunTimeError::ObjectNotSet);
    const Assignments assignments = Match(rows, *items);
    std::vector<std::int32_t> columns;
    for (const Assignment& assignment : assignments) columns.push_back(assignment.column);
    rows.PassOnce(std::move(columns));
    const std::int32_t addTo = addColumn.empty() ? kNoColumn : ado::FindColumn(rows.Columns(), addColumn);
    ForEachRow(rows, count, [&] {
        AssignAll(rows, assignments, addTo);
        rows.Update();
    });
}

std::int32_t clsZorbTivCore::UpdateData(std::string_view sql, const ZorbColumnDataItems* items) {
    return ChangeRows(
        sql, [&](ado::RecordsetState& rows, RowCount& count) { UpdateRows(rows, items, {}, count); });
}

std::int32_t clsZorbTivCore::UpdateDataEx(std::string_view sql, const ZorbColumnDataItems* items) {
    return UpdateOrAdd(sql, {}, items);
}

std::int32_t clsZorbTivCore::UpdateDataColAdd(std::string_view sql, std::string_view addColumn,
                                              const ZorbColumnDataItems* items) {
    return UpdateOrAdd(sql, addColumn, items);
}

// The look and the insertion are one, so that two that find no row do not both insert it.
std::int32_t clsZorbTivCore::UpdateOrAdd(std::string_view sql, std::string_view addColumn,
                                         const ZorbColumnDataItems* items) {
    return ChangeRows(sql, [&](ado::RecordsetState& rows, RowCount& count) {
        if (rows.AtEnd()) {
            InsertRow(sql, items);
            count.done = 1;
        } else {
            UpdateRows(rows, items, addColumn, count);
        }
    });
}

std::int32_t clsZorbTivCore::DeleteData(std::string_view sql) {
    return ChangeRows(sql, [](ado::RecordsetState& rows, RowCount& count) {
        rows.PassOnce({});
        ForEachRow(rows, count, [&rows] { rows.Delete(); });
    });
}

}  // namespace halvtiv
