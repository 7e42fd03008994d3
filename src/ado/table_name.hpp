#pragma once

#include <string>
#include <string_view>

namespace halvtiv::ado {

/// The command text that a recordset's source stands for: `select * from` it for the bare name of a table
/// (one identifier or schema.table, plain, quoted or in brackets), and else the source as it is. A statement
/// of one word, such as COMMIT, is no table.
std::string CommandTextOf(std::string_view source);

}  // namespace halvtiv::ado
