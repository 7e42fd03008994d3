#pragma once

#include <string_view>
#include <vector>

#include <halvtiv/data_exporter.hpp>
#include <halvtiv/db_access_engine.hpp>

#if defined(_WIN32) && defined(HALVTIV_EXPORTERS_BUILDING)
#define HALVTIV_EXPORTERS_API __declspec(dllexport)
#elif defined(_WIN32)
#define HALVTIV_EXPORTERS_API __declspec(dllimport)
#else
#define HALVTIV_EXPORTERS_API __attribute__((visibility("default")))
#endif

/// Exporters that are ready to register with an engine, or to be used by themselves.
///
/// What all have in common: `ExportData` reads from the recordset's current record to its end, whatever their
/// number in constant memory (not where they go into the SQLite file that they are read from: what is written
/// waits in memory for the last row), and answers the number of rows; -1 when it fails, and then
/// `RaiseLastError` raises why: run-time errors 53 to 76 for files, 91 for a recordset that is null, the
/// database's own errors, -1 for what the format cannot hold. An earlier file stays until the new one is
/// whole. A progress updater hears of every 5,000 rows and of the end; what it raises ends the export with
/// that error. `DataCount` counts for one export. `MatchExportType` compares without regard to ASCII letter
/// case. One exporter is used by one thread at a time.
namespace halvtiv::exporters {

/// CSV (RFC 4180, UTF-8, lines end in CR LF), a header line of column names first. Export type "csv".
/// A null is an empty field, an empty text an empty field in quotes. A file name that ends in ".tsv" or
/// ".tab" makes it `NewTsvExporter`'s format. Binary columns go to files in the data folder, named as those
/// of results ("photo.000001"), and the field holds the file's name; without a data folder it holds
/// "(skipped)".
HALVTIV_EXPORTERS_API IZorbDataExporterPtr NewCsvExporter();
/// The same with tabs in the place of commas. Export types "tsv" and "tab".
HALVTIV_EXPORTERS_API IZorbDataExporterPtr NewTsvExporter();

/// A workbook with one sheet, named after the table: typed cells, a bold header that stays in sight, dates as
/// dates. Export type "xlsx". Integers beyond 2^53 and decimals of more than 15 digits are text, for a cell
/// would round them. Binary columns as in CSV. More than 1,048,575 rows, 16,384 columns or 32,767 characters
/// in a cell are errors.
HALVTIV_EXPORTERS_API IZorbDataExporterPtr NewXlsxExporter();

/// JSON lines: one object a row, UTF-8. Export types "jsonl" and "ndjson". Numbers are numbers, booleans
/// booleans, binary columns base64, everything else text; a repeated column name gets "#2", "#3".
HALVTIV_EXPORTERS_API IZorbDataExporterPtr NewJsonLinesExporter();

/// A table of a SQLite database file, "data" without a name. Export types "sqlite", "sqlite3" and "db".
/// Missing file and table are made; otherwise rows are added, columns matched by name, after the others are
/// deleted where `ClearTableBeforeExport` is set. All in one transaction.
HALVTIV_EXPORTERS_API IZorbDataExporterPtr NewSqliteExporter();

/// One new exporter of each kind above, in that order.
HALVTIV_EXPORTERS_API std::vector<IZorbDataExporterPtr> AllExporters();

/// A new exporter for a file, by its name's extension: the first whose `MatchExportType` accepts that. Null
/// when there is none.
HALVTIV_EXPORTERS_API IZorbDataExporterPtr ExporterForFile(std::string_view fileName);

/// Registers one of each with an engine. Raises what the engine cannot do.
HALVTIV_EXPORTERS_API void AddAllExporters(ZorbDbAccessEngine& engine);

}  // namespace halvtiv::exporters
