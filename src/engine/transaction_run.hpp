#pragma once

#include <string>
#include <string_view>

#include "engine/engine_state.hpp"

namespace halvtiv {

/// `ZorbDbAccessEngine::RunTransaction`.
bool RunTransaction(EngineState& engine, std::string_view transactionXml, std::string& resultXml);

}  // namespace halvtiv
