#pragma once

#include <span>
#include <string>
#include <string_view>

#include "ado/connection_parameters.hpp"

namespace halvtiv::ado {

/// Raises -2147467259 for a keyword that the provider does not know, with the name of the nearest one: it
/// would be ignored, and what it asks for not done. Known are `known`, the keywords of every provider
/// ("Provider", "Data Source", "User ID", "Password"), and what other makers' strings often hold and means
/// nothing here. source is that of the error.
void RequireKnownKeywords(const ConnectionParameters& parameters, std::span<const std::string> known,
                          std::string_view source);

/// Whether "Read Only" or "Mode=Read" is given. Raises -2147467259 for a "Mode" that is neither that nor
/// "ReadWrite" or "Share Deny None", which are the usual way.
bool IsReadOnly(const ConnectionParameters& parameters, std::string_view source);

}  // namespace halvtiv::ado
