#pragma once

#include <string_view>

namespace halvtiv::cli {

inline constexpr std::string_view kDescription =
    "Runs named database functions: reads a request as XML, or builds one from the command\n"
    "line, runs it on a database and prints the result as a table, XML, CSV or JSON.";

inline constexpr std::string_view kFooter = R"(Examples:
  halvtiv call public.getdata sql='select * from customers' --db shop.db
        runs a query on a file and shows the rows
  halvtiv call orders.bycustomer cust=C042 top=10 --defs shop.xml --db shop.db
        calls a function of a definition file
  halvtiv run request.xml --defs shop.xml --connection-file shop.txt --format json -o result.json
        runs a request that stands in a file
  halvtiv export orders.bycustomer cust=C042 top=10 --to orders.xlsx --defs shop.xml --db shop.db
        writes the rows of a function into a file
  halvtiv copy --from shop.db --to-file server.txt
        copies all tables of a database into another one
  halvtiv defs list shop.xml
        tells which functions a definition file offers and what they want to know
  halvtiv defs check shop.xml
        tells whether all of its definitions can be loaded

Environment:
  HALVTIV_CONNECTION   the connection string, where no option gives one
  HALVTIV_PASSWORD     the password, where the connection string has none

Exit status:
  0    done
  1    something failed: the result holds an error, a transaction was not done, a definition did not load,
       output was not written
  2    nothing was run: wrong usage, an unreadable request, an unknown function, no connection
  130  Ctrl-C has cancelled what ran; a second Ctrl-C ends the command at once

'halvtiv COMMAND --help' tells more about a command.)";

inline constexpr std::string_view kRunDescription =
    "Runs the request in an XML file: a function call, or a transaction, whose calls are done together or\n"
    "not at all. The file is read by its byte order mark or declaration.";

inline constexpr std::string_view kCallDescription =
    "Calls a function, built-in or of a definition file, with values from the command line.";

inline constexpr std::string_view kCallFooter = R"(Examples:
  halvtiv call public.getdata sql='select * from customers' --db shop.db
  halvtiv call orders.bycustomer cust=C042 top=10 --defs shop.xml --db shop.db
  halvtiv call products.add --set name=Lamp --set-file photo=lamp.png --defs shop.xml --db shop.db)";

inline constexpr std::string_view kRunFooter = R"(Examples:
  halvtiv run request.xml --db shop.db
  make-request | halvtiv run - --defs shop.xml --db shop.db --format csv -o result.csv)";

inline constexpr std::string_view kExportDescription =
    "Writes the rows of a function into a file, whose extension says the format: .csv, .tsv, .tab, .xlsx,\n"
    ".jsonl, .ndjson, .sqlite, .sqlite3 or .db. The function is public.getdata, or one that is based on it.";

inline constexpr std::string_view kExportFooter = R"(Examples:
  halvtiv export public.getdata sql='select * from customers' --to customers.xlsx --db shop.db
  halvtiv export orders.bycustomer cust=C042 top=10 --to orders.csv --defs shop.xml --db shop.db
  halvtiv export request.xml --to backup.db --table orders --clear --db shop.db

An earlier file stays until the new one is whole. A database file keeps its other tables, and without
--clear the rows of the table, too. The parameter sqlcount='select count(*) ...' counts the rows beforehand, so
that the progress on a terminal shows the time left.)";

inline constexpr std::string_view kCopyDescription =
    "Copies tables from one database to another, of another kind too. Tables that are missing are made, "
    "with\n"
    "keys, indexes and foreign keys; those that are there must be empty. At the end both sides are compared.";

inline constexpr std::string_view kCopyFooter = R"(Examples:
  halvtiv copy --from shop.db --to 'Provider=PostgreSQL;Data Source=localhost;Initial Catalog=shop'
  halvtiv copy --from-file server.txt --to backup.db customers orders

A copy that was stopped goes on when the same command is started again. What it needs to know for that is in
the table halvtiv_copy of the database that is copied to, which goes with the end of the copy.

Environment:
  HALVTIV_FROM, HALVTIV_TO     the connection strings, where no option gives them
  HALVTIV_FROM_PASSWORD, HALVTIV_TO_PASSWORD
                               the passwords, where the connection strings have none)";

inline constexpr std::string_view kDefsFooter = R"(Examples:
  halvtiv defs list shop.xml
  halvtiv defs check shop.xml more.xml)";

// The line under "Usage:" of each command.
inline constexpr std::string_view kUsage = "halvtiv COMMAND [ARGUMENT]... [OPTION]...";
inline constexpr std::string_view kRunUsage = "halvtiv run REQUEST.xml [OPTION]...";
inline constexpr std::string_view kCallUsage =
    "halvtiv call NAME [PARAM=VALUE]... [--set COLUMN=VALUE]... [--set-file COLUMN=PATH]... [OPTION]...";
inline constexpr std::string_view kExportUsage =
    "halvtiv export NAME|REQUEST.xml [PARAM=VALUE]... --to FILE [--table NAME] [--clear] [--data-folder DIR] "
    "[OPTION]...";
inline constexpr std::string_view kCopyUsage =
    "halvtiv copy --from STRING|FILE --to STRING|FILE [TABLE]... [OPTION]...";
inline constexpr std::string_view kDefsUsage = "halvtiv defs list|check FILE... [OPTION]...";

inline constexpr std::string_view kDefsDescription = "Looks into function definition files.";
inline constexpr std::string_view kDefsListDescription =
    "Lists the functions in definition files: name and base, then each parameter with its type and "
    "description.";
inline constexpr std::string_view kDefsCheckDescription =
    "Loads definition files and prints the load report. Exit status 1 when a definition failed.";

}  // namespace halvtiv::cli
