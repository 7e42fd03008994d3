#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <halvtiv/column_data_items.hpp>

#include "engine/engine_state.hpp"

namespace halvtiv {

// The engine's `Simple...` members.

/// With data: a block "data" from that text, unless it is blank.
bool SimpleCall(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
                std::optional<std::string_view> dataXml = std::nullopt);
bool SimpleGet(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
               std::string& output, bool itemForm);
bool SimpleExecute(EngineState& engine, std::string_view function, const ZorbColumnDataItems* params,
                   std::string* output, bool itemForm);

}  // namespace halvtiv
