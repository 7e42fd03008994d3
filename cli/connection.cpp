#include "connection.hpp"

#include <halvtiv/error_info.hpp>

#include "command_error.hpp"
#include "platform/text.hpp"
#include "system.hpp"

namespace halvtiv::cli {
namespace {

std::string WithoutLineEnds(std::string text) {
    while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
    return text;
}

std::string ReadSettingFile(const std::string& path) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
    try {
        std::string text = ReadInputFile(path);
        if (text.starts_with(kByteOrderMark)) text.erase(0, kByteOrderMark.size());
        return WithoutLineEnds(std::move(text));
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::NotRun, error.Description);
    }
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

/// Where the value that begins at `start` ends: at a ";" outside quotes and braces, or with the text.
std::size_t EndOfValue(std::string_view text, std::size_t start) {
    const std::size_t first = text.find_first_not_of(' ', start);
    if (first == std::string_view::npos) return text.size();
    const char open = text[first];
    if (open == '"' || open == '\'' || open == '{') {
        const char close = open == '{' ? '}' : open;
        std::size_t end = text.find(close, first + 1);
        while (end != std::string_view::npos && end + 1 < text.size() && text[end + 1] == close) {
            end = text.find(close, end + 2);
        }
        if (end == std::string_view::npos) return text.size();
        start = end;
    }
    return std::min(text.find(';', start), text.size());
}

bool HasPassword(std::string_view connection) {
    std::size_t position = 0;
    while (position < connection.size()) {
        const std::size_t sign = connection.find('=', position);
        if (sign == std::string_view::npos) return false;
        const std::string_view key = platform::TrimBlanks(connection.substr(position, sign - position));
        const std::size_t end = EndOfValue(connection, sign + 1);
        const bool isEmpty = platform::TrimBlanks(connection.substr(sign + 1, end - sign - 1)).empty();
        const bool isPassword =
            platform::EqualIgnoringCase(key, "password") || platform::EqualIgnoringCase(key, "pwd");
        if (isPassword && !isEmpty) return true;
        position = end + 1;
    }
    return false;
}

std::string Password(const ConnectionOptions& options) {
    if (options.passwordFile) return ReadSettingFile(*options.passwordFile);
    return Environment("HALVTIV_PASSWORD").value_or("");
}

std::string ConnectionString(const ConnectionOptions& options) {
    if (options.connection) return *options.connection;
    if (options.connectionFile) return ReadSettingFile(*options.connectionFile);
    return Environment("HALVTIV_CONNECTION").value_or("");
}

}  // namespace

std::string WithPassword(std::string_view connection, std::string_view password) {
    std::string complete(connection);
    if (password.empty() || HasPassword(connection)) return complete;
    const std::string_view end = platform::TrimBlanks(connection);
    if (!end.empty() && !end.ends_with(';')) complete += ';';
    return complete + "Password=" + Quoted(password);
}

void Connect(ZorbDbAccessEngine& engine, const ConnectionOptions& options) {
    const std::string password = Password(options);
    ado::ConnectionPtr connection;
    if (options.database) {
        connection = engine.SetDatabaseConnection_MDBFile(QuotedIfNeeded(*options.database), {},
                                                          QuotedIfNeeded(password));
    } else {
        const std::string connectionString = ConnectionString(options);
        if (platform::TrimBlanks(connectionString).empty()) {
            throw CommandError(ExitStatus::NotRun,
                               "No database is named: use --db, --connection, --connection-file or the "
                               "environment's HALVTIV_CONNECTION.");
        }
        connection = engine.SetDatabaseConnectionString(WithPassword(connectionString, password));
    }
    if (!connection) throw CommandError(ExitStatus::NotRun, engine.GetLastError());
}

}  // namespace halvtiv::cli
