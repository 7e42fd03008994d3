#include "copy/table_reader.hpp"

#include <algorithm>
#include <utility>

namespace halvtiv::cli::copy {
namespace {

constexpr std::size_t kPageBytes = std::size_t{4} << 20;

struct KeyColumn {
    std::string name;
    Kind kind = Kind::BigInt;
};

/// A value as it is, whatever the column's type says: there, any column holds values of any type.
std::string SqliteLiteral(const std::string& column) {
    const std::string quoted = "quote(" + column + ")";
    const std::string real = "case " + column + " when 9e999 then '9e999' when -9e999 then '-9e999' else ";
    const std::string text = "case when instr(" + column + ", char(0)) then 'cast(x''' || hex(" + column +
                             ") || ''' as text)' else ";
    return "case typeof(" + column + ") when 'real' then " + real + quoted + " end when 'text' then " + text +
           quoted + " end else " + quoted + " end";
}

/// There, one of a list of words, which is sorted by its place in the list and not as a text.
bool IsWordOfList(Dialect dialect, const Column& column) {
    const std::string_view type = column.type.declared;
    return dialect == Dialect::MariaDb && (type.starts_with("enum(") || type.starts_with("set("));
}

std::vector<KeyColumn> KeyOf(Dialect dialect, const Table& table, const std::vector<std::string>& names) {
    std::vector<KeyColumn> key;
    for (const std::string& name : names) {
        const Column* const column = table.FindColumn(name);
        // Where a value may be missing, or reads back as another one, rows cannot be told apart by it.
        const bool isSure = column != nullptr && !IsApproximate(column->type.kind) &&
                            (!column->isNullable || (dialect == Dialect::Sqlite && column->isAutoNumber));
        if (!isSure) return {};
        key.push_back({column->name, IsWordOfList(dialect, *column) ? Kind::BigInt : column->type.kind});
    }
    return key;
}

/// By which columns rows are told apart and put in order.
std::vector<KeyColumn> ReadingKey(Dialect dialect, const Table& table) {
    // There, the row's number is the fastest order, and the only key that holds values of one type.
    if (!table.rowNumber.empty()) return {{table.rowNumber, Kind::BigInt}};
    if (auto key = KeyOf(dialect, table, table.primaryKey); !key.empty()) return key;
    for (const Index& index : table.indexes) {
        if (!index.isUnique) continue;
        if (auto key = KeyOf(dialect, table, index.columns); !key.empty()) return key;
    }
    return {};
}

/// How a column is read without loss.
std::string ReadText(Dialect dialect, const Column& column) {
    std::string name = QuotedName(dialect, column.name);
    if (dialect != Dialect::MariaDb) return name;
    switch (column.type.kind) {
        case Kind::Single:
            return name + " + 0e0";  // it shows but six of its digits
        case Kind::BigInt:
        case Kind::Decimal:
            return column.type.declared.starts_with("bit(") ? name + " + 0" : name;  // bits are bytes
        case Kind::Date:
        case Kind::Timestamp:
            return "cast(" + name + " as char)";  // the driver takes the date 0000-00-00 for none
        default:
            return name;
    }
}

bool IsUnbounded(const Column& column) {
    return column.type.kind == Kind::Text || column.type.kind == Kind::Blob;
}

}  // namespace

TableReader::TableReader(Database database, const Table& table, std::vector<const Column*> columns,
                         std::int64_t pageRows, std::optional<Key> after, bool withLiterals)
    : database_(std::move(database)),
      table_(table),
      columns_(std::move(columns)),
      mostPageRows_(pageRows),
      pageRows_(pageRows) {
    for (auto& [name, kind] : ReadingKey(database_.dialect, table)) {
        keyColumns_.push_back(std::move(name));
        keyKinds_.push_back(kind);
    }
    hasLiteralKeys_ = database_.dialect == Dialect::Sqlite && table.rowNumber.empty();
    if (after && after->size() == keyColumns_.size()) {
        last_ = std::move(*after);
        hasLast_ = true;
    }
    last_.resize(keyColumns_.size());
    if (withLiterals) ChooseLiterals();
    // Its driver takes a whole page into memory, and nobody knows yet how long the values are.
    constexpr std::int64_t kFirstRows = 16;
    if (database_.dialect == Dialect::MariaDb &&
        std::any_of(columns_.begin(), columns_.end(),
                    [](const Column* column) { return IsUnbounded(*column); })) {
        pageRows_ = std::min(pageRows_, kFirstRows);
    }
}

// Long values pass in pieces where all of them are what their column is for.
void TableReader::ChooseLiterals() {
    const std::string from = " from " + QuotedName(database_.dialect, table_.name);
    ado::Recordset none;
    std::string names;
    for (const Column* column : columns_) {
        names += (names.empty() ? "" : ", ") + QuotedName(database_.dialect, column->name);
    }
    none.Open("select " + names + from + " where 0", database_.connection, ado::adOpenForwardOnly,
              ado::adLockReadOnly);
    std::vector<bool> isLong(columns_.size());
    for (std::size_t i = 0; i < isLong.size(); ++i) {
        isLong[i] = (none.Fields().Item(static_cast<std::int32_t>(i))->Attributes() & ado::adFldLong) != 0;
    }
    none.Close();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const std::string proper = columns_[i]->type.kind == Kind::Blob ? "'blob'" : "'text'";
        const bool hasOthers =
            !isLong[i] || ScalarOf(database_, "select 1" + from + " where typeof(" +
                                                  QuotedName(database_.dialect, columns_[i]->name) +
                                                  ") not in ('null', " + proper + ") limit 1");
        if (hasOthers) literals_.push_back(i);
    }
}

bool TableReader::OpenPage() {
    if (isAtEnd_) return false;
    rows_ = std::make_shared<ado::Recordset>();
    rows_->Open(PageText(), database_.connection, ado::adOpenForwardOnly, ado::adLockReadOnly);
    rowsRead_ = 0;
    bytesRead_ = 0;
    cells_.clear();
    keyFields_.clear();
    if (rows_->IsEOF()) {
        isAtEnd_ = true;
        EndPage();
        return false;
    }
    ado::Fields& fields = rows_->Fields();
    const auto count = static_cast<std::int32_t>(columns_.size());
    for (std::int32_t i = 0; i < count; ++i) {
        ado::FieldPtr field = fields.Item(i);
        const bool isLong = (field->Attributes() & ado::adFldLong) != 0;
        cells_.push_back({std::move(field), nullptr, isLong});
    }
    const auto keyCount = static_cast<std::int32_t>(keyColumns_.size());
    for (std::int32_t i = 0; i < keyCount; ++i) keyFields_.push_back(fields.Item(count + i));
    std::int32_t next = count + keyCount;
    for (const std::size_t i : literals_) cells_[i].literal = fields.Item(next++);
    return true;
}

bool TableReader::NextRow(std::size_t bytes) {
    for (std::size_t i = 0; i < keyFields_.size(); ++i) last_[i] = keyFields_[i]->Text();
    hasLast_ = true;
    ++rowsRead_;
    bytesRead_ += bytes;
    const bool isLarge = HasKey() && bytesRead_ >= kPageBytes;
    if (!isLarge) {
        rows_->MoveNext();
        if (!rows_->IsEOF()) return true;
        isAtEnd_ = !HasKey() || rowsRead_ < pageRows_;
    }
    EndPage();
    return false;
}

void TableReader::EndPage() {
    cells_.clear();
    keyFields_.clear();
    rows_->Close();
    rows_.reset();
    if (!HasKey() || rowsRead_ == 0) return;
    // As many rows as would have filled a page, but no sudden growth.
    const auto fitting =
        static_cast<std::int64_t>(kPageBytes / (bytesRead_ / static_cast<std::size_t>(rowsRead_) + 1));
    pageRows_ = std::clamp(std::min(fitting, pageRows_ * 4), std::int64_t{1}, mostPageRows_);
}

std::string TableReader::PageText() const {
    const Dialect dialect = database_.dialect;
    std::string text = "select ";
    if (HasKey() && dialect == Dialect::SqlServer) text += "top (" + std::to_string(pageRows_) + ") ";
    std::string separator;
    for (const Column* column : columns_) text += std::exchange(separator, ", ") + ReadText(dialect, *column);
    std::string order;
    for (const std::string& column : keyColumns_) {
        const std::string name = QuotedName(dialect, column);
        const Column* const known = table_.FindColumn(column);  // the row's number is none
        const bool isWord = known != nullptr && IsWordOfList(dialect, *known);
        if (hasLiteralKeys_) {
            text += ", " + SqliteLiteral(name);
        } else {
            text += ", " + (known != nullptr ? ReadText(dialect, *known) : name) + (isWord ? " + 0" : "");
        }
        order += (order.empty() ? "" : ", ") + name;
    }
    for (const std::size_t i : literals_)
        text += ", " + SqliteLiteral(QuotedName(dialect, columns_[i]->name));
    text += " from " + OwnRows(dialect, table_);
    if (!HasKey()) return text;
    if (hasLast_) text += " where " + Condition();
    text += " order by " + order;
    if (dialect != Dialect::SqlServer) text += " limit " + std::to_string(pageRows_);
    return text;
}

/// "a >= 1 and (a > 1 or (a = 1 and b > 2))", whose first part is what an index is good for.
std::string TableReader::Condition() const {
    const Dialect dialect = database_.dialect;
    const auto compare = [&](std::size_t column, std::string_view sign) {
        std::string text = QuotedName(dialect, keyColumns_[column]);
        text += sign;
        if (hasLiteralKeys_) {
            text += RequireSqliteLiteral(last_[column]);
        } else {
            AppendLiteral(text, dialect, keyKinds_[column], last_[column]);
        }
        return text;
    };
    if (keyColumns_.size() == 1) return compare(0, " > ");
    std::string text = compare(0, " >= ") + " and (";
    for (std::size_t i = 0; i < keyColumns_.size(); ++i) {
        if (i > 0) text += " or ";
        text += '(';
        for (std::size_t before = 0; before < i; ++before) text += compare(before, " = ") + " and ";
        text += compare(i, " > ") + ')';
    }
    return text + ')';
}

}  // namespace halvtiv::cli::copy
