#pragma once

#include <array>
#include <string_view>

namespace halvtiv::ado {

/// What `Connection::DatabaseName` answers for the databases that are known.
inline constexpr std::array<std::string_view, 5> kDatabaseNames{"SQLite", "PostgreSQL", "MariaDB",
                                                                "SQLServer", "Access"};

}  // namespace halvtiv::ado
