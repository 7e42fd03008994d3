#pragma once

#include <string>
#include <string_view>

#include <halvtiv/ado.hpp>
#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "engine/engine_state.hpp"

namespace halvtiv {

// Steps that handlers share. Each raises what fails.

/// The "sql" of a call, as it stands in it; "Invalid Xml - sql parameter missed." when it is empty.
std::string_view RequireSql(const ZorbFunctionCall& call);

/// The value of a call's parameter; raises the message when there is none or it is empty.
std::string RequireParam(const ZorbFunctionCall& call, std::string_view name, const char* message);

/// The "filename" of a call; "Invalid Xml - filename not specified." when it is empty.
std::string RequireFileName(const ZorbFunctionCall& call);

/// Opens a recordset on a query.
ado::RecordsetPtr OpenData(EngineState& engine, std::string_view sql, ado::CursorTypeEnum cursorType);

/// Adds a recordset's rows to the result.
void AddRows(ZorbFunctionResult& result, std::string_view guid, ado::RecordsetPtr& recordset,
             std::string_view dataFolder);

}  // namespace halvtiv
