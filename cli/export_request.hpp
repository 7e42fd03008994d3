#pragma once

#include <halvtiv/db_access_engine.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "options.hpp"

namespace halvtiv::cli {

/// The function that an export is of. The engine exports what calls of "public.getdatatoexportfile" query, so
/// functions that only read, with the same parameters, are made such calls.
class ExportedFunction {
public:
    /// The request with what `halvtiv export` adds to it: where the rows go and how. Raises `CommandError`
    /// (not run) for a request that cannot be read and a file whose extension no exporter handles.
    ExportedFunction(const Options& options, std::string_view requestXml);

    const std::string& RequestXml() const noexcept { return requestXml_; }

    /// Of a definition file's text that the engine has loaded: loads the function's definitions again, as an
    /// export.
    void TakeDefinitions(ZorbDbAccessEngine& engine, std::string_view definitionsXml);

    /// After all definitions: raises `CommandError` (not run) when the function does something else than read
    /// rows on that database.
    void RequireExportable(std::string_view database) const;

private:
    /// What a body of the function is based on.
    struct Body {
        std::string base;                      ///< a built-in function
        std::optional<std::string> databases;  ///< the names of those it is for; none: for all others
    };
    std::string BaseFor(std::string_view database) const;

    std::string name_;          ///< as in the request
    std::vector<Body> bodies_;  ///< none while the function is not known
    std::string requestXml_;
};

}  // namespace halvtiv::cli
