#include "engine/built_in_functions.hpp"

#include <array>

#include "platform/text.hpp"

namespace halvtiv {

namespace {

struct BuiltIn {
    std::string_view name;
    BuiltInHandler handler;  // null: the name is reserved, and a call of it answers as not implemented
};

constexpr std::array kBuiltIns{
    BuiltIn{"public.getdata", BuiltIn_GetData},
    BuiltIn{"public.getdatatofile", BuiltIn_GetDataToFile},
    BuiltIn{"public.getdatatoexportfile", BuiltIn_GetDataToExportFile},
    BuiltIn{"public.adddata", nullptr},
    BuiltIn{"public.updatedata", nullptr},
    BuiltIn{"public.deletedata", nullptr},
    BuiltIn{"public.executesql", BuiltIn_ExecuteSQL},
    BuiltIn{"public.getbinarydata", nullptr},
    BuiltIn{"public.setbinarydata", nullptr},
    BuiltIn{"public.deletebinarydata", nullptr},
    BuiltIn{"public.getcomplexdata", BuiltIn_GetComplexData},
    BuiltIn{"public.updatedatacoladd", nullptr},
    BuiltIn{"public.updatedataex", nullptr},
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
