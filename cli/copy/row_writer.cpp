#include "copy/row_writer.hpp"

#include <algorithm>
#include <utility>

namespace halvtiv::cli::copy {
namespace {

constexpr std::int64_t kLongValue = 64 * 1024;
constexpr std::int64_t kPiece = 1024 * 1024;
constexpr std::size_t kStatementBytes = 256 * 1024;
constexpr std::size_t kMostRows = 1000;  // more, SQL Server does not take

std::vector<std::string> NamesOf(const std::vector<const Column*>& columns) {
    std::vector<std::string> names;
    names.reserve(columns.size());
    for (const Column* column : columns) names.push_back(column->name);
    return names;
}

/// As what a value is written: a column without a type takes it as what it was.
Kind WrittenKind(const Column& column, Kind source) {
    return column.type.declared.empty() ? source : column.type.kind;
}

void AssignLong(ado::Field& target, ado::Field& source) {
    for (;;) {
        const ado::Bytes piece = source.GetChunk(kPiece);
        if (piece.empty()) return;
        target.AppendChunk(piece);
    }
}

ado::Variant Assigned(Kind kind, ado::Field& target, ado::Field& source) {
    if (kind == Kind::Boolean) {  // which some databases keep as a number
        const std::optional<bool> truth = BooleanOf(source.Text());
        if (truth) return target.Type() == ado::adBoolean ? ado::Variant(*truth) : ado::Variant(int{*truth});
    }
    ado::Variant value = source.Value();
    return value.AsBytes() != nullptr ? value : ado::Variant(source.Text());
}

}  // namespace

RowWriter::RowWriter(Database database, const Table& table, std::vector<const Column*> columns,
                     std::vector<Kind> sourceKinds)
    : database_(std::move(database)),
      table_(table.name),
      rowNumber_(table.rowNumber),
      columns_(std::move(columns)),
      start_("insert into " + QuotedName(database_.dialect, table_) + " (" +
             QuotedNames(database_.dialect, NamesOf(columns_)) + ')') {
    for (std::size_t i = 0; i < columns_.size(); ++i)
        kinds_.push_back(WrittenKind(*columns_[i], sourceKinds[i]));
    // Numbers that the database would give itself are the source's.
    if (database_.dialect == Dialect::Postgresql) {
        start_ += " overriding system value";
        if (ArrayRows::CanCarry(columns_)) arrays_.emplace(columns_);
    }
    start_ += arrays_ ? " " : " values ";
}

std::size_t RowWriter::Add(const std::vector<SourceCell>& cells) {
    const bool hasLong = std::any_of(cells.begin(), cells.end(), [](const SourceCell& cell) {
        return cell.isLong && !cell.literal && cell.field->ActualSize() > kLongValue;
    });
    if (hasLong) {
        Flush();
        return AddLong(cells);
    }
    const std::size_t before = Bytes();
    if (arrays_) {
        AppendToArrays(cells);
    } else {
        AppendRow(cells);
    }
    const std::size_t bytes = Bytes() - before;
    if (++rows_ == kMostRows || Bytes() >= kStatementBytes) Flush();
    return bytes;
}

void RowWriter::AppendRow(const std::vector<SourceCell>& cells) {
    sql_ += rows_ == 0 ? start_ : std::string(",");
    for (std::size_t i = 0; i < cells.size(); ++i) {
        sql_ += i == 0 ? '(' : ',';
        if (cells[i].field->IsNull()) {
            sql_ += "null";
        } else if (cells[i].literal) {
            sql_ += cells[i].literal->Text();
        } else {
            AppendLiteral(sql_, database_.dialect, kinds_[i], cells[i].field->Text());
        }
    }
    sql_ += ')';
}

void RowWriter::AppendToArrays(const std::vector<SourceCell>& cells) {
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (cells[i].field->IsNull()) {
            arrays_->AddNull(i);
        } else {
            arrays_->Add(i, cells[i].field->Text());
        }
    }
}

std::size_t RowWriter::AddLong(const std::vector<SourceCell>& cells) {
    std::string names = QuotedNames(database_.dialect, NamesOf(columns_));
    ado::Recordset rows;
    rows.Open("select " + names + " from " + QuotedName(database_.dialect, table_), database_.connection,
              ado::adOpenForwardOnly, ado::adLockOptimistic);
    rows.AddNew();
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        const ado::FieldPtr target = rows.Fields().Item(static_cast<std::int32_t>(i));
        ado::Field& source = *cells[i].field;
        if (source.IsNull()) {
            target->Value(ado::Variant());
            continue;
        }
        bytes += static_cast<std::size_t>(source.ActualSize());
        const bool isLong = cells[i].isLong && source.ActualSize() > kLongValue;
        if (isLong && (target->Attributes() & ado::adFldLong) != 0) {
            AssignLong(*target, source);
        } else {
            target->Value(Assigned(columns_[i]->type.kind, *target, source));
        }
    }
    rows.Update();
    rows.Close();
    KeepTypes(cells);
    return bytes;
}

// What has been assigned to a column became what the column is for.
void RowWriter::KeepTypes(const std::vector<SourceCell>& cells) const {
    if (rowNumber_.empty()) return;
    const std::string table = QuotedName(database_.dialect, table_);
    const std::string where =
        " where " + QuotedName(database_.dialect, rowNumber_) + " = last_insert_rowid()";
    std::string values, differ;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        if (!cells[i].literal) continue;
        const std::string name = QuotedName(database_.dialect, columns_[i]->name);
        const std::string literal(cells[i].literal->Text());
        values += (values.empty() ? "" : ", ") + name + " = " + literal;
        differ += (differ.empty() ? "" : " or ") + name + " is not " + literal;
    }
    if (values.empty()) return;
    // Changing a row takes all of it into memory: only where it must be.
    RunAll(database_, "update " + table + " set " + values + where + " and (" + differ + ')');
}

void RowWriter::Flush() {
    if (rows_ == 0) return;
    if (arrays_) sql_ = start_ + arrays_->TakeQuery();
    database_.connection->Execute(sql_);
    sql_.clear();
    rows_ = 0;
}

}  // namespace halvtiv::cli::copy
