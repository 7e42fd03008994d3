#pragma once

#include <vector>

#include <halvtiv/db_access_engine.hpp>

#include "engine/engine_state.hpp"

namespace halvtiv {

/// The items of a compiled call's "data" block that its function passes over. Raises what fails.
std::vector<UnusedItem> FindUnusedItems(const EngineState& engine, const ZorbFunctionCall& call);

}  // namespace halvtiv
