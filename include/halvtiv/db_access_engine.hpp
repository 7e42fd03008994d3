#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/ado.hpp>
#include <halvtiv/data_exporter.hpp>
#include <halvtiv/export.hpp>

namespace halvtiv {

/// The engine: give it a connection and function definitions, then send it requests.
///
/// An engine owns its connection, its definitions and its list of exporters; engines share nothing. Use one
/// engine from one thread at a time; different engines may run in different threads.
///
/// A *guarded* member clears the last error, lets no exception out and, when it fails, keeps the reason
/// for `GetLastError` and returns false or null. The others neither touch the last error nor catch
/// anything; each says which it is.
class HALVTIV_API ZorbDbAccessEngine {
public:
    ZorbDbAccessEngine();
    ~ZorbDbAccessEngine();
    ZorbDbAccessEngine(const ZorbDbAccessEngine&) = delete;
    ZorbDbAccessEngine& operator=(const ZorbDbAccessEngine&) = delete;

    /// Number of registered exporters. Not guarded.
    std::int32_t DataExporterCount() const;
    /// Seconds that must lie between two attempts to reconnect; -1, the default, means never, 0 always.
    /// A smaller number is ignored. Not guarded.
    std::int32_t ReConnectInterval() const;
    void ReConnectInterval(std::int32_t nSeconds);

    /// Raises the last error again; false when there is none.
    bool RaiseLastError() const;
    /// The last error as text with its number; "" when there is none.
    std::string GetLastError() const;

    /// Whether there is a connection and it is open. Not guarded.
    bool IsConnectionOK();
    /// Opens a connection with the given string, or the one that `SetDatabaseConnectionString` last opened,
    /// when `ReConnectInterval` allows it. Any earlier connection is closed. Guarded.
    bool ReConnect(std::string_view sConnectionString = {});
    /// Closes the connection and drops it, ignoring errors; starts the reconnect interval. Not guarded.
    void DisConnect();
    /// The current connection: null, closed or open. Not guarded.
    ado::ConnectionPtr GetDatabaseConnection();
    /// Opens a connection (3 seconds to connect, no limit for a command) and remembers the string for
    /// `ReConnect`. Any earlier connection is closed, also when this one fails. Guarded.
    ado::ConnectionPtr SetDatabaseConnectionString(std::string_view sConnectionString);
    /// Opens a database file. The string is not remembered for `ReConnect`. Guarded.
    ado::ConnectionPtr SetDatabaseConnection_MDBFile(std::string_view sFile, std::string_view sUserID,
                                                     std::string_view sPassword);

    /// Runs one call and hands its result over as XML text. A failure of the function itself is an error
    /// entry in the result and `GetLastError`, and the answer is still true; false, with an empty text,
    /// means that the request could not be read or that its function is unknown or was given wrong
    /// values. Guarded.
    bool RunFunction(std::string_view sFunctionXml, std::string& sResultXml);

    /// Loads function definitions from a file (by its byte order mark or declared encoding), adding to
    /// those loaded before and replacing those of the same name. sLoadLog is set to a report with a line a
    /// definition; true even when definitions failed, for the report tells. Guarded.
    bool LoadFunctionDefs(std::string_view sFilename, std::string& sLoadLog);
    /// The same from XML text. Guarded.
    bool LoadFunctionDefsXml(std::string_view sXml, std::string& sLoadLog);
    /// Forgets a definition. "Specified function not found - NAME." Guarded.
    bool RemoveFunctionDef(std::string_view sName);
    /// Forgets all definitions. Not guarded.
    void RemoveAllFunctionDefs();
    /// Whether a definition of that name, in any letter case, is loaded; built-in names are not. Not guarded.
    bool IsFunctionDefined(std::string_view sName);

    /// Registers an exporter, at the end of the list. "No exporter specified." Guarded.
    bool AddDataExporter(const IZorbDataExporterPtr& cExporter);
    /// Sets what exporters report their progress to: each gets it before it runs. Null, the default:
    /// exporters keep the one that they have. Not guarded.
    void SetProgressUpdater(IProgressUpdaterPtr cProgUpdater);
    /// The filter text of a file dialog for all registered exporters. Not guarded.
    std::string GetExportFileFilterString();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
using ZorbDbAccessEnginePtr = std::shared_ptr<ZorbDbAccessEngine>;

}  // namespace halvtiv
