#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "documents/call_inside.hpp"
#include "documents/placeholders.hpp"
#include "engine/built_in_functions.hpp"
#include "engine/handler_steps.hpp"
#include "foundation/guarded.hpp"
#include "foundation/this_utils.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

/// How the values of a parent's row come into the queries for its children.
class ReferencedColumns {
public:
    /// items: name is the placeholder, value the parent's column; null for none. "Invalid referenced column
    /// definition - name or value missing.", "Invalid extra of referenced column - "NAME" (...)."
    ReferencedColumns(const ZorbColumnDataItems* items, FilledText sql) : sql_(sql) {
        if (items == nullptr) return;
        for (const ZorbColumnDataItemPtr& item : *items) {
            if (item->Name.empty() || item->Value.empty()) {
                RaiseEngineError("Invalid referenced column definition - name or value missing.");
            }
            columns_.push_back({item->Value, DoublesQuotes(*item)});
            placeholders_.Add(item->Name, {});
        }
    }

    void RequireIn(ado::Fields& fields) const {
        for (const Column& column : columns_) RequireColumn(fields, column.name);
    }

    /// Takes the values of the current row.
    void Read(ado::Fields& fields) {
        for (std::size_t index = 0; index < columns_.size(); ++index) {
            const std::string text = fields.Item(columns_[index].name)->Value().Text();
            const std::string_view trimmed = platform::TrimBlanks(text);
            placeholders_.SetValue(
                index, columns_[index].doublesQuotes ? EscapeSqlQuotes(trimmed) : std::string(trimmed));
        }
    }

    /// The query for the row that was read.
    std::string Fill(std::string query) const {
        std::size_t room = placeholders_.Room(query.size());
        if (!placeholders_.Fill(query, sql_, room)) {
            RaiseEngineError("Child query too long after substitution.");
        }
        return query;
    }

private:
    // Looks one position beyond the last column, where the data layer raises its own error.
    static void RequireColumn(ado::Fields& fields, const std::string& column) {
        const std::int32_t count = fields.Count();
        for (std::int32_t index = 0; index <= count; ++index) {
            if (platform::EqualIgnoringCase(fields.Item(index)->Name(), column)) return;
        }
        RaiseEngineError("Specified referenced column not found in parent data - " + column);
    }

    /// The element's text, which stands for an extra and for a value that are not written, is no misspelling.
    static bool DoublesQuotes(const ZorbColumnDataItem& item) {
        const std::optional<bool> doubles = halvtiv::DoublesQuotes(item.ExtraValue);
        if (!doubles && item.ExtraValue != item.Value) {
            RaiseEngineError("Invalid extra of referenced column - \"" + item.Name + "\" (\"" +
                             item.ExtraValue + "\" is not \"quoted\").");
        }
        return doubles.value_or(false);
    }

    struct Column {
        std::string name;
        bool doublesQuotes;
    };
    std::vector<Column> columns_;
    Placeholders placeholders_;
    FilledText sql_;
};

std::int32_t NextRowNumber(std::int32_t rowNumber) {
    if (rowNumber == std::numeric_limits<std::int32_t>::max()) {
        platform::RaiseRunTimeError(platform::RunTimeError::Overflow);
    }
    return rowNumber + 1;
}

}  // namespace

bool BuiltIn_GetData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Succeeds(engine.errors, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string dataFolder = CallInside::ParamValue(call, "datafolder");
        ado::RecordsetPtr recordset = OpenData(engine, sql, ado::adOpenForwardOnly);
        AddRows(result, CallInside::Guid(call), recordset, dataFolder);
        recordset->Close();
    });
}

bool BuiltIn_GetComplexData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    return Succeeds(engine.errors, [&] {
        const std::string_view sql = RequireSql(call);
        const std::string dataFolder = CallInside::ParamValue(call, "datafolder");
        const std::string& guid = CallInside::Guid(call);

        std::vector<std::string> templates;
        const std::int32_t count = call.GetParamArray("csql", templates);
        if (count < 0) call.RaiseLastError();  // a call without any has no error: the parent comes alone
        if (count == 0) RaiseEngineError("No child table specified for complex data.");
        ReferencedColumns referenced(CallInside::FindBlock(call, "refcols").get(),
                                     SqlFor(engine.core.DatabaseName()));

        // Read twice: into the result, then row by row for the children.
        ado::RecordsetPtr parent = OpenData(engine, sql, ado::adOpenDynamic);
        referenced.RequireIn(parent->Fields());
        AddRows(result, guid, parent, dataFolder);

        std::int32_t rowNumber = 0;
        if (!parent->IsBOF()) parent->MoveFirst();
        while (!parent->IsEOF()) {
            rowNumber = NextRowNumber(rowNumber);
            referenced.Read(parent->Fields());
            for (std::size_t child = 0; child < templates.size(); ++child) {
                ado::RecordsetPtr rows =
                    OpenData(engine, referenced.Fill(templates[child]), ado::adOpenForwardOnly);
                AddRows(result, guid + "." + std::to_string(rowNumber) + "." + std::to_string(child + 1),
                        rows, dataFolder);
                rows->Close();
            }
            parent->MoveNext();
        }
        parent->Close();
    });
}

}  // namespace halvtiv
