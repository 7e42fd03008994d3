#include "engine/built_in_functions.hpp"

#include <array>

#include "platform/text.hpp"

namespace halvtiv {

namespace {

struct BuiltIn {
    std::string_view name;
    BuiltInHandler handler;
};

constexpr std::array kBuiltIns{
    BuiltIn{"public.getdata", BuiltIn_GetData},
    BuiltIn{"public.getdatatofile", BuiltIn_GetDataToFile},
    BuiltIn{"public.getdatatoexportfile", BuiltIn_GetDataToExportFile},
    BuiltIn{"public.adddata", BuiltIn_AddData},
    BuiltIn{"public.updatedata", BuiltIn_UpdateData},
    BuiltIn{"public.deletedata", BuiltIn_DeleteData},
    BuiltIn{"public.executesql", BuiltIn_ExecuteSQL},
    BuiltIn{"public.getbinarydata", BuiltIn_GetBinaryData},
    BuiltIn{"public.setbinarydata", BuiltIn_SetBinaryData},
    BuiltIn{"public.deletebinarydata", BuiltIn_DeleteBinaryData},
    BuiltIn{"public.getcomplexdata", BuiltIn_GetComplexData},
    BuiltIn{"public.updatedatacoladd", BuiltIn_UpdateDataColAdd},
    BuiltIn{"public.updatedataex", BuiltIn_UpdateDataEx},
};

constexpr auto kNames = [] {
    std::array<std::string_view, kBuiltIns.size()> names;
    for (std::size_t index = 0; index < names.size(); ++index) names[index] = kBuiltIns[index].name;
    return names;
}();

}  // namespace

BuiltInHandler FindBuiltInHandler(std::string_view name) {
    const std::string lower = platform::ToLower(name);
    for (const BuiltIn& builtIn : kBuiltIns) {
        if (builtIn.name == lower) return builtIn.handler;
    }
    return nullptr;
}

std::span<const std::string_view> BuiltInNames() {
    return kNames;
}

}  // namespace halvtiv
