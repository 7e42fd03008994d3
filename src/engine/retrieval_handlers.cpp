#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

#include "documents/call_inside.hpp"
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
    /// definition - name or value missing."
    explicit ReferencedColumns(ZorbColumnDataItemsPtr items) : items_(std::move(items)) {
        if (!items_) return;
        for (const ZorbColumnDataItemPtr& item : *items_) {
            if (item->Name.empty() || item->Value.empty()) {
                RaiseEngineError("Invalid referenced column definition - name or value missing.");
            }
        }
    }

    void RequireIn(ado::Fields& fields) const {
        if (!items_) return;
        for (const ZorbColumnDataItemPtr& item : *items_) RequireColumn(fields, item->Value);
    }

    /// The query for one parent row: the placeholders of the template replaced, one after the other.
    std::string Fill(std::string query, const std::vector<std::string>& values) const {
        if (!items_) return query;
        for (std::size_t index = 0; index < values.size(); ++index) {
            const ZorbColumnDataItemPtr item = items_->Item(static_cast<std::int32_t>(index) + 1);
            query = platform::ReplaceAll(query, "%" + item->Name + "%", values[index]);
        }
        return query;
    }

    /// What the placeholders stand for in the current row.
    std::vector<std::string> ValuesOf(ado::Fields& fields) const {
        std::vector<std::string> values;
        if (!items_) return values;
        for (const ZorbColumnDataItemPtr& item : *items_) {
            const std::string text = fields.Item(item->Value)->Value().Text();
            const std::string_view trimmed = platform::TrimBlanks(text);
            values.push_back(item->ExtraValue == "quoted" ? EscapeSqlQuotes(trimmed) : std::string(trimmed));
        }
        return values;
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

    ZorbColumnDataItemsPtr items_;
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
        const ReferencedColumns referenced(CallInside::FindBlock(call, "refcols"));

        // Read twice: into the result, then row by row for the children.
        ado::RecordsetPtr parent = OpenData(engine, sql, ado::adOpenDynamic);
        referenced.RequireIn(parent->Fields());
        AddRows(result, guid, parent, dataFolder);

        std::int32_t rowNumber = 0;
        if (!parent->IsBOF()) parent->MoveFirst();
        while (!parent->IsEOF()) {
            rowNumber = NextRowNumber(rowNumber);
            const std::vector<std::string> values = referenced.ValuesOf(parent->Fields());
            for (std::size_t child = 0; child < templates.size(); ++child) {
                ado::RecordsetPtr rows =
                    OpenData(engine, referenced.Fill(templates[child], values), ado::adOpenForwardOnly);
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
