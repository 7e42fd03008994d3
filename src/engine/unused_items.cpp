#include "engine/unused_items.hpp"

#include <algorithm>
#include <array>
#include <string>

#include "documents/call_inside.hpp"
#include "engine/handler_steps.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"

namespace halvtiv {

std::vector<UnusedItem> FindUnusedItems(const EngineState& engine, const ZorbFunctionCall& call) {
    constexpr std::array<std::string_view, 4> kWriters{"public.adddata", "public.updatedata",
                                                       "public.updatedataex", "public.updatedatacoladd"};
    const auto isSameName = [](std::string_view wanted) {
        return [wanted](std::string_view name) { return platform::EqualIgnoringCase(name, wanted); };
    };
    std::vector<UnusedItem> unused;
    const ZorbColumnDataItemsPtr items = CallInside::FindBlock(call, "data");
    if (!items) return unused;
    std::vector<std::string> columns;
    if (std::any_of(kWriters.begin(), kWriters.end(), isSameName(CallInside::Name(call)))) {
        columns = engine.core.ColumnsToChange(RequireSql(call));
        if (columns.empty()) return unused;  // the columns are unknown
    }
    for (const ZorbColumnDataItemPtr& item : *items) {
        if (std::any_of(columns.begin(), columns.end(), isSameName(item->Name))) continue;
        const platform::NearestName nearest = platform::FindNearest(item->Name, columns);
        unused.push_back({item->Name, nearest.isNear ? std::string(nearest.name) : std::string()});
    }
    return unused;
}

}  // namespace halvtiv
