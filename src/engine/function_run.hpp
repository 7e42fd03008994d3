#pragma once

#include <string>
#include <string_view>

#include "engine/engine_state.hpp"

namespace halvtiv {

/// `ZorbDbAccessEngine::RunFunction`.
bool RunFunction(EngineState& engine, std::string_view functionXml, std::string& resultXml);

}  // namespace halvtiv
