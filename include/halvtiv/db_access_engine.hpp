#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/ado.hpp>
#include <halvtiv/column_data_items.hpp>
#include <halvtiv/data_exporter.hpp>
#include <halvtiv/export.hpp>

namespace halvtiv {

/// A value that a call gives for a column which is not there.
struct UnusedItem {
    std::string Name;     ///< as the call spells it
    std::string Nearest;  ///< a column of a similar name; "" where none is
};

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

    /// Runs the calls of a transaction in order, all or nothing, and hands over their results, merged into
    /// one under the transaction's name and GUID, as XML text. The first call that fails ends it: everything
    /// is rolled back and the text is that call's own result, with its error entry. Also false: a text that
    /// cannot be read or a database transaction that cannot begin (the result is empty), and a call that
    /// cannot be compiled (the result is a document without entries).
    ///
    /// A lost connection is opened again, where `ReConnectInterval` allows it, before the transaction begins,
    /// not within it. Within a transaction that the caller has begun on the connection this one nests, and a
    /// run that fails before it has begun one rolls back the caller's. Guarded.
    ///
    /// True with a last error means one of two things. The commit failed, and the transaction is not known to
    /// be stored: the words begin with "The commit failed: " and go on with the database's, whose number and
    /// source they carry. Or it is committed and only the result could not be saved, which is empty then: the
    /// words are the result's ("ZorbFunctionResult:...", or "Out of memory." alone).
    bool RunTransaction(std::string_view sTransXml, std::string& sResultXml);

    /// Stops what runs on the connection: its statement, update or copy of a long value fails with number
    /// -2147217842, and the call ends as after any other failure. From any thread, as the only member;
    /// without a call under way it does nothing. Not guarded.
    void Cancel();

    /// Loads function definitions from a file (by its byte order mark or declared encoding), adding to
    /// those loaded before and replacing those of the same name. sLoadLog is set to a report with a line a
    /// definition; true even when definitions failed, for the report tells. Among what fails a definition is
    /// a "provider" that is no known database, and an "extra" that is written but is not "quote" or "quoted".
    /// Guarded.
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
    /// Sets what long work reports its progress to. Exporters report rows: each gets the updater before it
    /// runs, and keeps the one that it has where this is null, the default. The engine itself reports bytes
    /// while a file moves into a column or a long column into a file by `public.getbinarydata`; what the
    /// updater raises then ends the call. Files of a data folder are not reported. Called on the thread that
    /// runs the request. Not guarded.
    void SetProgressUpdater(IProgressUpdaterPtr cProgUpdater);
    /// The filter text of a file dialog for all registered exporters. Not guarded.
    std::string GetExportFileFilterString();

    /// The items of a call's "data" block that name no column of the rows which the call writes: adding and
    /// changing pass over them. If the function writes no rows, every item is reported. The call is
    /// compiled and its columns are asked for; nothing is run. Returns false on failure, for example if the
    /// table does not exist yet. Guarded.
    bool FindUnusedItems(std::string_view sFunctionXml, std::vector<UnusedItem>& items);

    // Calls without XML: the function by its name, a parameter for each item's name and value; null means
    // none. Each answers whether the function succeeded and its answer could be read; the error is the last
    // error. All are guarded.

    /// Runs a function with a "data" block: XML text whose root holds a "col" a column; with a blank text,
    /// without a block.
    bool SimpleAddDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                           std::string_view sDataXml);
    /// The same.
    bool SimpleUpdateDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                              std::string_view sDataXml);
    /// Runs a function that reads. sOutput is XML text: the first row, as a "row" of "col"s, in item form,
    /// the whole entry otherwise; "" when there is no row.
    bool SimpleGetDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                           std::string& sOutput, bool bItemForm);
    /// Runs a function of which only the success counts.
    bool SimpleDeleteDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams);
    /// Runs any function. sOutput, where given, becomes XML text: row 1 as it stands in the result, or "",
    /// in item form, the whole entry otherwise; a failure leaves it as it was.
    bool SimpleExecuteSQL(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                          std::string* sOutput = nullptr, bool bItemForm = false);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
using ZorbDbAccessEnginePtr = std::shared_ptr<ZorbDbAccessEngine>;

}  // namespace halvtiv
