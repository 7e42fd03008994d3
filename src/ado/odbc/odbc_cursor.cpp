#include "ado/odbc/odbc_cursor.hpp"

#include <charconv>
#include <cstring>
#include <utility>

#include "ado/errors.hpp"
#include "platform/number.hpp"

namespace halvtiv::ado {
namespace {

template <typename Struct>
Struct StructIn(std::string_view bytes) {
    Struct value;
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

DateTime DateOf(const SQL_DATE_STRUCT& date) {
    DateTime value;
    value.Which = DateTime::Parts::Date;
    value.Year = date.year;
    value.Month = date.month;
    value.Day = date.day;
    return value;
}

DateTime DateTimeOf(const SQL_TIMESTAMP_STRUCT& stamp) {
    DateTime value;
    value.Which = DateTime::Parts::DateAndTime;
    value.Year = stamp.year;
    value.Month = stamp.month;
    value.Day = stamp.day;
    value.Hour = stamp.hour;
    value.Minute = stamp.minute;
    value.Second = stamp.second;
    value.Nanosecond = static_cast<std::int32_t>(stamp.fraction);
    return value;
}

// The number whose shortest text is that of the single one.
double DoubleOfSingle(float single) {
    char text[platform::kNumberTextSize];
    const auto [end, error] = std::to_chars(text, text + sizeof text, single);
    double value = single;
    std::from_chars(text, end, value);
    return value;
}

constexpr bool IsIntegerType(std::int32_t type) noexcept {
    return type == adSmallInt || type == adInteger || (type >= adTinyInt && type <= adBigInt);
}

// Some drivers leave out the "0" in front of the point, some write an exponent.
std::string_view DecimalText(std::string_view digits, std::int32_t type, CellBuffer& buffer) {
    if (digits.find_first_of("eE") != std::string_view::npos) {
        const auto value = platform::ParseNumber(digits);
        return value ? CellTextOfDouble(*value, type, buffer) : digits;
    }
    const bool isNegative = digits.starts_with('-');
    if (!digits.substr(isNegative ? 1 : 0).starts_with('.')) return digits;
    std::string whole(isNegative ? "-0" : "0");
    whole += digits.substr(isNegative ? 1 : 0);
    if (whole.size() > sizeof buffer.dateTime) return digits;
    std::memcpy(buffer.dateTime, whole.data(), whole.size());
    return {buffer.dateTime, whole.size()};
}

}  // namespace

OdbcCursor::OdbcCursor(std::shared_ptr<OdbcExecution> execution, std::vector<OdbcColumn> columns,
                       std::shared_ptr<const ChangeTarget> target, std::size_t visibleCount)
    : execution_(std::move(execution)),
      columns_(std::move(columns)),
      target_(std::move(target)),
      visibleCount_(visibleCount) {
    for (const auto& column : columns_) infos_.push_back(column.info);
    execution_->Attach(this);
}

OdbcCursor::~OdbcCursor() {
    Leave();
}

void OdbcCursor::Leave() noexcept {
    rows_.reset();
    if (execution_) execution_->Detach(this);
}

void OdbcCursor::Finish() {
    ended_ = true;
    onRow_ = false;
    spool_.reset();
    Leave();
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

void OdbcCursor::Drop() noexcept {
    ended_ = true;
    rows_.reset();
}

bool OdbcCursor::Next() {
    if (spool_) return onRow_ = spool_->Next();
    if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
    onRow_ = NextOfDriver();
    return onRow_;
}

bool OdbcCursor::NextOfDriver() {
    if (ended_) return false;
    ended_ = true;  // holds when this fails
    try {
        if (!rows_) {
            execution_->Start();
            rows_ = std::make_unique<OdbcRows>(execution_->Owner(), execution_->Handle(), columns_);
        }
        ended_ = !rows_->Next();
    } catch (...) {
        Leave();
        throw;
    }
    if (ended_) Leave();
    return !ended_;
}

void OdbcCursor::SetAside() {
    if (spool_ || ended_) return;
    auto spool = std::make_unique<RowSpool>(infos_, static_cast<std::int32_t>(infos_.size()), nullptr);
    try {
        if (onRow_) spool->Append(*this);
        while (NextOfDriver()) spool->Append(*this);
    } catch (...) {
        failure_ = std::current_exception();
        ended_ = true;
        Leave();
        throw;
    }
    spool->Rewind();
    if (onRow_) spool->Next();
    spool_ = std::move(spool);
    execution_.reset();
}

OdbcRows& OdbcCursor::Rows() const {
    if (failure_) std::rethrow_exception(failure_);
    if (!rows_) RaiseAdoError(AdoError::InvalidConnection);
    return *rows_;
}

bool OdbcCursor::IsNull(std::int32_t column) {
    return spool_ ? spool_->IsNull(column) : Rows().IsNull(column);
}

bool OdbcCursor::HasOwnText(std::int32_t column) const {
    const auto form = FormOf(column);
    return form == OdbcForm::Text || form == OdbcForm::WideText;
}

CellValue OdbcCursor::Value(std::int32_t column) {
    if (spool_) return spool_->Value(column);
    auto& rows = Rows();
    if (rows.IsNull(column)) return {};
    switch (FormOf(column)) {
        case OdbcForm::Integer:
            return {CellKind::Integer, StructIn<SQLBIGINT>(rows.Bytes(column)), 0, {}};
        case OdbcForm::Boolean:
            return {CellKind::Integer, rows.Bytes(column).front() != 0 ? 1 : 0, 0, {}};
        case OdbcForm::Double:
            return {CellKind::Double, 0, StructIn<SQLDOUBLE>(rows.Bytes(column)), {}};
        case OdbcForm::Single:
            return {CellKind::Double, 0, DoubleOfSingle(StructIn<SQLREAL>(rows.Bytes(column))), {}};
        case OdbcForm::Binary:
            return {CellKind::Blob, 0, 0, rows.Bytes(column)};
        default:
            break;
    }
    // A loose column's own text is what the database compares with.
    const bool isBoolean = TypeOf(column) == adBoolean;
    const auto text = isBoolean ? rows.Bytes(column) : Text(column);
    if (isBoolean || IsIntegerType(TypeOf(column))) {
        std::int64_t integer = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), integer);
        if (error == std::errc{} && end == text.data() + text.size()) {
            return {CellKind::Integer, integer, 0, {}};
        }
    }
    return {CellKind::Text, 0, 0, text};
}

std::string_view OdbcCursor::Text(std::int32_t column) {
    if (spool_) return spool_->Text(column);
    auto& rows = Rows();
    if (rows.IsNull(column)) return {};
    const auto type = TypeOf(column);
    if (HasOwnText(column)) {
        const auto text = rows.Bytes(column);
        if (IsDecimalType(type)) return DecimalText(text, type, buffer_);
        return HasTextForm(type) ? CellTextOfText(text, type, buffer_) : text;
    }
    switch (FormOf(column)) {
        case OdbcForm::Date:
            return platform::DateTimeText(DateOf(StructIn<SQL_DATE_STRUCT>(rows.Bytes(column))),
                                          buffer_.dateTime);
        case OdbcForm::Timestamp:
            return platform::DateTimeText(DateTimeOf(StructIn<SQL_TIMESTAMP_STRUCT>(rows.Bytes(column))),
                                          buffer_.dateTime);
        case OdbcForm::Binary:
            return CellTextOfBytes(rows.Bytes(column), type, buffer_);
        default:
            return CellText(Value(column), type, buffer_);
    }
}

std::int64_t OdbcCursor::Size(std::int32_t column) {
    if (spool_) return spool_->Size(column);
    auto& rows = Rows();
    if (rows.IsNull(column)) return 0;
    const auto type = TypeOf(column);
    const bool isPlain = FormOf(column) == OdbcForm::Binary ||
                         (HasOwnText(column) && !HasTextForm(type) && !IsDecimalType(type));
    return isPlain ? rows.Size(column) : static_cast<std::int64_t>(Text(column).size());
}

std::size_t OdbcCursor::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    if (spool_) return spool_->Read(column, offset, piece);
    const auto& info = infos_[static_cast<std::size_t>(column)];
    if ((info.attributes & adFldLong) != 0) return Rows().Read(column, offset, piece);
    return CopyPiece(Text(column), offset, piece);
}

}  // namespace halvtiv::ado
