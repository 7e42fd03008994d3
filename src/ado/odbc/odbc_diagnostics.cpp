#include "ado/odbc/odbc_diagnostics.hpp"

#include <algorithm>
#include <array>
#include <span>

#include "ado/odbc/odbc_text.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kMostWords = 4096;

// "[vendor][driver][database]words": the words.
std::string_view WithoutComponents(std::string_view words) {
    while (words.starts_with('[')) {
        const auto end = words.find(']');
        if (end == std::string_view::npos) break;
        words.remove_prefix(end + 1);
    }
    const auto begin = words.find_first_not_of(' ');
    if (begin == std::string_view::npos) return {};
    return words.substr(begin, words.find_last_not_of(" \r\n") - begin + 1);
}

bool ReadRecord(SQLSMALLINT type, SQLHANDLE handle, bool isWide, SQLSMALLINT number, OdbcDiagnostic& record) {
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    std::string words;
    if (isWide) {
        std::array<SQLWCHAR, 6> state{};
        std::vector<SQLWCHAR> text(kMostWords);
        if (!SQL_SUCCEEDED(SQLGetDiagRecW(type, handle, number, state.data(), &native, text.data(),
                                          static_cast<SQLSMALLINT>(text.size()), &length))) {
            return false;
        }
        AppendUtf8(record.state, std::span(state).first(5));
        const auto end = std::find(text.begin(), text.end(), SQLWCHAR{0});
        AppendUtf8(words, std::span(text.begin(), end));
    } else {
        std::array<SQLCHAR, 6> state{};
        std::vector<SQLCHAR> text(kMostWords);
        if (!SQL_SUCCEEDED(SQLGetDiagRec(type, handle, number, state.data(), &native, text.data(),
                                         static_cast<SQLSMALLINT>(text.size()), &length))) {
            return false;
        }
        record.state = reinterpret_cast<const char*>(state.data());
        words = reinterpret_cast<const char*>(text.data());
    }
    record.nativeCode = native;
    record.words = WithoutComponents(words);
    return true;
}

bool IsOneOf(std::int32_t code, std::initializer_list<std::int32_t> codes) {
    return std::find(codes.begin(), codes.end(), code) != codes.end();
}

}  // namespace

std::vector<OdbcDiagnostic> ReadOdbcDiagnostics(SQLSMALLINT handleType, SQLHANDLE handle, bool isWide) {
    constexpr SQLSMALLINT kMost = 16;
    std::vector<OdbcDiagnostic> diagnostics;
    for (SQLSMALLINT number = 1; number <= kMost; ++number) {
        OdbcDiagnostic diagnostic;
        if (!ReadRecord(handleType, handle, isWide, number, diagnostic)) break;
        diagnostics.push_back(std::move(diagnostic));
    }
    return diagnostics;
}

AdoError KindOfOdbcState(const OdbcDiagnostic& diagnostic) {
    const std::string_view state = diagnostic.state;
    if (state == "42S02" || state == "42P01") return AdoError::NoSuchTable;
    constexpr std::int32_t kStatementTimeExceeded = 1969;
    if (state == "HYT00" || state == "S1T00" || diagnostic.nativeCode == kStatementTimeExceeded)
        return AdoError::CommandTimeout;
    if (state == "HY008" || state == "S1008") return AdoError::Cancelled;
    if (state.starts_with("23")) return AdoError::ConstraintViolation;
    if (state.starts_with("28")) return AdoError::LoginFailed;
    constexpr std::array<std::string_view, 11> kSqlErrors{"07", "0A", "21", "22", "24", "25",
                                                          "34", "3B", "42", "45", "P0"};
    if (std::find(kSqlErrors.begin(), kSqlErrors.end(), state.substr(0, 2)) != kSqlErrors.end()) {
        return AdoError::SqlError;
    }
    // Drivers that say HY000 where they know better. The ranges of their codes do not overlap.
    if (state != "HY000" && state != "S1000") return AdoError::Unspecified;
    const auto code = diagnostic.nativeCode;
    const std::string_view words = diagnostic.words;
    if (words.starts_with("no such table")) return AdoError::NoSuchTable;
    if (IsOneOf(code, {1045, 1044, 1698})) return AdoError::LoginFailed;
    if (IsOneOf(code, {1062, 1048, 1364, 1451, 1452, 4025, 19})) return AdoError::ConstraintViolation;
    if (words.starts_with("Couldn't parse SQL")) return AdoError::SqlError;
    if (IsOneOf(code, {1, 1054, 1064, 1264, 1265, 1292, 1366, 1406})) return AdoError::SqlError;
    return AdoError::Unspecified;
}

bool IsConnectionLost(const OdbcDiagnostic& diagnostic) {
    constexpr std::int32_t kServerGone = 2006;
    constexpr std::int32_t kServerLost = 2013;
    constexpr std::int32_t kKilled = 1927;
    // The driver has lost its place in the server's answers, for good.
    constexpr std::int32_t kOutOfSync = 2014;
    constexpr std::int32_t kMalformed = 2027;
    return diagnostic.state.starts_with("08") ||
           IsOneOf(diagnostic.nativeCode, {kServerGone, kServerLost, kKilled, kOutOfSync, kMalformed});
}

ErrorInfo MakeOdbcError(const std::vector<OdbcDiagnostic>& diagnostics, std::string_view source) {
    const auto found = std::find_if(diagnostics.begin(), diagnostics.end(),
                                    [](const auto& entry) { return !entry.state.starts_with("01"); });
    if (found == diagnostics.end()) {
        return MakeProviderError(AdoError::Unspecified, "The driver failed without a message.", source);
    }
    std::string words = found->words + " (SQLSTATE " + found->state;
    if (found->nativeCode != 0) words += ", code " + std::to_string(found->nativeCode);
    words += ')';
    return MakeProviderError(KindOfOdbcState(*found), words, source);
}

}  // namespace halvtiv::ado
