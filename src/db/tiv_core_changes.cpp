// The database core: changing rows.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ado/errors.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/table_name.hpp"
#include "db/row_loops.hpp"
#include "db/tiv_core.hpp"
#include "db/variant_addition.hpp"
#include "foundation/guarded.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

constexpr std::int32_t kText = 0;  // what an item's value is, by its type
constexpr std::int32_t kFile = 1;
constexpr std::int32_t kNoColumn = -1;

/// The column of that name; -1 when there is none.
std::int32_t FindColumn(const ado::RecordsetState& rows, std::string_view name) {
    std::int32_t column = 0;
    for (const ado::ColumnInfo& info : rows.Columns()) {
        if (platform::EqualIgnoringCase(info.name, name)) return column;
        ++column;
    }
    return kNoColumn;
}

void AssignText(ado::RecordsetState& rows, std::int32_t column, std::string_view text) {
    rows.Edit().Assign(column, text.empty() ? ado::Variant() : ado::Variant(text));
}

void AddToValue(ado::RecordsetState& rows, std::int32_t column, std::string_view text) {
    const ado::Variant current = rows.FieldAt(column)->Value();
    if (current.IsNull()) {
        AssignText(rows, column, text);
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
    auto recordset = std::make_shared<ado::Recordset>();
    recordset->Open(sql, connection_, ado::adOpenDynamic, ado::adLockOptimistic);
    return recordset;
}

clsZorbTivCore::Assignments clsZorbTivCore::Match(const ado::RecordsetState& rows,
                                                  const ZorbColumnDataItems& items) {
    Assignments matched;
    std::int32_t column = 0;
    for (const ado::ColumnInfo& info : rows.Columns()) {
        const ZorbColumnDataItemPtr item = items.GetItemByName(info.name, 1);
        const bool counts = item && (item->DataType == kText || item->DataType == kFile);
        // Of columns with one name, the first is meant.
        if (counts && FindColumn(rows, info.name) == column) matched.push_back({column, item});
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
        return 1;
    });
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

std::int32_t clsZorbTivCore::UpdateRows(ado::RecordsetState& rows, const ZorbColumnDataItems* items,
                                        std::string_view addColumn) {
    if (rows.AtEnd()) return 0;
    if (items == nullptr) platform::RaiseRunTimeError(platform::RunTimeError::ObjectNotSet);
    const Assignments assignments = Match(rows, *items);
    std::vector<std::int32_t> columns;
    for (const Assignment& assignment : assignments) columns.push_back(assignment.column);
    rows.PassOnce(std::move(columns));
    const std::int32_t addTo = addColumn.empty() ? kNoColumn : FindColumn(rows, addColumn);
    return ForEachRow(rows, [&] {
        AssignAll(rows, assignments, addTo);
        rows.Update();
    });
}

std::int32_t clsZorbTivCore::UpdateData(std::string_view sql, const ZorbColumnDataItems* items) {
    return Guarded(errors_, -1, [&] {
        const ado::RecordsetPtr recordset = OpenToChange(sql);
        return InOneCommit(RequireConnection(), [&] {
            const std::int32_t count = UpdateRows(ado::RecordsetState::Of(recordset), items, {});
            recordset->Close();
            return count;
        });
    });
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
    return Guarded(errors_, -1, [&] {
        const ado::RecordsetPtr recordset = OpenToChange(sql);
        return InOneCommit(RequireConnection(), [&] {
            auto& rows = ado::RecordsetState::Of(recordset);
            const bool isThere = !rows.AtEnd();
            const std::int32_t count = UpdateRows(rows, items, addColumn);
            recordset->Close();
            return isThere ? count : AddData(sql, items);
        });
    });
}

std::int32_t clsZorbTivCore::DeleteData(std::string_view sql) {
    return Guarded(errors_, -1, [&] {
        const ado::RecordsetPtr recordset = OpenToChange(sql);
        return InOneCommit(RequireConnection(), [&] {
            auto& rows = ado::RecordsetState::Of(recordset);
            rows.PassOnce({});
            const std::int32_t count = ForEachRow(rows, [&rows] { rows.Delete(); });
            recordset->Close();
            return count;
        });
    });
}

}  // namespace halvtiv
