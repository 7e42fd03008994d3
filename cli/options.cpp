#include "options.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <span>
#include <string_view>

#include "command_error.hpp"
#include "help_text.hpp"
#include "platform/files.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli {
namespace {

[[noreturn]] void RaiseUsage(const std::string& message) {
    throw CommandError(ExitStatus::NotRun, message + "\nRun 'halvtiv --help' for more information.");
}

[[noreturn]] void RaiseNotUnderstood(const std::string& word) {
    RaiseUsage("Not understood: " + word.substr(0, word.find_first_of("=;")));
}

/// Help as this command shows it: a usage line a command, options without remarks behind their names.
class HelpFormatter : public CLI::Formatter {
public:
    explicit HelpFormatter(std::string_view usage) : usage_(usage) { column_width(32); }

    std::string make_usage(const CLI::App*, std::string) const override {
        return "\nUsage: " + std::string(usage_) + "\n";
    }
    std::string make_option_opts(const CLI::Option* option) const override {
        const std::string type = option->get_type_name();
        return type.empty() ? "" : ' ' + type;
    }
    std::string make_group(std::string group, bool isPositional,
                           std::vector<const CLI::Option*> options) const override {
        std::string text = "\n" + group + ":\n";
        for (const CLI::Option* option : options) text += make_option(option, isPositional);
        return text;
    }

private:
    std::string_view usage_;
};

void SetHelp(CLI::App& app, std::string_view usage, std::string_view footer) {
    app.formatter(std::make_shared<HelpFormatter>(usage));
    app.footer(std::string(footer));
}

/// An option that may stand before and after the command's name, but once.
CLI::Option* AddOnce(CLI::App& app, const std::string& names, std::optional<std::string>& target,
                     const std::string& description) {
    return app.add_option_function<std::string>(
        names,
        [&target, names](const std::string& value) {
            if (target) RaiseUsage(names + " is given twice.");
            target = value;
        },
        description);
}

void AddOutputOption(CLI::App& app, Options& options) {
    AddOnce(app, "-o,--output", options.output, "Write to FILE, which appears when it is complete")
        ->type_name("FILE")
        ->group("Output");
}

void AddFormatOptions(CLI::App& app, Options& options) {
    AddOutputOption(app, options);
    static const std::map<std::string, Format> kFormats = {
        {"xml", Format::Xml}, {"table", Format::Table}, {"csv", Format::Csv}, {"json", Format::Json}};
    app.add_option_function<std::string>(
           "--format",
           [&options](const std::string& name) {
               const auto format = kFormats.find(name);
               if (format == kFormats.end()) RaiseUsage("--format is one of xml, table, csv and json.");
               options.format = format->second;
           },
           "xml, table, csv or json; without it, table on a terminal and xml elsewhere")
        ->type_name("FORMAT")
        ->group("Output");
}

void AddSharedOptions(CLI::App& app, Options& options) {
    ConnectionOptions& connection = options.connection;
    AddOnce(app, "--db", connection.database, "Use the database in FILE")
        ->type_name("FILE")
        ->group("Database");
    AddOnce(app, "--connection", connection.connection, "Use the database of a connection string")
        ->type_name("STRING")
        ->group("Database");
    AddOnce(app, "--connection-file", connection.connectionFile, "Read the connection string from FILE")
        ->type_name("FILE")
        ->group("Database");
    AddOnce(app, "--password-file", connection.passwordFile, "Read the password from FILE")
        ->type_name("FILE")
        ->group("Database");
    app.add_option_function<std::vector<std::string>>(
           "--defs",
           [&options](const std::vector<std::string>& files) {
               options.definitionFiles.insert(options.definitionFiles.end(), files.begin(), files.end());
           },
           "Load function definitions from FILE (may be given several times)")
        ->allow_extra_args(false)
        ->type_name("FILE")
        ->group("Database");

    AddFormatOptions(app, options);
}

/// One end of a copy: what is "from" or "to".
void AddEndOptions(CLI::App& app, const std::string& what, ConnectionOptions& end) {
    const std::string name = "--" + what;
    AddOnce(app, name, end.connection, "The database to copy " + what + ": a connection string, or a file")
        ->type_name("STRING|FILE")
        ->group("Databases");
    AddOnce(app, name + "-file", end.connectionFile, "Read that connection string from FILE")
        ->type_name("FILE")
        ->group("Databases");
    AddOnce(app, name + "-password-file", end.passwordFile, "Read its password from FILE")
        ->type_name("FILE")
        ->group("Databases");
}

/// "NAME=VALUE" taken apart at the first "=".
std::pair<std::string, std::string> SplitAssignment(const std::string& text, const std::string& what) {
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos || sign == 0) {
        RaiseUsage(what + " has the form NAME=VALUE.");
    }
    return {text.substr(0, sign), text.substr(sign + 1)};
}

/// The command line at both sides of its "--". The parser would hand what follows a command's "--" back to
/// the program, and read options in it.
struct Arguments {
    std::span<const char* const> parsed;
    std::span<const char* const> plain;
};

Arguments SplitArguments(std::span<const char* const> arguments) {
    const auto mark = std::find(arguments.begin(), arguments.end(), std::string_view("--"));
    const auto count = static_cast<std::size_t>(mark - arguments.begin());
    return {arguments.first(count), arguments.subspan(std::min(count + 1, arguments.size()))};
}

/// The words behind a command that are no options, with `more` at their end; options that it does not know
/// are refused. The parser's own lists would take a word in brackets apart.
std::vector<std::string> PlainWords(const CLI::App& app, std::span<const char* const> more) {
    std::vector<std::string> words;
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional()) words = option->results();
    }
    for (const std::string& word : app.remaining()) {
        if (word.starts_with('-') && word != "-") RaiseNotUnderstood(word);
        words.push_back(word);
    }
    words.insert(words.end(), more.begin(), more.end());
    return words;
}

/// Takes the first of a command's words, which it cannot do without.
std::string TakeFirst(std::vector<std::string>& words, const std::string& what) {
    if (words.empty()) RaiseUsage("Name " + what + ".");
    std::string first = std::move(words.front());
    words.erase(words.begin());
    return first;
}

/// The two options whose order on the command line counts.
struct SetOptions {
    const CLI::Option* set = nullptr;
    const CLI::Option* setFile = nullptr;
};

void ReadParameters(const std::vector<std::string>& words, Options& options) {
    for (const std::string& text : words) {
        options.parameters.push_back(SplitAssignment(text, "A parameter"));
    }
}

void ReadCall(const CLI::App& call, const SetOptions& arguments, std::vector<std::string> words,
              Options& options) {
    options.function = TakeFirst(words, "a function");
    ReadParameters(words, options);
    std::size_t setCount = 0;
    std::size_t fileCount = 0;
    for (const CLI::Option* option : call.parse_order()) {
        if (option != arguments.set && option != arguments.setFile) continue;
        const bool isFile = option == arguments.setFile;
        std::size_t& position = isFile ? fileCount : setCount;
        auto [column, value] =
            SplitAssignment(option->results().at(position), isFile ? "--set-file" : "--set");
        ++position;
        options.sets.push_back({std::move(column), std::move(value), isFile});
    }
}

void ReadExport(const std::optional<std::string>& file, std::vector<std::string> words, Options& options) {
    std::string what = TakeFirst(words, "a function or a request file");
    const bool isFile = what == "-" || platform::EqualIgnoringCase(what.substr(what.rfind('.') + 1), "xml");
    (isFile ? options.request : options.function) = std::move(what);
    ReadParameters(words, options);
    if (!file || file->empty()) RaiseUsage("Name a file to export to: --to FILE.");
    options.exportTo.file = *file;
}

void ReadCopy(const std::optional<std::string>& batch, std::vector<std::string> words, Options& options) {
    CopyOptions& copy = options.copy;
    copy.tables = std::move(words);
    for (const auto& [end, name] : {std::pair{&copy.from, "from"}, std::pair{&copy.to, "to"}}) {
        if (end->connection && end->connectionFile) {
            RaiseUsage(std::string("Give one of --") + name + " and --" + name + "-file.");
        }
    }
    const ConnectionOptions& other = options.connection;
    if (other.database || other.connection || other.connectionFile || other.passwordFile ||
        !options.definitionFiles.empty()) {
        RaiseUsage("A copy has two databases: name them with --from and --to.");
    }
    if (!batch) return;
    constexpr std::int64_t kLargest = 1'000'000;
    const char* const end = batch->data() + batch->size();
    const auto read = std::from_chars(batch->data(), end, copy.batch);
    if (read.ec != std::errc() || read.ptr != end || copy.batch < 1 || copy.batch > kLargest) {
        RaiseUsage("--batch is a number from 1 to 1000000.");
    }
}

void CheckConnectionOptions(const ConnectionOptions& connection) {
    const int given = int{connection.database.has_value()} + int{connection.connection.has_value()} +
                      int{connection.connectionFile.has_value()};
    if (given > 1) RaiseUsage("Give one of --db, --connection and --connection-file.");
}

/// What is read must not be replaced by what is written.
void CheckOutput(const Options& options) {
    if (!options.output) return;
    std::vector<std::string> inputs = options.definitionFiles;
    inputs.insert(inputs.end(), options.files.begin(), options.files.end());
    inputs.push_back(options.request);
    // The ends of a copy may be files, given as connections.
    for (const ConnectionOptions* end : {&options.connection, &options.copy.from, &options.copy.to}) {
        for (const auto& path : {end->database, end->connection, end->connectionFile, end->passwordFile}) {
            if (path) inputs.push_back(*path);
        }
    }
    for (const std::string& input : inputs) {
        if (platform::IsSameFile(*options.output, input)) RaiseUsage("-o names a file that is read.");
    }
}

/// Raises the parser's complaint in words that hold no value, which could be a secret.
[[noreturn]] void RaiseParseError(const CLI::App& app, const CLI::App& defs, const CLI::ParseError& error) {
    // Not those of the other commands, which keep what they do not know for later.
    for (const CLI::App* parent : {&app, &defs}) {
        if (parent->remaining_size() > 0) RaiseNotUnderstood(parent->remaining().front());
    }
    if (app.get_subcommands().empty()) RaiseUsage("Name a command: run, call, export, copy or defs.");
    if (defs.parsed() && defs.get_subcommands().empty())
        RaiseUsage("Name a command: defs list or defs check.");
    RaiseUsage(error.what());
}

}  // namespace

ParsedCommandLine ParseCommandLine(int argumentCount, const char* const* arguments) {
    ParsedCommandLine parsed;
    Options& options = parsed.options;

    CLI::App app{std::string(kDescription), "halvtiv"};
    SetHelp(app, kUsage, kFooter);
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "halvtiv " HALVTIV_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    AddSharedOptions(app, options);

    CLI::App& run = *app.add_subcommand("run", std::string(kRunDescription));
    SetHelp(run, kRunUsage, kRunFooter);
    run.allow_extras();
    std::string ignoredWord;  // read with what follows "--"
    run.add_option("REQUEST", ignoredWord, "The request's file, or - for standard input")->type_name("");
    AddSharedOptions(run, options);

    CLI::App& call = *app.add_subcommand("call", std::string(kCallDescription));
    SetHelp(call, kCallUsage, kCallFooter);
    call.allow_extras();
    call.add_option("NAME", ignoredWord, "The function's name")->type_name("");
    std::vector<std::string> ignored;  // read with their order from the options themselves
    const SetOptions setOptions = {
        call.add_option("--set", ignored,
                        "A value for a column of the row to write (may be given several times)")
            ->allow_extra_args(false)
            ->type_name("COLUMN=VALUE"),
        call.add_option("--set-file", ignored,
                        "A file whose content is the value (may be given several times)")
            ->allow_extra_args(false)
            ->type_name("COLUMN=PATH")};
    AddSharedOptions(call, options);

    CLI::App& exporting = *app.add_subcommand("export", std::string(kExportDescription));
    SetHelp(exporting, kExportUsage, kExportFooter);
    exporting.allow_extras();
    exporting.add_option("NAME|REQUEST.xml", ignoredWord, "The function's name, or a request's file")
        ->type_name("");
    std::optional<std::string> exportFile;
    AddOnce(exporting, "--to", exportFile, "Write the rows to FILE, in the format of its extension")
        ->type_name("FILE");
    AddOnce(exporting, "--table", options.exportTo.table, "The table or sheet to write")->type_name("NAME");
    exporting.add_flag("--clear", options.exportTo.clear, "Empty the table before rows are added to it");
    AddOnce(exporting, "--data-folder", options.exportTo.dataFolder, "Write binary columns as files in DIR")
        ->type_name("DIR");
    AddSharedOptions(exporting, options);

    CLI::App& copying = *app.add_subcommand("copy", std::string(kCopyDescription));
    SetHelp(copying, kCopyUsage, kCopyFooter);
    copying.allow_extras();
    copying.add_option("TABLE", ignoredWord, "The tables to copy; without any, all of them")->type_name("");
    AddEndOptions(copying, "from", options.copy.from);
    AddEndOptions(copying, "to", options.copy.to);
    std::optional<std::string> batch;
    AddOnce(copying, "--batch", batch, "Rows that are written together (1000)")->type_name("ROWS");
    AddFormatOptions(copying, options);

    CLI::App& defs = *app.add_subcommand("defs", std::string(kDefsDescription));
    SetHelp(defs, kDefsUsage, kDefsFooter);
    defs.require_subcommand(1);
    CLI::App& list = *defs.add_subcommand("list", std::string(kDefsListDescription));
    CLI::App& check = *defs.add_subcommand("check", std::string(kDefsCheckDescription));
    for (CLI::App* sub : {&list, &check}) {
        sub->allow_extras();
        AddOutputOption(*sub, options);
    }

    const Arguments split = SplitArguments({arguments, static_cast<std::size_t>(argumentCount)});
    try {
        app.parse(static_cast<int>(split.parsed.size()), split.parsed.data());
    } catch (const CLI::CallForHelp&) {
        parsed.text = app.help();
        return parsed;
    } catch (const CLI::CallForVersion&) {
        parsed.text = app.version() + '\n';
        return parsed;
    } catch (const CLI::ParseError& error) {
        RaiseParseError(app, defs, error);
    }

    CheckConnectionOptions(options.connection);
    if (call.parsed()) {
        options.command = Command::Call;
        ReadCall(call, setOptions, PlainWords(call, split.plain), options);
    } else if (exporting.parsed()) {
        options.command = Command::Export;
        ReadExport(exportFile, PlainWords(exporting, split.plain), options);
    } else if (copying.parsed()) {
        options.command = Command::Copy;
        ReadCopy(batch, PlainWords(copying, split.plain), options);
    } else if (defs.parsed()) {
        options.command = list.parsed() ? Command::DefsList : Command::DefsCheck;
        options.files = PlainWords(list.parsed() ? list : check, split.plain);
        if (options.files.empty()) RaiseUsage("Name a definition file.");
    } else {
        std::vector<std::string> words = PlainWords(run, split.plain);
        options.request = TakeFirst(words, "a request file, or - for standard input");
        if (!words.empty()) RaiseNotUnderstood(words.front());
    }
    CheckOutput(options);
    return parsed;
}

}  // namespace halvtiv::cli
