#include <array>
#include <utility>

#include "ado/errors.hpp"
#include "ado/provider.hpp"
#include "platform/files.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {

void Batch::CheckFirst(Purpose purpose, bool returnsRows, bool changesRows) {
    if (!std::exchange(requiresRows_, false)) return;
    if (!returnsRows) RaiseAdoError(AdoError::ObjectClosed);
    if (changesRows && purpose == Purpose::Change) RaiseAdoError(AdoError::NotSupported);
}

void Session::RaiseUnusable() const {
    if (IsClosed()) RaiseAdoError(AdoError::InvalidConnection);
    throw MakeProviderError(AdoError::Unspecified, kConnectionLost, DatabaseName());
}

void Session::RequireOtherFile(std::string_view path) const {
    constexpr std::array<std::string_view, 4> kEndings{"", "-journal", "-wal", "-shm"};
    for (const auto& file : Files()) {
        for (const auto ending : kEndings) {
            if (!platform::WouldReplace(path, file + std::string(ending))) continue;
            auto error = platform::MakeRunTimeError(platform::RunTimeError::PathAccess, path);
            error.Description += " It belongs to the open database.";
            throw error;
        }
    }
}

}  // namespace halvtiv::ado
