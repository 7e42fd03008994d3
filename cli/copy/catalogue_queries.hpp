#pragma once

#include <string_view>

#include "copy/column_type.hpp"

namespace halvtiv::cli::copy {

/// How a database is asked for its catalogue. All rows are in the order of their tables; a truth value is 1.
struct CatalogueQueries {
    /// table, column, type, nullable, auto number, computed, default, name of the row number, what the type
    /// is followed by in words that only this database understands
    std::string_view columns;
    /// table, index ("" for the primary key), unique, column (null: not to be told in words), one row a
    /// column
    std::string_view keys;
    /// table, key, column, parent, parent's column (null: its primary key), on delete, on update
    std::string_view foreignKeys;
    /// views, triggers, tables whose rows are somewhere else: virtual or foreign ones
    std::string_view otherObjects;
    /// table that others inherit from, table that does, each null where it is in another schema; "" where
    /// tables do not
    std::string_view heirs = "";
};

/// For all but Access, which has to be asked otherwise.
const CatalogueQueries& QueriesOf(Dialect dialect);

}  // namespace halvtiv::cli::copy
