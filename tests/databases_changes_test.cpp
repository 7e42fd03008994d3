// Rows that are changed through recordsets and by the functions that change them, on every database.

#include <thread>

#include "databases.hpp"

namespace halvtiv::test {
namespace {

using namespace ado;

void Assign(const RecordsetPtr& rows, std::string_view name, const char* text) {
    rows->Fields().Item(name)->Value(text ? Variant(text) : Variant());
}

std::int32_t Updated(const RecordsetPtr& rows) {
    return NumberOf([&] { rows->Update(); });
}

TEST_P(EveryDatabase, RowsAreAddedChangedAndDeletedWhateverTheirKey) {
    auto tables = Traits().tables;
    tables.insert(tables.end(), {"(a integer primary key, b varchar(9), c integer)",
                                 "(a integer, b varchar(9), c integer, primary key (b, a))",
                                 "(a integer, b varchar(9) not null unique, c integer)"});
    const std::string withoutKey = "(a integer, b varchar(9), c integer)";
    tables.push_back(withoutKey);
    for (const auto& columns : tables) {
        SCOPED_TRACE(columns);
        Run("drop table if exists t");
        Run("create table t " + columns);
        auto rows = Change("t");
        EXPECT_TRUE(rows->IsEOF());
        for (const char* key : {"1", "2", "3"}) {
            rows->AddNew();
            Assign(rows, "a", key);
            Assign(rows, "B", (std::string("k") + key).c_str());
            EXPECT_EQ(rows->Fields().Item("b")->Value().Text(), std::string("k") + key)
                << "before it is written";
            rows->Update();
        }
        rows->Close();

        rows = Change("select a, b, c from t order by a");
        Assign(rows, "a", "10");
        if (columns == withoutKey && !Has(Can::ChangeWithoutKey)) {
            EXPECT_EQ(Updated(rows), kNotSupported);
            EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kNotSupported);
            EXPECT_EQ(Rows("select a, b from t order by a"), "1 k1|2 k2|3 k3");
            continue;
        }
        rows->Update();
        if (columns != withoutKey) {
            Assign(rows, "b", "k10");  // again, by the key as it is by now
            Assign(rows, "c", "-1");
            rows->Update();
        }
        rows->MoveNext();
        rows->Delete();
        EXPECT_EQ(NumberOf([&] { rows->Fields().Item(0)->Value(); }), kNoRecord);
        EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kNoRecord);
        rows->MoveNext();
        Assign(rows, "c", "31");
        rows->MoveNext();  // writes it
        EXPECT_TRUE(rows->IsEOF());
        EXPECT_EQ(NumberOf([&] { Assign(rows, "c", "0"); }), kNoRecord);
        rows->Close();
        EXPECT_EQ(Rows("select a, b, c from t order by a"),
                  columns == withoutKey ? "3 k3 31|10 k1 null" : "3 k3 31|10 k10 -1");
        rows = Change("select c from t order by a");  // the key is not selected
        EXPECT_EQ(rows->Fields().Count(), 1);
        Assign(rows, "c", "7");
        rows->Update();
        rows->MoveNext();
        rows->Delete();
        EXPECT_EQ(Rows("select a, c from t"), "3 7");
    }
}

TEST_P(EveryDatabase, ATableThatIsMadeAnewTakesItsNewValues) {
    for (const char* kind : {"smallint", "varchar(9)"}) {
        Run("drop table if exists t");
        Run(std::string("create table t (id integer primary key, v ") + kind + ")");
        Run("insert into t values (1, '1')");
        const auto rows = Change("select * from t");
        Assign(rows, "v", *kind == 's' ? "2" : "two");
        EXPECT_EQ(Updated(rows), 0) << kind;
    }
    EXPECT_EQ(Rows("select v from t"), "two");
}

TEST_P(EveryDatabase, AnAddedRowIsFoundByTheKeyThatTheDatabaseGaveIt) {
    Run("create table t (id " + Traits().key + ", name varchar(20))");
    const auto added = Change("t");
    for (const char* name : {"first", "second"}) {
        added->AddNew();
        Assign(added, "name", name);
        added->Update();
    }
    Assign(added, "name", "changed");
    EXPECT_EQ(Updated(added), Has(Can::KnowNewKeys) ? 0 : kRowChanged);
    if (!Has(Can::KnowNewKeys)) return;
    EXPECT_EQ(Rows("select name from t order by id"), "first|changed");
    added->Delete();
    added->Close();
    EXPECT_EQ(Rows("select name from t"), "first");
}

TEST_P(EveryDatabase, WhatIsNoRowOfOneTableIsNotChanged) {
    Run("create table t (id integer primary key, name varchar(20), boss integer)");
    Run("insert into t values (1, 'a', 1), (2, 'b', 1)");
    Run("create view v as select id, name from t");
    for (const char* sql :
         {"v", "select distinct name from t", "select name from t group by name",
          "select count(*) as name from t", "SELECT name FROM t UNION select name from t",
          "select name from (select name from t) x", "with c as (select name from t) select name from c",
          "select t.name, b.name from t, t b where b.id = t.boss",
          "select t.id, t.name, b.id from t join t b on b.id = t.boss", "select 'x' as name"}) {
        SCOPED_TRACE(sql);
        const auto rows = Change(sql);
        EXPECT_EQ(NumberOf([&] { rows->AddNew(); }), kNotSupported);
        EXPECT_FALSE(rows->IsEOF());
        EXPECT_EQ(NumberOf([&] { Assign(rows, "name", "changed"); }), kNotSupported);
        EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kNotSupported);
    }
    EXPECT_EQ(NumberOf([&] { Assign(Query("select * from t"), "name", "x"); }), kNotSupported);
    EXPECT_EQ(NumberOf([&] { Change("select * from nope"); }), -2147217865);
    EXPECT_EQ(Rows("select name from t order by id"), "a|b");

    // Of one table, in spite of what stands around it.
    const auto rows =
        Change("select upper(name) as big, name from t x where id in (select max(id) from t) -- union\n;");
    Assign(rows, "name", "changed");
    EXPECT_EQ(NumberOf([&] { Assign(rows, "big", "x"); }), kNotSupported) << "computed";
    rows->Update();
    rows->Close();
    EXPECT_EQ(Rows("select name from t order by id"), "a|changed");
}

TEST_P(EveryDatabase, AJoinIsChangedInTheTableWhoseKeyIsSelected) {
    Run("create table t (code varchar(9) primary key, name varchar(9))");
    Run("create table u (id integer primary key, t varchar(9), note varchar(9))");
    Run("insert into t values ('c', 'a')");
    Run("insert into u values (1, 'c', 'x'), (2, 'none', 'y')");
    auto rows = Change("select u.id, u.note, t.name from u join t on t.code = u.t");
    Assign(rows, "note", "changed");
    rows->Update();
    EXPECT_EQ(NumberOf([&] {
                  Assign(rows, "name", "changed");
                  rows->Update();
              }),
              kNotSupported)
        << "its key is not selected";
    rows->Close();
    rows = Change("select u.id, u.note, t.name, t.code from u, t where t.code = u.t");
    Assign(rows, "name", "A");
    rows->Update();
    Assign(rows, "note", "twice");
    rows->Update();
    EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kNotSupported);
    Assign(rows, "name", "B");
    Assign(rows, "note", "both");
    EXPECT_EQ(Updated(rows), kNotSupported) << "two tables at once";
    rows->Close();
    rows = Change("select u.id, t.name, t.code from u left join t on t.code = u.t order by u.id desc");
    Assign(rows, "name", "lost");
    EXPECT_EQ(Updated(rows), kRowChanged) << "there is no such row";
    rows->Close();
    EXPECT_EQ(Rows("select * from t"), "c A");
    EXPECT_EQ(Rows("select note from u order by id"), "twice|y");
}

TEST_P(EveryDatabase, WhatAnotherHasChangedMeanwhileIsNotOverwritten) {
    Run("create table t (id integer primary key, a " + Traits().caseless +
        ", d double precision, n decimal(9,2), b " + Traits().bytes + ")");
    const auto other = Connect();
    struct Case {
        const char* column;
        const char* otherSql;
        std::int32_t number;
    };
    for (const Case& expected : {Case{"a", "update t set a = 'other'", kRowChanged},
                                 {"a", "update t set a = 'MINE'", kRowChanged},
                                 {"a", "update t set a = null", kRowChanged},
                                 {"a", "delete from t", kRowChanged},
                                 {"a", "update t set id = 5", kRowChanged},
                                 {"n", "update t set n = 2", kRowChanged},
                                 {"a", "update t set n = 2", 0},
                                 {"d", "update t set d = 2", 0},
                                 {"b", "update t set b = null", 0}}) {
        SCOPED_TRACE(std::string(expected.column) + ": " + expected.otherSql);
        Run("delete from t");
        Run("insert into t values (1, 'mine', 1.1, 1, '1')");
        const auto rows = Change("select * from t");
        Assign(rows, expected.column, "7");
        other->Execute(expected.otherSql);
        EXPECT_EQ(Updated(rows), expected.number);
        EXPECT_EQ(rows->Fields().Item(expected.column)->Value().Text(), "7") << "it stays assigned";
    }
    Run("delete from t");
    Run("insert into t (id, a) values (1, 'x')");
    const auto rows = Change("t");
    Assign(rows, "a", "x");  // what stands there already
    rows->Update();
    other->Execute("delete from t");
    EXPECT_EQ(NumberOf([&] { rows->Delete(); }), kRowChanged);
}

TEST_P(EveryDatabase, AViolatedConstraintLeavesTheValuesToBeMended) {
    Run("create table t (id " + Traits().key +
        ", a varchar(9) not null check (a <> 'bad'), b integer unique)");
    Run("insert into t values (1, 'one', 1)");
    const auto rows = Change("t");
    rows->AddNew();
    Assign(rows, "id", "2");
    Assign(rows, "a", nullptr);
    Assign(rows, "b", "1");
    EXPECT_EQ(Updated(rows), kViolation) << "not null";
    Assign(rows, "a", "bad");
    EXPECT_EQ(Updated(rows), kViolation) << "check";
    Assign(rows, "a", "good");
    const auto error = ErrorOf([&] { rows->Update(); });
    EXPECT_EQ(error.Number, kViolation) << error.Description;
    EXPECT_EQ(error.Description.find("UNIQUE") != std::string::npos, Has(Can::ExplainDuplicates));
    EXPECT_EQ(rows->Fields().Item("a")->Value().Text(), "good");
    Assign(rows, "b", "2");
    rows->Update();
    rows->MoveFirst();
    Assign(rows, "b", "2");
    EXPECT_EQ(NumberOf([&] { rows->MoveNext(); }), kViolation);
    EXPECT_EQ(NumberOf([&] { Assign(rows, "b", "x"); }), -2146824867);
    Assign(rows, "b", "3");
    rows->Update();
    rows->Close();
    EXPECT_EQ(Rows("select * from t order by id"), "1 one 3|2 good 2");
}

TEST_P(EveryDatabase, GoingBackShowsTheRowsAsTheyAreByNow) {
    Run("create table t (id " + Traits().key + ", a integer)");
    Run("insert into t (a) values (10), (20), (30), (40)");
    const auto rows = Change("select a from t order by id");
    rows->MoveNext();
    Assign(rows, "a", "21");
    rows->Update();
    rows->MoveNext();
    rows->Delete();
    rows->MoveFirst();
    EXPECT_EQ(rows->Fields().Item(0)->Text(), "10");
    rows->AddNew();
    Assign(rows, "a", "50");
    rows->Update();
    rows->MoveNext();
    EXPECT_TRUE(rows->IsEOF());
    rows->MoveFirst();
    EXPECT_EQ(RestOf(rows), "10|21|40|50");
    rows->Close();

    const auto all = Change("select a from t");
    for (; !all->IsEOF(); all->MoveNext()) all->Delete();
    EXPECT_EQ(NumberOf([&] { all->MoveFirst(); }), kNoRecord);
    EXPECT_TRUE(all->IsBOF() && all->IsEOF());
}

TEST_P(EveryDatabase, AChangeDoesNotMakeARowComeRoundAgain) {
    for (const char* index : {"", "create index i on t (a)", "create index i on t (a, b)"}) {
        for (const char* query :
             {"select a, b from t where a < 1000 order by a", "select * from t where a > 0",
              "select a from t order by a desc", "select b, a from t where a in (1, 2, 1001, 1002)"}) {
            Run("drop table if exists t");
            Run("create table t (id " + Traits().key + ", a integer, b varchar(9))");
            Run("insert into t (a, b) values (1, 'x'), (2, 'y')");
            if (*index) Run(index);
            const auto rows = Change(query);
            for (; !rows->IsEOF(); rows->MoveNext()) {
                const auto a = rows->Fields().Item("a");
                a->Value(Variant(*a->Value().AsInteger() + 1000));
                rows->Update();
            }
            rows->Close();
            EXPECT_EQ(Rows("select a, b from t order by a"), "1001 x|1002 y") << query << index;
        }
    }
    Run("drop table t");
    Run("create table t (id integer primary key, n integer)");
    Run("insert into t select n, n from " + Numbers(500));
    const auto rows = Change("select n from t order by id");
    for (; !rows->IsEOF(); rows->MoveNext()) {
        const auto n = *rows->Fields().Item("n")->Value().AsInteger();
        if (n % 2 == 0) {
            rows->Delete();
        } else {
            rows->Fields().Item("n")->Value(Variant(-n));
            rows->Update();
        }
    }
    rows->Close();
    EXPECT_EQ(Rows("select count(*), sum(n) from t"), "250 -62500");
}

TEST_P(EveryDatabasesEngine, AnEmptyValueIsLeftOutOfANewRowAndEmptiesAnOldOne) {
    Run("create table t (id " + Traits().key + ", a varchar(20) default 'd', c integer)");
    const std::vector<Item> empty{{"a", ""}, {"c", "5"}};
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, empty), "1");
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"nope", "x"}}), "1");
    EXPECT_EQ(Call("adddata", {{"sql", "t"}},
                   {{"A", "x"}, {"nope", "1"}, {"c", "9", 2}, {"c", "8"}, {"a", "second"}}),
              "1");
    EXPECT_EQ(Rows("select a, c from t order by id"), "d 5|d null|x null");
    EXPECT_EQ(Call("updatedata", {{"sql", "select * from t where id < 3"}}, empty), "2");
    EXPECT_EQ(Rows("select a, c from t order by id"), "null 5|null 5|x null");
    const auto none = "select * from t where id > 9";
    EXPECT_EQ(Call("updatedata", {{"sql", none}}, {{"a", "q"}}), "0");
    EXPECT_EQ(Call("updatedata", {{"sql", "t"}}, {{"nope", "x"}}), "3") << "rows are counted";
    EXPECT_EQ(Call("updatedataex", {{"sql", none}}, {{"id", "10"}, {"a", "new"}}), "1");
    EXPECT_EQ(Call("updatedataex", {{"sql", "select a from t where id > 2"}}, {{"id", "11"}, {"a", "two"}}),
              "2")
        << "a column that is not selected is ignored";
    EXPECT_EQ(Rows("select id, a from t where a is not null order by id"), "3 two|10 two");
    EXPECT_EQ(Call("updatedata", {{"sql", "select id as a, c from t where id = 10"}}, {{"a", "12"}}), "1");
    EXPECT_EQ(Call("deletedata", {{"sql", "select * from t where c = 77"}}), "0");
    EXPECT_EQ(Call("deletedata", {{"sql", "select * from t where id in (1, 12)"}}), "2");
    EXPECT_EQ(Rows("select id from t order by id"), "2|3");
    EXPECT_NE(Call("updatedata", {{"sql", "t"}}).find("91 "), std::string::npos) << "no block";
    EXPECT_EQ(Call("updatedata", {{"sql", none}}), "0");
    EXPECT_NE(Call("adddata", {{"sql", none}}).find("Invalid data parametner to added."), std::string::npos);
}

TEST_P(EveryDatabasesEngine, AdditionKeepsToTheColumnsType) {
    Run("create table t (id integer primary key, n " + Traits().bigInteger +
        ", m decimal(18,2), f double precision, s varchar(20), day date)");
    const std::string row = "select * from t where id = 1";
    struct Case {
        const char* column;
        std::vector<const char*> added;
        const char* sum;
    };
    for (const Case& expected : {Case{"n", {"9223372036854775806", "1"}, "9223372036854775807"},
                                 {"n", {"9223372036854775807", "1"}, "6 "},
                                 {"m", {"0.10", "0.10", "0.15"}, "0.35"},
                                 {"m", {"9007199254740991.97", "0.01"}, "9007199254740991.98"},
                                 {"f", {"1.5", " .25"}, "1.75"},
                                 {"s", {"ab", "cd", "1"}, "abcd1"},
                                 {"day", {"2024-02-28", "2"}, "2024-03-01"}}) {
        if (std::string_view(expected.sum).size() > 18 && *expected.column == 'm' &&
            !Has(Can::KeepLargeDecimals)) {
            continue;
        }
        SCOPED_TRACE(std::string(expected.column) + " " + expected.added.front());
        Run("delete from t");
        std::string outcome;
        for (const char* text : expected.added) {
            outcome = Call("updatedatacoladd", {{"sql", row}, {"col", expected.column}},
                           {{"id", "1"}, {expected.column, text}});
        }
        if (outcome == "1") outcome = Scalar("select " + std::string(expected.column) + " from t");
        EXPECT_EQ(outcome.substr(0, std::string(expected.sum).size()), expected.sum) << outcome;
    }
}

// Two that add to one value at the same time: whoever has not been told of a failure has added.
TEST_P(EveryDatabasesEngine, NoAdditionIsLost) {
    Run("create table t (id integer primary key, n integer, f double precision)");
    ZorbDbAccessEngine other;
    ASSERT_NE(other.SetDatabaseConnectionString(ConnectionString()), nullptr) << other.GetLastError();
    for (const char* column : {"n", "f"}) {
        Run("delete from t");
        Run("insert into t values (1, 0, 0.1)");
        constexpr int kTimes = 60;
        const auto add = [&](ZorbDbAccessEngine& adding) {
            const std::vector<Item> one{{column, "1"}};
            int added = 0;
            for (int i = 0; i < kTimes; ++i) {
                const auto outcome =
                    Outcome(adding, "updatedatacoladd", {{"sql", "t"}, {"col", column}}, &one);
                if (outcome == "1") ++added;
            }
            return added;
        };
        int addedByOther = 0;
        std::thread thread([&] { addedByOther = add(other); });
        const int added = add(engine);
        thread.join();
        EXPECT_EQ(Scalar("select cast(" + std::string(column) + " as integer) from t"),
                  std::to_string(added + addedByOther))
            << column;
        EXPECT_GT(added + addedByOther, kTimes / 2);
    }
}

TEST_P(EveryDatabasesEngine, OnlyAnAdditionExplainsADuplicate) {
    Run("create table t (id integer primary key, a varchar(20) unique check (a <> 'unique'))");
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"id", "1"}, {"a", "x"}}), "1");
    const std::string explained = "The field you input that required unique has already been existed.";
    const auto isExplained = [&](const std::string& outcome) {
        EXPECT_TRUE(outcome.starts_with(std::to_string(kViolation) + " ")) << outcome;
        return outcome.ends_with(explained);
    };
    const std::vector<Item> again{{"id", "3"}, {"a", "x"}};
    const auto none = "select * from t where id = 9";
    EXPECT_EQ(isExplained(Call("adddata", {{"sql", "t"}}, again)), Has(Can::ExplainDuplicates));
    EXPECT_EQ(isExplained(Call("updatedataex", {{"sql", none}}, again)), Has(Can::ExplainDuplicates));
    EXPECT_EQ(isExplained(Call("updatedatacoladd", {{"sql", none}, {"col", "a"}}, again)),
              Has(Can::ExplainDuplicates));
    EXPECT_FALSE(isExplained(Call("adddata", {{"sql", "t"}}, {{"id", "3"}, {"a", "unique"}})));
    EXPECT_EQ(Call("adddata", {{"sql", "t"}}, {{"id", "2"}, {"a", "y"}}), "1");
    for (const char* function : {"updatedata", "updatedataex"}) {
        const auto second = "select * from t where id = 2";
        EXPECT_FALSE(isExplained(Call(function, {{"sql", second}}, {{"a", "x"}})));
    }
    // Rows before the failing one stay changed, and no transaction stays open.
    EXPECT_FALSE(isExplained(Call("updatedata", {{"sql", "select * from t order by id"}}, {{"a", "z"}})));
    EXPECT_EQ(NumberOf([&] { engine.GetDatabaseConnection()->CommitTrans(); }), -2147168242);
    EXPECT_EQ(Rows("select a from t order by id"), "z|y");
}

}  // namespace
}  // namespace halvtiv::test
