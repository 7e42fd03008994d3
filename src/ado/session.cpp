#include "ado/errors.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

void Session::RaiseUnusable() const {
    if (IsClosed()) RaiseAdoError(AdoError::InvalidConnection);
    throw MakeProviderError(AdoError::Unspecified, kConnectionLost, DatabaseName());
}

}  // namespace halvtiv::ado
