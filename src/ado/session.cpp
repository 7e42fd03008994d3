#include <utility>

#include "ado/errors.hpp"
#include "ado/provider.hpp"

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

}  // namespace halvtiv::ado
