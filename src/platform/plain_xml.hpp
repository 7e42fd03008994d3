#pragma once

#include <string_view>

#include "platform/xml_reader.hpp"

namespace halvtiv::platform {

/// Reads the plain kind of document that most requests are: a few elements with ASCII names, no references,
/// no comments, no declaration. Setting up a parser and letting it look up every name takes several times as
/// long as such a document itself.
///
/// False for everything else, whether it is well-formed or not: the handler has been told nothing then, and
/// the parser says what the text is. True only for what the parser would tell in the same words.
bool ReadPlainXml(std::string_view utf8, XmlHandler& handler);

}  // namespace halvtiv::platform
