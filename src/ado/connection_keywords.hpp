#pragma once

#include <span>
#include <string>
#include <string_view>

#include "ado/connection_parameters.hpp"

namespace halvtiv::ado {

/// Raises -2147467259 for a keyword that the provider does not know, with the name of the nearest one: an
/// ignored keyword would silently drop the setting. Known are `known`, the keywords of every provider
/// ("Provider", "Data Source", "User ID", "Password"), and the keywords of other vendors that have no
/// effect here. source is that of the error.
void RequireKnownKeywords(const ConnectionParameters& parameters, std::span<const std::string> known,
                          std::string_view source);

/// Whether a keyword, as `platform::NormalKeyword` spells it, is one of other vendors' without effect here.
bool HasNoEffect(std::string_view key);

/// Whether "Read Only" or "Mode=Read" is given. Raises -2147467259 for a "Mode" that is no
/// combination, joined by "|", of Read, Write, ReadWrite and Share Deny None, which are the defaults.
bool IsReadOnly(const ConnectionParameters& parameters, std::string_view source);

}  // namespace halvtiv::ado
