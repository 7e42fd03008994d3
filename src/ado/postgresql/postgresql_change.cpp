// Changes of single rows.

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>

#include "ado/change_text.hpp"
#include "ado/postgresql/postgresql_session.hpp"
#include "platform/number.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kPieceSize = std::size_t{1} << 20;
constexpr std::string_view kSavepoint = "halvtiv_change";

std::string WholeOf(ByteSource& source, PostgresqlLink& link) {
    const auto size = source.Size();
    if (size > kMostSentBytes) RaiseTooLong();
    std::string whole(static_cast<std::size_t>(size), '\0');
    const std::span<std::uint8_t> bytes(reinterpret_cast<std::uint8_t*>(whole.data()), whole.size());
    for (std::size_t read = 0; read < bytes.size();) {
        link.StopIfCancelled();
        const auto piece = bytes.subspan(read, std::min(bytes.size() - read, kPieceSize));
        source.Read(static_cast<std::int64_t>(read), piece);
        read += piece.size();
    }
    return whole;
}

void AddParameter(PostgresqlParameters& parameters, const Parameter& parameter, PostgresqlLink& link) {
    char number[platform::kNumberTextSize];
    const CellValue& value = parameter.value;
    switch (value.kind) {
        case CellKind::Null:
            parameters.AddNull();
            break;
        case CellKind::Integer:
            parameters.AddText(platform::IntegerText(value.integer, number));
            break;
        case CellKind::Double:
            parameters.AddText(platform::DoubleText(value.number, number));
            break;
        case CellKind::Text:
            if (parameter.source) {
                parameters.AddText(WholeOf(*parameter.source, link));
            } else {
                parameters.AddText(value.text);
            }
            break;
        case CellKind::Blob:
            parameters.AddBytes(parameter.source ? WholeOf(*parameter.source, link)
                                                 : std::string(value.text));
            break;
    }
}

/// Whether the database is to tell which key it has given the row.
bool WantsKey(const RowChange& change) {
    if (change.kind != RowChange::Kind::Insert || !change.table->keyIsRowId) return false;
    return std::none_of(change.values.begin(), change.values.end(),
                        [&](const Parameter& value) { return value.name == change.table->key.front().name; });
}

std::optional<std::int64_t> NumberIn(const char* digits) {
    std::int64_t value = 0;
    const std::string_view text(digits);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

}  // namespace

RowChangeResult PostgresqlSession::Change(const RowChange& change) {
    auto& link = FreeLine();
    auto written = WriteChange(change, [](std::string& text, std::size_t place, const Parameter&) {
        text += '$';
        text += std::to_string(place);
    });
    const bool wantsKey = WantsKey(change);
    if (wantsKey) written.text += " RETURNING " + change.table->key.front().name;
    PostgresqlParameters parameters;
    for (const auto* parameter : written.parameters) AddParameter(parameters, *parameter, link);

    const auto result = RunChange(written.text, parameters);
    RowChangeResult done;
    done.affectedRows = NumberIn(PQcmdTuples(result.get())).value_or(0);
    if (wantsKey && PQntuples(result.get()) == 1) done.newKey = NumberIn(PQgetvalue(result.get(), 0, 0));
    return done;
}

PostgresqlResult PostgresqlSession::RunChange(const std::string& text,
                                              const PostgresqlParameters& parameters) {
    if (!InTransaction()) return Query(text, parameters, false);
    const std::string savepoint(kSavepoint);
    for (bool again = false;; again = true) {
        Link().Run("SAVEPOINT " + savepoint);
        try {
            auto result = Query(text, parameters, false);
            Link().Run("RELEASE " + savepoint);
            return result;
        } catch (...) {
            const bool isOutdated = link_ && IsOutdated();
            if (!InTransaction()) throw;
            RunToUndo("ROLLBACK TO " + savepoint);
            RunToUndo("RELEASE " + savepoint);
            const auto statement = cache_.Find(text, Purpose::Read);
            if (again || !isOutdated || !statement) throw;
            cache_.Forget(*statement);
            Deallocate(*statement);
        }
    }
}

}  // namespace halvtiv::ado
