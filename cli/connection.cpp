#include "connection.hpp"

#include <algorithm>
#include <cstdlib>
#include <halvtiv/error_info.hpp>

#include "command_error.hpp"
#include "command_line.hpp"
#include "platform/files.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli {
namespace {

/// The environment variable's value; nothing when it is missing or empty.
std::optional<std::string> Environment(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr || *value == '\0') return std::nullopt;
    return value;
}

std::string ReadSettingFile(const std::string& path) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    try {
        std::string text = platform::ReadWholeFile(path);
        if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
        return text;
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::NotRun, error.Description);
    }
}

/// Blanks may belong to a password; the ends of its line do not.
std::string ReadPasswordFile(const std::string& path) {
    std::string text = ReadSettingFile(path);
    while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
    return text;
}

/// The connection string in a file, where it may stand in several lines.
std::string ReadConnectionFile(const std::string& path) {
    constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";
    std::string text = ReadSettingFile(path);
    text.erase(text.find_last_not_of(kWhiteSpace) + 1);
    text.erase(0, text.find_first_not_of(kWhiteSpace));
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

/// A value as a connection string carries it safely, whatever is in it.
std::string Quoted(std::string_view value) {
    return '"' + platform::ReplaceAll(value, "\"", "\"\"") + '"';
}

/// The value in quotes where it could be misread without.
std::string QuotedIfNeeded(std::string_view value) {
    const bool isPlain =
        value.find_first_of(";\"'") == std::string_view::npos && value == platform::TrimBlanks(value);
    return isPlain ? std::string(value) : Quoted(value);
}

/// Takes the value at the front, with its ";" and without its quotes.
std::string TakeValue(std::string_view& rest) {
    rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
    const bool isQuoted = rest.starts_with('"') || rest.starts_with('\'');
    const std::string quote(rest.substr(0, isQuoted ? 1 : 0));
    std::size_t end = 0;
    if (isQuoted) {
        end = rest.find(quote, 1);
        // A quote in the value is written twice.
        while (end < rest.size() && rest.substr(end + 1).starts_with(quote)) end = rest.find(quote, end + 2);
        end = std::min(end, rest.size());
    }
    const std::size_t valueEnd = std::min(rest.find(';', end), rest.size());
    std::string value = isQuoted ? platform::ReplaceAll(rest.substr(1, end - 1), quote + quote, quote)
                                 : std::string(platform::TrimBlanks(rest.substr(0, valueEnd)));
    rest.remove_prefix(std::min(valueEnd + 1, rest.size()));
    return value;
}

/// What the string says for a key, as the data-access layer reads it: blanks and underscores in keys do not
/// count, the last pair of a key counts, empty pairs do not.
std::string ValueOf(std::string_view rest, std::string_view wanted) {
    std::string found;
    while (!rest.empty()) {
        const std::size_t keyEnd = rest.find_first_of("=;");
        if (keyEnd == std::string_view::npos) break;
        const bool isPair = rest[keyEnd] == '=';
        const std::string_view key = platform::TrimBlanks(rest.substr(0, keyEnd));
        rest.remove_prefix(keyEnd + 1);
        if (!isPair) continue;
        std::string value = TakeValue(rest);
        if (platform::NormalKeyword(key) == wanted) found = std::move(value);
    }
    return found;
}

bool HasPassword(std::string_view connection) {
    return !ValueOf(connection, "password").empty() || !ValueOf(connection, "pwd").empty();
}

std::string Password(const ConnectionOptions& options, const ConnectionNames& names) {
    if (options.passwordFile) return ReadPasswordFile(*options.passwordFile);
    return Environment(names.passwordVariable).value_or("");
}

std::string ConnectionString(const ConnectionOptions& options, const ConnectionNames& names) {
    if (options.connection) return *options.connection;
    if (options.connectionFile) return ReadConnectionFile(*options.connectionFile);
    return Environment(names.variable).value_or("");
}

/// A connection string that names nothing but a file is that file's path. A web address is none, and may hold
/// a password.
bool IsPath(std::string_view connection) {
    return connection.find('=') == std::string_view::npos && connection.find("://") == std::string_view::npos;
}

}  // namespace

std::string WithPassword(std::string_view connection, std::string_view password) {
    std::string complete(connection);
    if (password.empty() || HasPassword(connection)) return complete;
    const std::string_view end = platform::TrimBlanks(connection);
    if (!end.empty() && !end.ends_with(';')) complete += ';';
    return complete + "Password=" + Quoted(password);
}

std::optional<std::string> Connect(ZorbDbAccessEngine& engine, const ConnectionOptions& options,
                                   const std::optional<std::string>& output, const ConnectionNames& names) {
    const std::string password = Password(options, names);
    std::optional<std::string> file = options.database;
    std::string connectionString;
    if (!file) {
        connectionString = ConnectionString(options, names);
        if (platform::TrimBlanks(connectionString).empty()) {
            throw CommandError(ExitStatus::NotRun, names.missing);
        }
        if (names.takesPaths && IsPath(connectionString)) file = connectionString;
        // These create their file when they connect; without a server, one of the keys names it.
        const auto has = [&](const char* key) { return !ValueOf(connectionString, key).empty(); };
        if ((has("create") || has("driver")) && !has("server") && !has("servername")) {
            for (const char* key : {"datasource", "database", "dbq"}) {
                RefuseAsOutput(output, ValueOf(connectionString, key));
            }
        }
    }
    if (file) RefuseAsOutput(output, *file);
    ado::ConnectionPtr connection;
    const bool makesFile = file && names.makesFiles && !platform::FileExists(*file);
    if (file && names.makesFiles) {
        connection =
            engine.SetDatabaseConnectionString("Provider=SQLite;Create=1;Data Source=" + Quoted(*file));
    } else if (file) {
        connection =
            engine.SetDatabaseConnection_MDBFile(QuotedIfNeeded(*file), {}, QuotedIfNeeded(password));
    } else {
        connection = engine.SetDatabaseConnectionString(WithPassword(connectionString, password));
    }
    if (!connection) throw CommandError(ExitStatus::NotRun, engine.GetLastError());
    if (output) {
        try {
            connection->RequireOtherFile(*output);
        } catch (const ErrorInfo&) {
            RaiseUsage("-o names a file that is read.");
        }
    }
    return makesFile ? file : std::nullopt;
}

}  // namespace halvtiv::cli
