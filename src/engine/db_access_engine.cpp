#include <halvtiv/db_access_engine.hpp>

#include <utility>

#include <halvtiv/connection_string.hpp>

#include "engine/dispatcher.hpp"
#include "engine/engine_state.hpp"
#include "engine/function_run.hpp"
#include "engine/simple_calls.hpp"
#include "engine/transaction_run.hpp"
#include "engine/unused_items.hpp"
#include "foundation/guarded.hpp"
#include "platform/clock.hpp"

namespace halvtiv {

struct ZorbDbAccessEngine::Impl : EngineState {};

ZorbDbAccessEngine::ZorbDbAccessEngine() : impl_(std::make_unique<Impl>()) {}
ZorbDbAccessEngine::~ZorbDbAccessEngine() = default;

std::int32_t ZorbDbAccessEngine::DataExporterCount() const {
    return impl_->exporters.DataExporterCount();
}

std::int32_t ZorbDbAccessEngine::ReConnectInterval() const {
    return impl_->reConnectInterval;
}

void ZorbDbAccessEngine::ReConnectInterval(std::int32_t nSeconds) {
    if (nSeconds >= -1) impl_->reConnectInterval = nSeconds;
}

bool ZorbDbAccessEngine::RaiseLastError() const {
    return impl_->errors.Raise();
}

std::string ZorbDbAccessEngine::GetLastError() const {
    return impl_->errors.GetErrorMsg();
}

bool ZorbDbAccessEngine::IsConnectionOK() {
    return impl_->core.IsConnectionOK();
}

bool ZorbDbAccessEngine::ReConnect(std::string_view sConnectionString) {
    return impl_->ReConnect(sConnectionString);
}

void ZorbDbAccessEngine::DisConnect() {
    impl_->core.DisConnect();
    impl_->lastDisConnectTime = platform::CalendarSeconds();
}

ado::ConnectionPtr ZorbDbAccessEngine::GetDatabaseConnection() {
    return impl_->core.GetDatabaseConnection();
}

ado::ConnectionPtr ZorbDbAccessEngine::SetDatabaseConnectionString(std::string_view sConnectionString) {
    return Guarded(impl_->errors, ado::ConnectionPtr(), [&] {
        std::string remembered(sConnectionString);
        ado::ConnectionPtr connection = impl_->core.SetDatabaseConnectionString(sConnectionString);
        if (!connection) impl_->core.RaiseLastError();
        impl_->connectionString = std::move(remembered);
        return connection;
    });
}

ado::ConnectionPtr ZorbDbAccessEngine::SetDatabaseConnection_MDBFile(std::string_view sFile,
                                                                     std::string_view sUserID,
                                                                     std::string_view sPassword) {
    return Guarded(impl_->errors, ado::ConnectionPtr(), [&] {
        const ZorbConnectionString builder;
        ado::ConnectionPtr connection = impl_->core.SetDatabaseConnectionString(
            builder.GenerateConnectionString_Jet(sFile, sUserID, sPassword));
        if (!connection) impl_->core.RaiseLastError();
        return connection;
    });
}

void ZorbDbAccessEngine::Cancel() {
    impl_->core.Cancel();
}

bool ZorbDbAccessEngine::RunFunction(std::string_view sFunctionXml, std::string& sResultXml) {
    return halvtiv::RunFunction(*impl_, sFunctionXml, sResultXml);
}

bool ZorbDbAccessEngine::RunTransaction(std::string_view sTransXml, std::string& sResultXml) {
    return halvtiv::RunTransaction(*impl_, sTransXml, sResultXml);
}

bool ZorbDbAccessEngine::LoadFunctionDefs(std::string_view sFilename, std::string& sLoadLog) {
    return Succeeds(impl_->errors, [&] {
        if (!impl_->library.LoadFunctionDefs(sFilename, sLoadLog)) impl_->library.RaiseLastError();
    });
}

bool ZorbDbAccessEngine::LoadFunctionDefsXml(std::string_view sXml, std::string& sLoadLog) {
    return Succeeds(impl_->errors, [&] {
        if (!impl_->library.LoadFunctionDefsXml(sXml, sLoadLog)) impl_->library.RaiseLastError();
    });
}

bool ZorbDbAccessEngine::RemoveFunctionDef(std::string_view sName) {
    return Succeeds(impl_->errors, [&] {
        if (!impl_->library.RemoveItem(sName)) impl_->library.RaiseLastError();
    });
}

void ZorbDbAccessEngine::RemoveAllFunctionDefs() {
    impl_->library.RemoveAllItems();
}

bool ZorbDbAccessEngine::IsFunctionDefined(std::string_view sName) {
    return impl_->library.IsFunctionDefined(sName);
}

bool ZorbDbAccessEngine::AddDataExporter(const IZorbDataExporterPtr& cExporter) {
    return Succeeds(impl_->errors, [&] {
        if (!impl_->exporters.AddDataExporter(cExporter)) impl_->exporters.RaiseLastError();
    });
}

void ZorbDbAccessEngine::SetProgressUpdater(IProgressUpdaterPtr cProgUpdater) {
    impl_->progressUpdater = std::move(cProgUpdater);
}

std::string ZorbDbAccessEngine::GetExportFileFilterString() {
    return impl_->exporters.GetFileFilterString();
}

bool ZorbDbAccessEngine::FindUnusedItems(std::string_view sFunctionXml, std::vector<UnusedItem>& items) {
    return Succeeds(impl_->errors, [&] {
        ZorbFunctionCall call;
        if (!call.Parse(sFunctionXml)) call.RaiseLastError();
        CompileCall(*impl_, call);
        items = halvtiv::FindUnusedItems(*impl_, call);
    });
}

bool ZorbDbAccessEngine::SimpleAddDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                                           std::string_view sDataXml) {
    return SimpleCall(*impl_, sFunction, cParams, sDataXml);
}

bool ZorbDbAccessEngine::SimpleUpdateDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                                              std::string_view sDataXml) {
    return SimpleAddDataItem(sFunction, cParams, sDataXml);
}

bool ZorbDbAccessEngine::SimpleGetDataItem(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                                           std::string& sOutput, bool bItemForm) {
    return SimpleGet(*impl_, sFunction, cParams, sOutput, bItemForm);
}

bool ZorbDbAccessEngine::SimpleDeleteDataItem(std::string_view sFunction,
                                              const ZorbColumnDataItems* cParams) {
    return SimpleCall(*impl_, sFunction, cParams);
}

bool ZorbDbAccessEngine::SimpleExecuteSQL(std::string_view sFunction, const ZorbColumnDataItems* cParams,
                                          std::string* sOutput, bool bItemForm) {
    return SimpleExecute(*impl_, sFunction, cParams, sOutput, bItemForm);
}

}  // namespace halvtiv
