#include "ado/postgresql/postgresql_session.hpp"

#include <algorithm>
#include <chrono>
#include <utility>

#include "ado/errors.hpp"
#include "ado/postgresql/postgresql_batch.hpp"
#include "ado/postgresql/postgresql_cursor.hpp"
#include "ado/postgresql/postgresql_text.hpp"

namespace halvtiv::ado {
namespace {

constexpr PostgresqlSending kRowByRow{true, false};

std::string SavepointName(std::int32_t level) {
    return "halvtiv_" + std::to_string(level);
}

}  // namespace

PostgresqlSession::PostgresqlSession(std::unique_ptr<PostgresqlLink> link) : link_(std::move(link)) {}

PostgresqlSession::~PostgresqlSession() = default;

std::unique_ptr<Batch> PostgresqlSession::Prepare(std::string commandText, Purpose purpose) {
    Link();
    if (commandText.find('\0') != std::string::npos) {
        throw MakeProviderError(AdoError::SqlError, kNulInCommand, kPostgresqlName);
    }
    if (commandText.size() > static_cast<std::size_t>(kMostSentBytes)) {
        throw MakeProviderError(AdoError::SqlError, kCommandTooLong, kPostgresqlName);
    }
    return std::make_unique<PostgresqlBatch>(shared_from_this(), std::move(commandText), purpose);
}

void PostgresqlSession::Close() {
    cache_.TakeAll();
    tooLong_.clear();
    reader_ = nullptr;
    link_.reset();
}

PostgresqlLink& PostgresqlSession::Link() {
    if (!link_) RaiseAdoError(AdoError::InvalidConnection);
    return *link_;
}

PostgresqlLink& PostgresqlSession::FreeLine() {
    auto& link = Link();
    if (auto* const reader = std::exchange(reader_, nullptr)) reader->KeepRest();
    if (dueSettings_) MakeDueSettings();
    return link;
}

void PostgresqlSession::MakeDueSettings() {
    const std::string settings = std::exchange(dueSettings_, nullptr);
    try {
        WithoutStops([&] { Link().RunScript(settings); });
    } catch (
        const ErrorInfo&) {  // NOLINT(bugprone-empty-catch): a transaction has failed, or the line is gone
    }
}

void PostgresqlSession::Begin() {
    FreeLine().Run("BEGIN");
}

void PostgresqlSession::Commit() {
    try {
        auto& link = FreeLine();
        link.StopIfCancelled();
        // What has been sent must be known to be done or not: nothing stops it half-way.
        PostgresqlResult result;
        WithoutStops([&] { result = link.Run("COMMIT"); });
        RequireCommitted(result.get());
    } catch (...) {
        if (InTransaction()) Rollback();
        throw;
    }
}

void PostgresqlSession::Rollback() {
    RunToUndo("ROLLBACK");
}

void PostgresqlSession::SetSavepoint(std::int32_t level) {
    FreeLine().Run("SAVEPOINT " + SavepointName(level));
}

void PostgresqlSession::ReleaseSavepoint(std::int32_t level) {
    FreeLine().Run("RELEASE " + SavepointName(level));
}

void PostgresqlSession::RollbackToSavepoint(std::int32_t level) {
    RunToUndo("ROLLBACK TO " + SavepointName(level));
    RunToUndo("RELEASE " + SavepointName(level));
}

void PostgresqlSession::RunToUndo(const std::string& text) {
    try {
        FreeLine();
    } catch (const ErrorInfo& error) {
        if (!ado::IsCancelled(error)) throw;  // the rows are, undoing is not
    }
    WithoutStops([&] { Link().Run(text); });
}

void PostgresqlSession::SetCommandTimeout(std::int32_t seconds) {
    Link().SetCommandTimeout(std::chrono::seconds(std::max(seconds, 0)));
}

std::shared_ptr<PostgresqlStatement> PostgresqlSession::FindKept(std::string_view text, Purpose purpose) {
    FreeLine();
    return cache_.Find(text, purpose);
}

std::shared_ptr<PostgresqlStatement> PostgresqlSession::Acquire(std::string_view text, Purpose purpose) {
    if (auto kept = FindKept(text, purpose)) return kept;
    auto& link = Link();
    auto statement = PrepareNew(text, purpose);
    statement->transaction = link.TransactionSerial();
    if (text.size() <= PostgresqlStatementCache::kLongestText) {
        if (const auto fallen = cache_.Keep(statement)) Deallocate(*fallen);
    } else {
        DropUnused();
        tooLong_.push_back(statement);
    }
    return statement;
}

bool PostgresqlSession::ReturnsRows(std::string_view text) {
    const std::string unnamed;
    Link().Prepare(unnamed, std::string(text));
    return PQnfields(Link().Describe(unnamed).get()) > 0;
}

std::string PostgresqlSession::PrepareNamed(const std::string& text) {
    auto name = "halvtiv_" + std::to_string(++lastName_);
    Link().Prepare(name, text);
    return name;
}

std::string PostgresqlSession::TryPrepare(const std::string& text, PostgresqlResult& description) {
    constexpr std::int32_t kLevel = 0;  // below those that a connection counts
    const bool inTransaction = InTransaction();
    if (inTransaction) SetSavepoint(kLevel);
    std::string name;
    try {
        name = PrepareNamed(text);
        description = Link().Describe(name);
    } catch (const ErrorInfo& error) {
        if (ado::IsCancelled(error) || !IsAlive()) throw;
        name.clear();
        if (inTransaction) RollbackToSavepoint(kLevel);
        return name;
    }
    if (inTransaction) ReleaseSavepoint(kLevel);
    return name;
}

std::shared_ptr<PostgresqlStatement> PostgresqlSession::PrepareNew(std::string_view text, Purpose purpose) {
    auto statement = std::make_shared<PostgresqlStatement>();
    statement->text = statement->sent = text;
    statement->purpose = purpose;
    statement->onlyReads = OnlyReads(text);
    statement->name = PrepareNamed(statement->sent);
    const auto description = Link().Describe(statement->name);
    statement->ReadColumns(description.get());
    auto plan = PlanPostgresqlQuery(*this, text, description.get(), statement->columns, purpose);
    if (!plan) return statement;
    PostgresqlResult planned;
    const auto name = TryPrepare(plan->text, planned);
    const bool isRight = !name.empty() && PQnfields(planned.get()) == plan->width;
    // A query that does not take the other select list runs as it is.
    if (!isRight) return statement;
    Deallocate(*statement);
    statement->name = name;
    statement->sent = plan->text;
    for (auto i = static_cast<int>(statement->formats.size()); i < plan->width; ++i) {
        statement->formats.push_back(ColumnOf(planned.get(), i));
    }
    for (std::size_t i = 0; i < plan->sizeColumns.size(); ++i) {
        statement->formats[i].sizeColumn = plan->sizeColumns[i];
    }
    statement->plan = std::move(plan);
    return statement;
}

void PostgresqlSession::DropUnused() {
    std::vector<std::string> names;
    std::erase_if(tooLong_, [&](const std::shared_ptr<PostgresqlStatement>& statement) {
        const bool isUnused = statement.use_count() == 1;
        if (isUnused) names.push_back(statement->name);
        return isUnused;
    });
    if (!names.empty()) DeallocateAll(names);
}

void PostgresqlSession::Deallocate(const PostgresqlStatement& statement) {
    DeallocateAll({statement.name});
}

void PostgresqlSession::DeallocateAll(const std::vector<std::string>& names) {
    std::string script;
    for (const auto& name : names) script += "DEALLOCATE " + name + ";";
    try {
        auto& link = FreeLine();
        WithoutStops([&] { link.RunScript(script); });
    } catch (const ErrorInfo&) {  // NOLINT(bugprone-empty-catch): they are gone already, or the line is
    }
}

bool PostgresqlSession::IsOutdated() const {
    return link_->LastState() == "0A000" || link_->LastState() == "26000";
}

void PostgresqlSession::ForgetStatements() {
    const auto all = cache_.TakeAll();
    if (all.empty() || !link_) return;
    std::vector<std::string> names;
    names.reserve(all.size());
    for (const auto& statement : all) names.push_back(statement->name);
    // In a transaction that has failed this fails, too; the names are not used again.
    DeallocateAll(names);
}

PostgresqlResult PostgresqlSession::Start(std::shared_ptr<PostgresqlStatement>& statement) {
    auto& link = FreeLine();
    for (bool again = false;; again = true) {
        // In a transaction, a statement from before it goes as a text the first time: an error of one that
        // has been outdated meanwhile would spoil the transaction. From then on its tables are locked.
        const bool asText = link.InTransaction() && statement->transaction != link.TransactionSerial();
        PostgresqlResult first;
        try {
            if (asText) {
                link.SendText(statement->sent, kRowByRow);
                statement->transaction = link.TransactionSerial();
            } else {
                link.SendPrepared(statement->name, {}, kRowByRow);
            }
            first = link.Receive();
        } catch (const ErrorInfo&) {
            if (again || link.InTransaction() || !IsOutdated()) throw;
            cache_.Forget(*statement);
            Deallocate(*statement);
            statement = Acquire(std::string(statement->text), statement->purpose);
            continue;
        }
        if (PQnfields(first.get()) == 0 || statement->Fits(first.get())) return first;
        cache_.Forget(*statement);
        auto renewed = std::make_shared<PostgresqlStatement>(*statement);
        renewed->isKept = false;
        if (!statement->plan || again) {
            renewed->plan.reset();
            renewed->ReadColumns(first.get());
            statement = std::move(renewed);
            return first;
        }
        // The plan is of a query that only reads one table.
        link.GiveUp(true);
        statement = Acquire(std::string(statement->text), statement->purpose);
    }
}

PostgresqlResult PostgresqlSession::Query(const std::string& text, const PostgresqlParameters& parameters,
                                          bool binary) {
    auto& link = FreeLine();
    auto statement = cache_.Find(text, Purpose::Read);
    for (bool again = false;; again = true) {
        const bool isNew = !statement;
        if (isNew) {
            statement = std::make_shared<PostgresqlStatement>();
            statement->text = statement->sent = text;
            statement->name = PrepareNamed(text);
            if (const auto fallen = cache_.Keep(statement)) Deallocate(*fallen);
        }
        try {
            link.SendPrepared(statement->name, parameters, {false, binary});
            return link.ReceiveAll();
        } catch (const ErrorInfo&) {
            if (again || isNew || link.InTransaction() || !IsOutdated()) throw;
            cache_.Forget(*statement);
            Deallocate(*statement);
            statement.reset();
        }
    }
}

}  // namespace halvtiv::ado
