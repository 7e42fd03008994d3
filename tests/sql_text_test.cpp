// SQL as text: tokens, scripts, select lists, quoting and statement shapes, in each database's own way.

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "sql/lexer.hpp"
#include "sql/quoting.hpp"
#include "sql/script.hpp"
#include "sql/select_query.hpp"
#include "sql/shape.hpp"
#include "sql/transaction_words.hpp"

namespace halvtiv::sql {
namespace {

constexpr auto kSqlite = Dialect::Sqlite;
constexpr auto kPostgreSql = Dialect::PostgreSql;
constexpr auto kMariaDb = Dialect::MariaDb;
constexpr auto kSqlServer = Dialect::SqlServer;
constexpr auto kGeneric = Dialect::Generic;

/// Each token with a letter for its kind: "w:select y:* w:from".
std::string Tokens(std::string_view text, Dialect dialect) {
    std::string all;
    Lexer lexer(text, dialect);
    for (auto token = lexer.Next(); !token.IsEnd(); token = lexer.Next()) {
        if (!all.empty()) all += ' ';
        all += "ewqsnpy"[static_cast<std::size_t>(token.kind)];
        all += token.isConditional ? '!' : ':';
        all += token.text;
    }
    return all;
}

TEST(SqlTextTest, EachDialectHasItsOwnTokens) {
    const struct {
        Dialect dialect;
        std::string_view text, tokens;
    } cases[] = {
        {kSqlite, "a[b]]`c`\"d\"\"e\"", "w:a q:[b] y:] q:`c` q:\"d\"\"e\""},
        {kSqlServer, "[b]]c] #t @v N'x'", "q:[b]]c] w:#t w:@v s:N'x'"},
        {kSqlite, "?1 :a @b $c x'0f' a->>'$.b'", "p:?1 p::a p:@b p:$c s:x'0f' w:a y:->> s:'$.b'"},
        {kSqlite, "'a\\' -- it's\n/* /* */ 1.5e-3 .5 0x1F", "s:'a\\' n:1.5e-3 n:.5 n:0x1F"},
        {kPostgreSql, "E'a\\'b' e'\\\\' U&'d' U&\"n\" n'x' _u'x'",
         "s:E'a\\'b' s:e'\\\\' s:U&'d' q:U&\"n\" s:n'x' w:_u s:'x'"},
        {kPostgreSql, "'a' -- more\n 'b' 'c' E'x'\n'y\\'z'", "s:'a' -- more\n 'b' s:'c' s:E'x'\n'y\\'z'"},
        {kPostgreSql, "$1 $$a;$b$;$$ $t$ $$ $t$ a$b$ a[1] /* /* */ */ b",
         "p:$1 s:$$a;$b$;$$ s:$t$ $$ $t$ w:a$b$ w:a y:[ n:1 y:] w:b"},
        {kPostgreSql, "a=-1 b@>-2 c::int ->> ? :=x 1..2 a--b\rc",
         "w:a y:= y:- n:1 w:b y:@>- n:2 w:c y::: w:int y:->> y:? y::= w:x n:1 y:.. n:2 w:a w:c"},
        {kMariaDb, "# a'\nb--c\n-- d'\n@x @'y z' @@s.t 1a t.1 `q` _utf8mb4'x' b'1'",
         "w:b y:- y:- w:c w:@x w:@'y z' w:@@s.t w:1a w:t y:. n:1 q:`q` s:_utf8mb4'x' s:b'1'"},
        {kMariaDb, "a /*!50101 b /* c */ */ /*M!d*/ ? <=> \"n\"", "w:a w!b w!d p:? y:<=> q:\"n\""},
        {kGeneric, "/*! a */ b 'c' [d]] e", "w:b s:'c' q:[d]] e"},
        {kPostgreSql, "$a$ never", "s:$a$ never"},
        {kMariaDb, "'never # ", "s:'never # "},
        {kSqlServer, "/* /* */ never", ""},
    };
    for (const auto& [dialect, text, tokens] : cases) EXPECT_EQ(Tokens(text, dialect), tokens) << text;
}

TEST(SqlTextTest, NamesAndLiteralsAreOneTokenWhateverTheyHold) {
    for (const auto dialect : {kSqlite, kPostgreSql, kMariaDb, kSqlServer, kGeneric}) {
        for (const std::string_view value : {"plain", "", "a\"b", "a`b", "a'b''", "x;-- y", "$$", "back\\"}) {
            const auto name = QuotedName(value, dialect);
            const auto token = Lexer(name, dialect).Next();
            EXPECT_EQ(token.text, name);
            EXPECT_EQ(token.Name(), value);
            EXPECT_TRUE(token.Names(value));
            const auto literal = StringLiteral(value, dialect);
            EXPECT_EQ(Lexer(literal, dialect).Next().text, literal);
        }
    }
    EXPECT_EQ(QuotedName("a]b", kSqlServer), "[a]]b]");
    EXPECT_EQ(QuotedName("s", "t", kMariaDb), "`s`.`t`");
    EXPECT_EQ(QuotedName("", "t", kSqlite), "\"t\"");
}

TEST(SqlTextTest, ScriptsAreCutBehindWholeStatements) {
    // The statements stand between "¦".
    const struct {
        Dialect dialect;
        std::string_view script;
    } cases[] = {
        {kMariaDb, "; select 1;¦-- a; b\nselect ';' ;;¦ select `;`"},
        {kMariaDb, "begin;¦insert into t values(1);¦commit"},
        {kMariaDb, "create procedure p() begin select if(1, 2, 3); end;¦select 1"},
        {kMariaDb,
         "create procedure d.p(x int) comment 'c' sql security invoker set @x = case x when 1 then 2 "
         "end;¦select 1"},
        {kMariaDb,
         "create definer=`a`@`b` function if not exists f(e enum('end')) returns varchar(9) charset "
         "utf8mb4 deterministic return case 1 when 1 then 2 end;¦select 1"},
        {kMariaDb,
         "create or replace trigger t before insert on x for each row follows `u` begin if new.a > 1 "
         "then set new.a = if(1, 2, 3); elseif new.a then set new.b = 1; else begin end; end if; "
         "end;¦select 1"},
        {kMariaDb,
         "create trigger t after update on x for each row if new.a then call p(); end if;¦select 1"},
        {kMariaDb,
         "create trigger t after update on x for each row set new.a = case 1 when 1 then 2 end;¦do 1"},
        {kMariaDb,
         "create event e on schedule every 1 day do begin declare continue handler for not found, "
         "sqlstate '42000' set @d = if(1, 2, 3); declare exit handler for sqlexception begin end; "
         "repeat set @a = repeat('x', 2); until case 1 when 1 then 1 end end repeat; l: while 1 do "
         "case @a when 1 then set @b = 1; else set @b = 2; end case; end while l; for i in 1..2 do "
         "select begin, end from t; end for; end;¦select 1"},
        {kMariaDb,
         "begin not atomic drop table if exists t; end;¦if @a then select 1; end if;¦`l`: loop leave "
         "l; end loop;¦select if(1, 2, 3)"},
        {kMariaDb,
         "create table event (begin int, end int);¦alter table trigger add loop int;¦drop procedure "
         "if exists p;¦create function f returns string soname 'x';¦select 1"},
        {kMariaDb, "create procedure p as x int; begin null; end;¦select 1"},
        {kMariaDb,
         "create package body d.p as procedure a as y int; begin null; end; function f() returns int "
         "begin return 1; end; end;¦select 1"},
        {kMariaDb,
         "/*!50003 create*/ /*!50020 definer=a@b*/ /*!50003 trigger t before insert on x for each row "
         "begin set @a=1; end */;¦select 1"},
        {kPostgreSql,
         "create rule r as on insert to t do (select 1; select 2);¦create table a(begin int);¦do "
         "$$begin x; end$$;¦select 1"},
        {kPostgreSql,
         "create or replace function f() returns int language sql begin atomic select case when 1 "
         "then 2 end; select 3; end;¦begin;¦select 1;¦end"},
        {kSqlite,
         "create temp trigger t after insert on x begin select case 1 when 1 then 2 end; delete from y; "
         "end;¦create table trigger(a);¦select 1"},
        {kSqlServer, "declare @a int; set @a = 1; select @a"},
        {kGeneric, "select 1; select 2"},
    };
    for (const auto& [dialect, marked] : cases) {
        constexpr std::string_view kMark = "¦";
        std::string script;
        std::vector<std::size_t> ends;
        for (std::size_t at = 0; at <= marked.size();) {
            const auto mark = std::min(marked.find(kMark, at), marked.size());
            script += marked.substr(at, mark - at);
            ends.push_back(script.size());
            at = mark + kMark.size();
        }
        std::size_t position = 0;
        for (std::size_t i = 0; i < ends.size(); ++i) {
            const auto statement = NextStatement(script, position, dialect);
            EXPECT_FALSE(statement.text.empty()) << marked;
            EXPECT_FALSE(statement.text.ends_with(' ') || statement.text.starts_with(';')) << statement.text;
            position = script.find_first_not_of("; ", statement.next);
            EXPECT_EQ(std::min(position, script.size()),
                      std::min(script.find_first_not_of("; ", ends[i]), script.size()))
                << statement.text;
            if (position == std::string::npos) break;
        }
        EXPECT_TRUE(NextStatement(script, script.size(), dialect).text.empty());
    }
    EXPECT_TRUE(NextStatement(" ;-- nothing\n;", 0, kMariaDb).text.empty());
    EXPECT_EQ(NextStatement("/*+ hint */ select 1 ; x", 0, kPostgreSql).text, "/*+ hint */ select 1");
}

TEST(SqlTextTest, QueriesWhoseRowsAreThoseOfTablesAreTakenApart) {
    // Items, tables, and "+" for other sources, "#" for ORDER BY a number, "~" for renamed columns.
    const struct {
        Dialect dialect;
        std::string_view query, parts;
    } cases[] = {
        {kSqlite, "select all a, b -- c, d\n, t.* from t where x = (select max(y) from u) order by (1);",
         "a|b -- c, d|t.*@t#"},
        {kSqlite,
         "with w(k) as materialized (select id from s.t where a), v as (select distinct 1) select k "
         "from w",
         "k@s.t~"},
        {kSqlite, "select a from (select * from t join u using (id)) as d", "a@t,u~"},
        {kSqlite, "select top, distinct_ from t", "top|distinct_@t"},
        {kPostgreSql, "select a is distinct from b from only \"T\" x for update of x",
         "a is distinct from b@T"},
        {kPostgreSql, "select a from t as x(b, c), lateral unnest(x.c) limit 3", "a@t+~"},
        {kPostgreSql, "select extract(year from d) from (t left join u on (t.a = u.b)) fetch first row only",
         "extract(year from d)@t,u"},
        {kMariaDb, "select sql_no_cache a from d.t use index (i), t", "a@d.t,t~"},
        {kGeneric, "select a from t cross apply f(t.b)", "a@t+~"},
        {kSqlite, "select distinct a from t", ""},
        {kSqlite, "select a from t group by a", ""},
        {kSqlite, "select a from t union select b from u", ""},
        {kSqlite, "select a from (select distinct a from t)", ""},
        {kSqlite, "with w as (select a from t group by a) select a from w", ""},
        {kSqlite, "with t as (select a from t) select a from t", ""},
        {kSqlite, "with recursive w as (select 1 union select 2) select * from w", ""},
        {kSqlite, "select a from t; select 2", ""},
        {kSqlite, "select 1", ""},
        {kSqlite, "values (1)", ""},
        {kPostgreSql, "with d as (delete from t returning *) select * from d", ""},
        {kPostgreSql, "select a into u from t", ""},
        {kGeneric, "select a from t minus select b from u", ""},
        {kMariaDb, "select a /*!, b */ from t", ""},
        {kMariaDb, "select a from t for system_time all", ""},
        {kSqlServer, "select top 3 a from t", ""},
    };
    for (const auto& [dialect, text, parts] : cases) {
        std::string all;
        if (const auto query = ReadSelectQuery(text, dialect)) {
            std::vector<std::string> items;
            for (const auto& item : query->items) {
                all += (all.empty() ? "" : "|") + std::string(item.text);
                items.emplace_back(item.text);
            }
            for (const auto& table : query->tables) {
                all += &table == &query->tables.front() ? "@" : ",";
                all += table.schema.empty() ? table.name : table.schema + "." + table.name;
            }
            all += std::string(query->hasOtherSources ? "+" : "") + (query->ordersByNumber ? "#" : "") +
                   (query->renamesColumns ? "~" : "");
            EXPECT_EQ(Tokens(query->WithItems(items), dialect), Tokens(query->text, dialect)) << text;
        }
        EXPECT_EQ(all, parts) << text;
    }
    const auto nested = ReadSelectQuery(
        "select max(a), (select 1), b as c from (select x from t limit 1) d "
        "where a order by b limit 2",
        kSqlite);
    ASSERT_TRUE(nested);
    EXPECT_EQ(
        nested->OrderedBy(nested->levels.back(), "count(*)"),
        "select max(a), (select 1), b as c from (select x from t limit 1) d where a\nORDER BY count(*)\n");
    EXPECT_EQ(nested->OrderedBy(nested->levels.front(), "e"),
              "select max(a), (select 1), b as c from (select x from t\nORDER BY e\n) d where a order by b "
              "limit 2");
    EXPECT_TRUE(nested->levels.back().hasCall && !nested->levels.front().hasCall);
    EXPECT_TRUE(nested->items[1].hasQuery && nested->items[2].column == "b");
    EXPECT_TRUE(nested->TailNames("X") && !nested->TailNames("max"));
}

TEST(SqlTextTest, SourcesAreNamesOrStatements) {
    EXPECT_EQ(FormOfSource(" \"my table\" ", kSqlite), SourceForm::TableName);
    EXPECT_EQ(FormOfSource("s.`t`", kMariaDb), SourceForm::TableName);
    EXPECT_EQ(FormOfSource("commit", kPostgreSql), SourceForm::Word);
    for (const std::string_view source : {"", "select 1", "t;", "a.", "'t'", "t(1)", "5"}) {
        EXPECT_EQ(FormOfSource(source, kSqlite), SourceForm::Statement) << source;
    }
}

TEST(SqlTextTest, ImplicitCommitsAreKnown) {
    for (const std::string_view text :
         {"create table t(a int)", "CREATE OR REPLACE VIEW v AS SELECT 1", "# c\nbegin",
          "/*!start transaction*/", "set statement max_statement_time=1 for truncate t", "lock tables t read",
          "drop table t", "analyze local table t"}) {
        EXPECT_TRUE(CausesImplicitCommit(text, kMariaDb)) << text;
        EXPECT_FALSE(CausesImplicitCommit(text, kPostgreSql)) << text;
    }
    for (const std::string_view text :
         {"create temporary table t(a int)", "create or replace temporary table t(a int)", "drop prepare p",
          "begin not atomic select 1; end", "analyze select 1", "commit", "update t set a = 1",
          "set @a = 1"}) {
        EXPECT_FALSE(CausesImplicitCommit(text, kMariaDb)) << text;
    }
}

TEST(SqlTextTest, OnlyLiteralsThatAParameterCanReplaceAreLifted) {
    // Lifted literals stand between "‹" and "›".
    const struct {
        Dialect dialect;
        std::string_view statement;
    } cases[] = {
        {kSqlite,
         "select 1, 'a' from t where a = ‹5› and not t.b <> ‹'it''s'› or (c >= ‹-7›) limit ‹3› offset ‹4›"},
        {kSqlite, "select * from t where a in (‹1›, ‹'b'›, 1 + 1) and b not in (‹2›) and (a, b) in ((1, 2))"},
        {kSqlite,
         "insert into t (a, b) values (‹1›, f(2), ‹'x'›, null, 'a' || 'b', x'00'), (‹-2›, 1.5, 0x10)"},
        {kMariaDb,
         "insert into t values (‹1.50›, ‹2e3›, date '2024-01-01', N'x', 'a' 'b') on duplicate key "
         "update a = ‹5›, b = values(b) + 1"},
        {kPostgreSql, "update t set a = ‹'x'›, b = b + 1, c = ‹.5› where id = ‹1› returning 'y'"},
        {kPostgreSql,
         "insert into t values (‹1›) on conflict (a) where b = 5 do update set c = ‹6› where t.d = ‹7›"},
        {kPostgreSql, "select * from t where a = E'x' or b = 'y' collate \"C\" or c = '1'::int or d = ‹'z'›"},
        {kPostgreSql, "select * from t where 5 = a and a + b = 6 and a = 7 + 1 and f(a = 8) and a = ‹9›"},
        {kSqlite,
         "select (select x from u where k = 1), count(*) from t where a in (select b from u where c = "
         "‹2›) group by d having e = 3 order by f = 4"},
        {kSqlite, "delete from t where a like 'x%' and b between 1 and 2 and d = ‹3›"},
        {kMariaDb,
         "select * from a join b on a.x = ‹1› left join c on b.y = c.y where @v = 2 limit ‹3›, ‹4›"},
        {kSqlite, "with w as (select * from t where a = ‹1›) select * from w where b = 1234567890123456789"},
        {kSqlite, "select * from t where a = ? and b = 2"},
        {kSqlite, "select * from t where a = 1; select 2"},
        {kMariaDb, "select /*! 1 */ from t where a = 1"},
        {kSqlite, "create table t(a check (a = 1))"},
        {kGeneric, "select * from t where a = 1"},
    };
    for (const auto& [dialect, marked] : cases) {
        constexpr std::string_view kOpen = "‹", kClose = "›";
        std::string statement, shape;
        std::vector<std::string> literals;
        for (std::size_t at = 0; at < marked.size();) {
            const auto open = marked.find(kOpen, at);
            const auto plain = marked.substr(at, open == std::string::npos ? open : open - at);
            statement += plain;
            shape += plain;
            if (open == std::string::npos) break;
            const auto close = marked.find(kClose, open);
            literals.emplace_back(marked.substr(open + kOpen.size(), close - open - kOpen.size()));
            statement += literals.back();
            shape += dialect == kPostgreSql ? "$" + std::to_string(literals.size()) : "?";
            at = close + kClose.size();
        }
        const auto read = ReadShape(statement, dialect);
        EXPECT_EQ(read.has_value(), !literals.empty()) << statement;
        if (!read || literals.empty()) continue;
        EXPECT_EQ(read->text, shape);
        ASSERT_EQ(read->literals.size(), literals.size()) << statement;
        for (std::size_t i = 0; i < literals.size(); ++i) EXPECT_EQ(read->literals[i].text, literals[i]);
    }
    const auto values = ReadShape("insert into t values ('it''s', -5, 1.5, 1e3)", kPostgreSql);
    ASSERT_TRUE(values && values->literals.size() == 4);
    EXPECT_EQ(values->literals[0].Value(), "it's");
    EXPECT_EQ(values->literals[1].Value(), "-5");
    using Kind = ShapeLiteral::Kind;
    EXPECT_EQ(values->literals[2].kind, Kind::Decimal);
    EXPECT_EQ(values->literals[3].kind, Kind::Float);
}

}  // namespace
}  // namespace halvtiv::sql
