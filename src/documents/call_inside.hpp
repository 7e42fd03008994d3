#pragma once

#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/function_call.hpp>

namespace halvtiv {

/// A call as the engine's own code sees it: nothing is guarded here, so that a failure is never taken for a
/// value that is missing. Names are compared trimmed and without regard to case.
struct CallInside {
    static const std::string& Name(const ZorbFunctionCall& call);
    static const std::string& Guid(const ZorbFunctionCall& call);

    static const ZorbColumnDataItems& Params(const ZorbFunctionCall& call);
    static ZorbColumnDataItems& Params(ZorbFunctionCall& call);
    /// The first parameter of that name, as long as the call is unchanged; null when there is none.
    static const ZorbColumnDataItem* FindParam(const ZorbFunctionCall& call, std::string_view name);
    /// Its value; "" when there is none.
    static std::string ParamValue(const ZorbFunctionCall& call, std::string_view name);

    static const std::vector<ZorbColumnDataItemsPtr>& Blocks(const ZorbFunctionCall& call);
    /// The first block of that name; null when there is none.
    static ZorbColumnDataItemsPtr FindBlock(const ZorbFunctionCall& call, std::string_view name);
    /// Appends a copy of a block and returns it.
    static ZorbColumnDataItemsPtr AddBlock(ZorbFunctionCall& call, const ZorbColumnDataItems& block);
};

}  // namespace halvtiv
