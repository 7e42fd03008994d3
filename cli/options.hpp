#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halvtiv::cli {

enum class Command { Run, Call, Export, Copy, DefsList, DefsCheck };

enum class Format { Xml, Table, Csv, Json };

/// A value of a call's data block.
struct SetOption {
    std::string column;
    std::string value;  ///< the path when isFile
    bool isFile = false;
};

/// Where the database is: at most one of the first three is given.
struct ConnectionOptions {
    std::optional<std::string> database;
    std::optional<std::string> connection;
    std::optional<std::string> connectionFile;
    std::optional<std::string> passwordFile;
};

/// Where `export` writes, and how.
struct ExportOptions {
    std::string file;
    std::optional<std::string> table;
    std::optional<std::string> dataFolder;
    bool clear = false;  ///< empty the table first
};

/// What `copy` copies, and how.
struct CopyOptions {
    ConnectionOptions from, to;  ///< without `database`
    std::vector<std::string> tables;
    std::int64_t batch = 1000;  ///< rows that are written together
};

/// What the command line asks for.
struct Options {
    Command command = Command::Run;
    ConnectionOptions connection;
    std::vector<std::string> definitionFiles;  ///< of `--defs`
    std::optional<std::string> output;
    std::optional<Format> format;
    bool strict = false;  ///< run, call: refuse data items that name no column

    std::string request;   ///< run, export: a path, "-" for standard input
    std::string function;  ///< call, and export without a request
    std::vector<std::pair<std::string, std::string>> parameters;  ///< call, export
    ExportOptions exportTo;                                       ///< export
    CopyOptions copy;
    std::vector<SetOption> sets;     ///< call, in the order of the command line
    std::vector<std::string> files;  ///< defs list, defs check
};

/// What the command line comes to: options, or a text (help, version) that is all there is to do.
struct ParsedCommandLine {
    Options options;
    std::optional<std::string> text;
};

/// Raises `CommandError` (not run) for wrong usage. Messages never repeat the value of an option, which may
/// hold a password.
ParsedCommandLine ParseCommandLine(int argumentCount, const char* const* arguments);

/// Raises `CommandError` (not run) where `--output` names that file, which is read or made and must not be
/// replaced by what is printed.
void RefuseAsOutput(const std::optional<std::string>& output, const std::string& file);

}  // namespace halvtiv::cli
