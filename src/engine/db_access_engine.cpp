#include <halvtiv/db_access_engine.hpp>

#include <utility>

#include <halvtiv/connection_string.hpp>
#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "documents/result_hand_over.hpp"
#include "engine/dispatcher.hpp"
#include "engine/engine_state.hpp"
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

bool ZorbDbAccessEngine::RunFunction(std::string_view sFunctionXml, std::string& sResultXml) {
    bool done = false;
    Succeeds(
        impl_->errors,
        [&] {
            ZorbFunctionCall call;
            ZorbFunctionResult result;
            const bool parsed = call.Parse(sFunctionXml);
            sResultXml.clear();  // not before: the caller may give one text for both
            if (!parsed) call.RaiseLastError();
            CompileCall(*impl_, call);
            ExecuteBuiltInFunction(*impl_, call, result);
            done = true;  // a result that cannot be saved is the engine's last error, no failed call
            if (!ResultHandOver::Save(result, sResultXml)) result.RaiseLastError();
        },
        [&] {
            if (!done) sResultXml.clear();
        });
    return done;
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

}  // namespace halvtiv
