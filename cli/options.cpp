#include "options.hpp"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <span>
#include <string_view>

#include "command_line.hpp"
#include "help_text.hpp"
#include "platform/files.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli {
namespace {

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

void ReadParameters(const std::vector<std::string>& words, Options& options) {
    for (const std::string& text : words) {
        options.parameters.push_back(SplitAssignment(text, "A parameter"));
    }
}

void ReadCall(const Commands& commands, std::vector<std::string> words, Options& options) {
    options.function = TakeFirst(words, "a function");
    ReadParameters(words, options);
    std::size_t setCount = 0;
    std::size_t fileCount = 0;
    for (const CLI::Option* option : commands.call->parse_order()) {
        if (option != commands.set && option != commands.setFile) continue;
        const bool isFile = option == commands.setFile;
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

/// Whether `--output` names that file, which may be missing yet.
bool IsOutput(const std::optional<std::string>& output, const std::string& file) {
    return output && platform::WouldReplace(*output, file);
}

/// Raises where the output would replace a file that the command reads; the database is looked at when it is
/// known.
void CheckOutput(const Options& options) {
    std::vector<std::string> inputs = options.definitionFiles;
    inputs.insert(inputs.end(), options.files.begin(), options.files.end());
    if (options.request != "-") inputs.push_back(options.request);
    for (const SetOption& set : options.sets) {
        if (set.isFile) inputs.push_back(set.value);
    }
    for (const ConnectionOptions* end : {&options.connection, &options.copy.from, &options.copy.to}) {
        for (const auto& path : {end->connectionFile, end->passwordFile}) {
            if (path) inputs.push_back(*path);
        }
    }
    for (const std::string& input : inputs) RefuseAsOutput(options.output, input);
    if (IsOutput(options.output, options.exportTo.file)) RaiseUsage("-o and --to name the same file.");
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

/// Takes what the parser has found beside the options that it has filled in itself.
void ReadCommand(const Commands& commands, std::span<const char* const> plain, Options& options) {
    if (commands.call->parsed()) {
        options.command = Command::Call;
        ReadCall(commands, PlainWords(*commands.call, plain), options);
    } else if (commands.exporting->parsed()) {
        options.command = Command::Export;
        ReadExport(commands.exportFile, PlainWords(*commands.exporting, plain), options);
    } else if (commands.copying->parsed()) {
        options.command = Command::Copy;
        ReadCopy(commands.batch, PlainWords(*commands.copying, plain), options);
    } else if (commands.defs->parsed()) {
        const bool isList = commands.defsList->parsed();
        options.command = isList ? Command::DefsList : Command::DefsCheck;
        options.files = PlainWords(isList ? *commands.defsList : *commands.defsCheck, plain);
        if (options.files.empty()) RaiseUsage("Name a definition file.");
    } else {
        std::vector<std::string> words = PlainWords(*commands.run, plain);
        options.request = TakeFirst(words, "a request file, or - for standard input");
        if (!words.empty()) RaiseNotUnderstood(words.front());
    }
}

}  // namespace

ParsedCommandLine ParseCommandLine(int argumentCount, const char* const* arguments) {
    ParsedCommandLine parsed;
    CLI::App app{std::string(kDescription), "halvtiv"};
    Commands commands;
    AddCommands(app, parsed.options, commands);

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
        RaiseParseError(app, *commands.defs, error);
    }

    CheckConnectionOptions(parsed.options.connection);
    ReadCommand(commands, split.plain, parsed.options);
    CheckOutput(parsed.options);
    return parsed;
}

void RefuseAsOutput(const std::optional<std::string>& output, const std::string& file) {
    if (IsOutput(output, file)) RaiseUsage("-o names a file that is read.");
}

}  // namespace halvtiv::cli
