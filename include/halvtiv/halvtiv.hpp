#pragma once

// Everything that a client of HalvTiv needs.

#include <halvtiv/ado.hpp>                // IWYU pragma: export
#include <halvtiv/column_data_items.hpp>  // IWYU pragma: export
#include <halvtiv/connection_string.hpp>  // IWYU pragma: export
#include <halvtiv/data_exporter.hpp>      // IWYU pragma: export
#include <halvtiv/data_types.hpp>         // IWYU pragma: export
#include <halvtiv/db_access_engine.hpp>   // IWYU pragma: export
#include <halvtiv/error_info.hpp>         // IWYU pragma: export
#include <halvtiv/function_call.hpp>      // IWYU pragma: export
#include <halvtiv/function_result.hpp>    // IWYU pragma: export
#include <halvtiv/output_file.hpp>        // IWYU pragma: export
#include <halvtiv/transaction_call.hpp>   // IWYU pragma: export
