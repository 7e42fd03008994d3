#include "command_line.hpp"

#include <map>
#include <memory>
#include <string_view>
#include <utility>

#include "command_error.hpp"
#include "help_text.hpp"
#include "platform/keywords.hpp"

namespace halvtiv::cli {
namespace {

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

void AddStrict(CLI::App& app, Options& options) {
    app.add_flag("--strict", options.strict, "Refuse values for columns that are not there");
}

void AddRun(CLI::App& app, Options& options, Commands& commands) {
    CLI::App& run = *app.add_subcommand("run", std::string(kRunDescription));
    commands.run = &run;
    SetHelp(run, kRunUsage, kRunFooter);
    run.allow_extras();
    run.add_option("REQUEST", commands.words, "The request's file, or - for standard input")->type_name("");
    AddStrict(run, options);
    AddSharedOptions(run, options);
}

void AddCall(CLI::App& app, Options& options, Commands& commands) {
    CLI::App& call = *app.add_subcommand("call", std::string(kCallDescription));
    commands.call = &call;
    SetHelp(call, kCallUsage, kCallFooter);
    call.allow_extras();
    call.add_option("NAME", commands.words, "The function's name")->type_name("");
    const auto addSet = [&](const char* name, const char* description, const char* type) {
        return call.add_option(name, commands.sets, description)->allow_extra_args(false)->type_name(type);
    };
    commands.set = addSet("--set", "A value for a column of the row to write (may be given several times)",
                          "COLUMN=VALUE");
    commands.setFile =
        addSet("--set-file", "A file whose content is the value (may be given several times)", "COLUMN=PATH");
    AddStrict(call, options);
    AddSharedOptions(call, options);
}

void AddExport(CLI::App& app, Options& options, Commands& commands) {
    CLI::App& exporting = *app.add_subcommand("export", std::string(kExportDescription));
    commands.exporting = &exporting;
    SetHelp(exporting, kExportUsage, kExportFooter);
    exporting.allow_extras();
    exporting.add_option("NAME|REQUEST.xml", commands.words, "The function's name, or a request's file")
        ->type_name("");
    AddOnce(exporting, "--to", commands.exportFile, "Write the rows to FILE, in the format of its extension")
        ->type_name("FILE");
    AddOnce(exporting, "--table", options.exportTo.table, "The table or sheet to write")->type_name("NAME");
    exporting.add_flag("--clear", options.exportTo.clear, "Empty the table before rows are added to it");
    AddOnce(exporting, "--data-folder", options.exportTo.dataFolder, "Write binary columns as files in DIR")
        ->type_name("DIR");
    AddSharedOptions(exporting, options);
}

void AddCopy(CLI::App& app, Options& options, Commands& commands) {
    CLI::App& copying = *app.add_subcommand("copy", std::string(kCopyDescription));
    commands.copying = &copying;
    SetHelp(copying, kCopyUsage, kCopyFooter);
    copying.allow_extras();
    copying.add_option("TABLE", commands.words, "The tables to copy; without any, all of them")
        ->type_name("");
    AddEndOptions(copying, "from", options.copy.from);
    AddEndOptions(copying, "to", options.copy.to);
    AddOnce(copying, "--batch", commands.batch, "Rows that are written together (1000)")->type_name("ROWS");
    AddFormatOptions(copying, options);
}

void AddDefs(CLI::App& app, Options& options, Commands& commands) {
    CLI::App& defs = *app.add_subcommand("defs", std::string(kDefsDescription));
    commands.defs = &defs;
    SetHelp(defs, kDefsUsage, kDefsFooter);
    defs.require_subcommand(1);
    commands.defsList = defs.add_subcommand("list", std::string(kDefsListDescription));
    commands.defsCheck = defs.add_subcommand("check", std::string(kDefsCheckDescription));
    for (CLI::App* sub : {commands.defsList, commands.defsCheck}) {
        sub->allow_extras();
        AddOutputOption(*sub, options);
    }
}

}  // namespace

void AddCommands(CLI::App& app, Options& options, Commands& commands) {
    SetHelp(app, kUsage, kFooter);
    app.set_help_flag("-h,--help", "Print this help and exit");
    app.set_version_flag("--version", "halvtiv " HALVTIV_VERSION, "Print the version and exit");
    app.require_subcommand(1);
    AddSharedOptions(app, options);
    AddRun(app, options, commands);
    AddCall(app, options, commands);
    AddExport(app, options, commands);
    AddCopy(app, options, commands);
    AddDefs(app, options, commands);
}

void RaiseUsage(const std::string& message) {
    throw CommandError(ExitStatus::NotRun, message + "\nRun 'halvtiv --help' for more information.");
}

void RaiseNotUnderstood(const std::string& word) {
    constexpr const char* kEnds = "=;";
    // The mark may be part of the password in user:password@host.
    const bool mayHoldUser = word.find('@') != std::string::npos;
    const auto shown = platform::Shown(mayHoldUser ? word : word.substr(0, word.find_first_of(kEnds)));
    RaiseUsage("Not understood: " + shown.substr(0, shown.find_first_of(kEnds)));
}

}  // namespace halvtiv::cli
