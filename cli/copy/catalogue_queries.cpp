#include "copy/catalogue_queries.hpp"

namespace halvtiv::cli::copy {
namespace {

constexpr CatalogueQueries kSqlite{
    R"(select t.name, c.name, c.type, c."notnull" = 0,
       upper(c.type) = 'INTEGER' and c.pk = 1 and not t.wr
           and not exists (select 1 from pragma_table_xinfo(t.name) o where o.pk = 2),
       c.hidden in (2, 3), c.dflt_value,
       case when t.wr then ''
            when not exists (select 1 from pragma_table_xinfo(t.name) o where lower(o.name) = 'rowid') then 'rowid'
            when not exists (select 1 from pragma_table_xinfo(t.name) o where lower(o.name) = '_rowid_')
                then '_rowid_'
            else '' end, ''
from pragma_table_list t, pragma_table_xinfo(t.name) c
where t.schema = 'main' and t.type = 'table' and substr(t.name, 1, 7) <> 'sqlite_' and c.hidden <> 1
order by t.name, c.cid)",
    R"(select t, i, u, c from (
    select t.name t, '' i, 1 u, c.name c, c.pk n
    from pragma_table_list t, pragma_table_xinfo(t.name) c
    where t.schema = 'main' and t.type = 'table' and c.pk > 0
    union all
    select t.name, i.name, i."unique", case when i.partial then null else c.name end, c.seqno
    from pragma_table_list t, pragma_index_list(t.name) i, pragma_index_info(i.name) c
    where t.schema = 'main' and t.type = 'table' and i.origin <> 'pk')
order by t, i, n)",
    R"(select t.name, f.id, f."from", f."table", f."to", f.on_delete, f.on_update
from pragma_table_list t, pragma_foreign_key_list(t.name) f
where t.schema = 'main' and t.type = 'table'
order by t.name, f.id, f.seq)",
    "select sum(type = 'view'), sum(type = 'trigger'), sum(type = 'table' and sql like 'create virtual%') "
    "from sqlite_master"};

constexpr CatalogueQueries kPostgresql{
    R"(select c.relname::text, a.attname::text,
       case when t.typtype = 'd' then format_type(t.typbasetype, t.typtypmod)
            else format_type(a.atttypid, a.atttypmod) end,
       case when a.attnotnull then 0 else 1 end,
       case when a.attidentity <> '' or pg_get_expr(d.adbin, d.adrelid) like 'nextval(%' then 1 else 0 end,
       case when a.attgenerated <> '' then 1 else 0 end,
       case when a.attgenerated = '' then pg_get_expr(d.adbin, d.adrelid) end, '', ''
from pg_class c
join pg_attribute a on a.attrelid = c.oid and a.attnum > 0 and not a.attisdropped
join pg_type t on t.oid = a.atttypid
left join pg_attrdef d on d.adrelid = c.oid and d.adnum = a.attnum
where c.relnamespace = (select oid from pg_namespace where nspname = current_schema())
      and c.relkind in ('r', 'p') and not c.relispartition
order by c.relname, a.attnum)",
    R"(select c.relname::text, case when x.indisprimary then '' else i.relname::text end,
       case when x.indisunique then 1 else 0 end,
       case when x.indpred is null and m.amname = 'btree' then a.attname::text end
from pg_index x
join pg_class c on c.oid = x.indrelid
join pg_class i on i.oid = x.indexrelid
join pg_am m on m.oid = i.relam
cross join lateral unnest(x.indkey::int2[]) with ordinality k(number, place)
left join pg_attribute a on a.attrelid = c.oid and a.attnum = k.number and k.number <> 0
where c.relnamespace = (select oid from pg_namespace where nspname = current_schema())
      and not c.relispartition and k.place <= x.indnkeyatts and x.indisvalid
order by c.relname, i.relname, k.place)",
    R"(select c.relname::text, f.conname::text, a.attname::text, p.relname::text, b.attname::text,
       case f.confdeltype when 'c' then 'CASCADE' when 'n' then 'SET NULL' when 'd' then 'SET DEFAULT' else '' end,
       case f.confupdtype when 'c' then 'CASCADE' when 'n' then 'SET NULL' when 'd' then 'SET DEFAULT' else '' end
from pg_constraint f
join pg_class c on c.oid = f.conrelid
join pg_class p on p.oid = f.confrelid
cross join lateral unnest(f.conkey, f.confkey) with ordinality k(child, parent, place)
join pg_attribute a on a.attrelid = c.oid and a.attnum = k.child
join pg_attribute b on b.attrelid = p.oid and b.attnum = k.parent
where f.contype = 'f' and not c.relispartition
      and c.relnamespace = (select oid from pg_namespace where nspname = current_schema())
order by c.relname, f.conname, k.place)",
    R"(select count(*) filter (where relkind in ('v', 'm')),
       (select count(*) from pg_trigger t join pg_class c on c.oid = t.tgrelid
        where not t.tgisinternal
              and c.relnamespace = (select oid from pg_namespace where nspname = current_schema())),
       count(*) filter (where relkind = 'f')
from pg_class
where relnamespace = (select oid from pg_namespace where nspname = current_schema()))",
    R"(select case when p.relnamespace = s.oid then p.relname::text end, case when c.relnamespace = s.oid then c.relname::text end
from pg_inherits i
join pg_class p on p.oid = i.inhparent and p.relkind = 'r'
join pg_class c on c.oid = i.inhrelid
join pg_namespace s on s.nspname = current_schema()
order by p.relname, c.relname)"};

constexpr CatalogueQueries kMariaDb{
    R"(select c.table_name, c.column_name, c.column_type, case when c.is_nullable = 'YES' then 1 else 0 end,
       case when c.extra like '%auto_increment%' then 1 else 0 end,
       case when c.extra like '%GENERATED%' and c.extra not like '%DEFAULT_GENERATED%' then 1 else 0 end,
       c.column_default, '',
       case when c.collation_name <> t.table_collation then concat(' collate ', c.collation_name) else '' end
from information_schema.columns c
join information_schema.tables t on t.table_schema = c.table_schema and t.table_name = c.table_name
where c.table_schema = database() and t.table_type in ('BASE TABLE', 'SYSTEM VERSIONED')
order by c.table_name, c.ordinal_position)",
    R"(select table_name, case when index_name = 'PRIMARY' then '' else index_name end,
       case when non_unique = 0 then 1 else 0 end,
       case when sub_part is null and index_type = 'BTREE' then column_name end
from information_schema.statistics
where table_schema = database()
order by table_name, index_name, seq_in_index)",
    R"(select k.table_name, k.constraint_name, k.column_name, k.referenced_table_name, k.referenced_column_name,
       case when r.delete_rule in ('CASCADE', 'SET NULL') then r.delete_rule else '' end,
       case when r.update_rule in ('CASCADE', 'SET NULL') then r.update_rule else '' end
from information_schema.key_column_usage k
join information_schema.referential_constraints r
     on r.constraint_schema = k.constraint_schema and r.constraint_name = k.constraint_name
        and r.table_name = k.table_name
where k.table_schema = database() and k.referenced_table_name is not null
order by k.table_name, k.constraint_name, k.ordinal_position)",
    R"(select (select count(*) from information_schema.views where table_schema = database()),
       (select count(*) from information_schema.triggers where trigger_schema = database()), 0)"};

constexpr CatalogueQueries kSqlServer{
    R"(select t.name, c.name,
       case when y.name in ('char', 'varchar', 'binary', 'varbinary')
                then y.name + '(' + case when c.max_length < 0 then 'max' else cast(c.max_length as varchar(9)) end + ')'
            when y.name in ('nchar', 'nvarchar')
                then y.name + '(' + case when c.max_length < 0 then 'max' else cast(c.max_length / 2 as varchar(9)) end + ')'
            when y.name in ('decimal', 'numeric')
                then y.name + '(' + cast(c.precision as varchar(9)) + ',' + cast(c.scale as varchar(9)) + ')'
            else y.name end,
       c.is_nullable, c.is_identity, case when c.is_computed = 1 or y.name = 'timestamp' then 1 else 0 end,
       d.definition, '', ''
from sys.tables t
join sys.columns c on c.object_id = t.object_id
join sys.types y on y.user_type_id = c.system_type_id
left join sys.default_constraints d on d.object_id = c.default_object_id
where t.schema_id = schema_id() and t.is_ms_shipped = 0
order by t.name, c.column_id)",
    R"(select t.name, case when i.is_primary_key = 1 then '' else i.name end, i.is_unique,
       case when i.has_filter = 0 and i.type in (1, 2) then c.name end
from sys.tables t
join sys.indexes i on i.object_id = t.object_id and i.type > 0
join sys.index_columns k on k.object_id = i.object_id and k.index_id = i.index_id and k.is_included_column = 0
join sys.columns c on c.object_id = t.object_id and c.column_id = k.column_id
where t.schema_id = schema_id() and t.is_ms_shipped = 0
order by t.name, i.name, k.key_ordinal)",
    R"(select t.name, f.name, c.name, p.name, d.name,
       case when f.delete_referential_action = 0 then ''
            else replace(f.delete_referential_action_desc, '_', ' ') end,
       case when f.update_referential_action = 0 then ''
            else replace(f.update_referential_action_desc, '_', ' ') end
from sys.foreign_keys f
join sys.tables t on t.object_id = f.parent_object_id
join sys.tables p on p.object_id = f.referenced_object_id
join sys.foreign_key_columns k on k.constraint_object_id = f.object_id
join sys.columns c on c.object_id = t.object_id and c.column_id = k.parent_column_id
join sys.columns d on d.object_id = p.object_id and d.column_id = k.referenced_column_id
where t.schema_id = schema_id()
order by t.name, f.name, k.constraint_column_id)",
    R"(select (select count(*) from sys.views where schema_id = schema_id() and is_ms_shipped = 0),
       (select count(*) from sys.triggers where parent_class = 1 and is_ms_shipped = 0), 0)"};

}  // namespace

const CatalogueQueries& QueriesOf(Dialect dialect) {
    switch (dialect) {
        case Dialect::Postgresql:
            return kPostgresql;
        case Dialect::MariaDb:
            return kMariaDb;
        case Dialect::SqlServer:
            return kSqlServer;
        default:
            return kSqlite;
    }
}

}  // namespace halvtiv::cli::copy
