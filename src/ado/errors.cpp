#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

// No default: the compiler tells when a number has no words.
std::string_view FixedWords(AdoError error) noexcept {
    switch (error) {
        case AdoError::ConstraintViolation:
            return "The change violates a constraint of the database.";
        case AdoError::SqlError:
            return "The command text has an error.";
        case AdoError::NoSuchTable:
            return "The table does not exist.";
        case AdoError::LoginFailed:
            return "Authentication failed.";
        case AdoError::Cancelled:
            return "Operation was canceled.";
        case AdoError::CommandTimeout:
            return "Query timeout expired.";
        case AdoError::Unspecified:
            return "Unspecified error.";
        case AdoError::ObjectClosed:
            return "Operation is not allowed when the object is closed.";
        case AdoError::ObjectOpen:
            return "Operation is not allowed when the object is open.";
        case AdoError::ProviderNotFound:
            return "Provider cannot be found. It may not be properly installed.";
        case AdoError::InvalidConnection:
            return "The connection cannot be used to perform this operation. It is either closed or invalid "
                   "in "
                   "this context.";
        case AdoError::NoCurrentRecord:
            return "Either BOF or EOF is True, or the current record has been deleted. Requested operation "
                   "requires a current record.";
        case AdoError::ItemNotFound:
            return "Item cannot be found in the collection corresponding to the requested name or ordinal.";
        case AdoError::NotSupported:
            return "Object or provider is not capable of performing requested operation.";
        case AdoError::WrongType:
            return "Application uses a value of the wrong type for the current operation.";
        case AdoError::RowChanged:
            return "Row cannot be located for updating. Some values may have been changed since it was last "
                   "read.";
        case AdoError::NoTransaction:
            return "No transaction is active.";
    }
    return "Unspecified error.";
}

}  // namespace

ErrorInfo MakeAdoError(AdoError error) {
    return MakeProviderError(error, FixedWords(error), "HalvTiv");
}

ErrorInfo MakeProviderError(AdoError error, std::string_view words, std::string_view providerName) {
    return {static_cast<std::int32_t>(error), std::string(words), std::string(providerName)};
}

void RaiseAdoError(AdoError error) {
    throw MakeAdoError(error);
}

std::string UnboundMarker(std::string_view marker) {
    return "No value is given for the bind marker " + std::string(marker) + ".";
}

}  // namespace halvtiv::ado
