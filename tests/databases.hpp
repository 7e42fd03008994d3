#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <halvtiv/halvtiv.hpp>

#include "support.hpp"

namespace halvtiv::test {

// Errors' numbers, the same on every database.
inline constexpr std::int32_t kViolation = -2147217873;
inline constexpr std::int32_t kRowChanged = -2147217864;
inline constexpr std::int32_t kNotSupported = -2146825037;
inline constexpr std::int32_t kNoRecord = -2146825267;
inline constexpr std::int32_t kWrongType = -2146824867;

/// What not every database can do. Each has its row in the table of docs/databases.md.
enum class Can {
    ExplainDuplicates,
    GoOnAfterFailure,
    CheckAtCommit,
    UndoDefinitions,
    ChangeWithoutKey,
    KnowNewKeys,
    SeeOthersDefinitions,
    KeepLargeDecimals,
    KeepDoubles,
    HaveGuids,
    KeepNulInText,
    EndAtTimeOut
};

struct Capability {
    Can can;
    const char* name;  ///< as the table has it
};

inline const std::vector<Capability>& Capabilities() {
    static const std::vector<Capability> all{
        {Can::ExplainDuplicates, "A duplicate key is explained to the person at the keyboard"},
        {Can::GoOnAfterFailure, "A transaction goes on after a statement that has failed"},
        {Can::CheckAtCommit, "A constraint can wait for the commit"},
        {Can::UndoDefinitions, "CREATE, ALTER and DROP are undone with their transaction"},
        {Can::ChangeWithoutKey, "Rows of a table without a key can be changed"},
        {Can::KnowNewKeys, "A new row whose key the database has given can be changed at once"},
        {Can::SeeOthersDefinitions, "A column that somebody else has just added is read"},
        {Can::KeepLargeDecimals, "Decimals keep all their digits"},
        {Can::KeepDoubles, "Floating numbers keep all their digits"},
        {Can::HaveGuids, "GUIDs are a type of their own"},
        {Can::KeepNulInText, "A text may hold a NUL"},
        {Can::EndAtTimeOut, "A statement that takes too long ends at its time-out"}};
    return all;
}

/// What a database calls things, and where it is unlike the others.
struct DatabaseTraits {
    std::string name;
    std::string column;  ///< of the table in docs/databases.md
    std::string source;  ///< of its errors
    /// The variable of the environment that holds a server's connection string; "" for a file.
    std::string variable;

    // A place of the test's own, "%" being its name, or a file's path.
    std::string make, drop, connect;

    std::string bigInteger, decimal, text, bytes, timestamp, guid, boolean;  ///< types
    std::string caseless;             ///< a type of short texts that takes "a" for "A", where there is one
    std::string key;                  ///< of a number that the database gives by itself
    std::vector<std::string> tables;  ///< with columns a, b, c and keys of kinds that others lack
    std::string manyNumbers;          ///< rows of one column n, from 1 to %
    std::string endless;              ///< a query that does not end by itself
    std::string largestDecimal;       ///< of ten digits behind the point, where it keeps so many

    std::map<Can, const char*> cannot;  ///< and why

    bool Has(Can can) const { return !cannot.contains(can); }
};

inline void PrintTo(const DatabaseTraits* traits, std::ostream* out) {
    *out << traits->name;
}
/// Prints what it can, and what it cannot with the reason.
std::ostream& operator<<(std::ostream& out, const DatabaseTraits& traits);

const DatabaseTraits& Sqlite();
const DatabaseTraits& Postgresql();
const DatabaseTraits& MariaDb();
const DatabaseTraits& SqliteOdbc();
const DatabaseTraits& PostgresqlOdbc();

inline std::vector<const DatabaseTraits*> Databases() {
    return {&Sqlite(), &Postgresql(), &MariaDb(), &SqliteOdbc(), &PostgresqlOdbc()};
}
inline std::string DatabaseName(const testing::TestParamInfo<const DatabaseTraits*>& info) {
    return info.param->name;
}

/// What comes of a call of a built-in function, "public." left out, whose items are its "data" block: the
/// returned number, or the error's number and words.
std::string Outcome(ZorbDbAccessEngine& engine, std::string_view function, Params params,
                    const std::vector<Item>* items = nullptr);

/// A connection to an empty database of the test's own.
class DatabaseFixture {
public:
    /// Skips the running test, with the reason, where the database is not there.
    void Open(const DatabaseTraits& traits);
    void Close();

    const DatabaseTraits& Traits() const { return *traits_; }
    bool Has(Can can) const { return traits_->Has(can); }
    const std::string& ConnectionString() const { return string_; }
    ado::ConnectionPtr Connect(std::string_view more = {}) const {
        auto opened = std::make_shared<ado::Connection>();
        opened->Open(string_ + std::string(more));
        return opened;
    }
    void Run(std::string_view sql) const {
        for (auto result = connection->Execute(sql); result; result = result->NextRecordset()) continue;
    }
    ado::RecordsetPtr Query(std::string_view sql, std::int32_t cursorType = ado::adOpenForwardOnly) const {
        auto recordset = std::make_shared<ado::Recordset>();
        recordset->Open(sql, connection, cursorType, ado::adLockReadOnly);
        return recordset;
    }
    ado::RecordsetPtr Change(std::string_view sql) const {
        auto recordset = std::make_shared<ado::Recordset>();
        recordset->Open(sql, connection, ado::adOpenDynamic, ado::adLockOptimistic);
        return recordset;
    }
    std::string Scalar(std::string_view sql) const {
        const auto rows = Query(sql);
        return rows->IsEOF() ? "(no row)" : rows->Fields().Item(0)->Value().Text();
    }
    std::string Rows(std::string_view sql) const { return RestOf(Query(sql)); }
    /// The rows 1 to count as a FROM item.
    std::string Numbers(int count) const {
        auto text = traits_->manyNumbers;
        return text.replace(text.find('%'), 1, std::to_string(count)) + " numbers";
    }

    ado::ConnectionPtr connection;
    TemporaryFolder folder;  ///< for other files than the database's

private:
    const DatabaseTraits* traits_ = nullptr;
    std::string string_;
    std::unique_ptr<TemporaryFolder> place_;
    std::string name_;
    ado::ConnectionPtr admin_;
};

/// What one database alone can do.
class OneDatabase : public testing::Test, protected DatabaseFixture {
protected:
    explicit OneDatabase(const DatabaseTraits& traits) : database_(traits) {}
    using DatabaseFixture::Run;
    void SetUp() override { Open(database_); }
    void TearDown() override { Close(); }

private:
    const DatabaseTraits& database_;
};

/// One suite for every database: what an application may count on wherever its data is.
class EveryDatabase : public testing::TestWithParam<const DatabaseTraits*>, protected DatabaseFixture {
protected:
    using DatabaseFixture::Run;
    void SetUp() override { Open(*GetParam()); }
    void TearDown() override { Close(); }
};

/// The same with an engine beside the connection.
class EveryDatabasesEngine : public EveryDatabase {
protected:
    void SetUp() override {
        EveryDatabase::SetUp();
        if (IsSkipped()) return;
        ASSERT_NE(engine.SetDatabaseConnectionString(ConnectionString()), nullptr) << engine.GetLastError();
    }
    void TearDown() override {
        engine.DisConnect();
        EveryDatabase::TearDown();
    }
    std::string Call(std::string_view function, Params params) { return Outcome(engine, function, params); }
    std::string Call(std::string_view function, Params params, const std::vector<Item>& items) {
        return Outcome(engine, function, params, &items);
    }

    ZorbDbAccessEngine engine;
};

}  // namespace halvtiv::test
