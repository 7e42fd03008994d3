#include "copy/row_hash.hpp"

#include <algorithm>
#include <charconv>

#include "copy/dialect.hpp"
#include "platform/number.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

constexpr std::int64_t kPiece = 1024 * 1024;

/// Mixes bytes and numbers into one number.
class Hash {
public:
    void Add(std::string_view bytes) {
        for (const char byte : bytes) {
            value_ = (value_ ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
        }
    }
    void AddNumber(std::uint64_t number) {
        value_ = (value_ ^ number) * 0x9E3779B97F4A7C15U;
        value_ ^= value_ >> 32;
    }
    /// Every bit depends on every bit before, so that sums of hashes do not cancel out.
    std::uint64_t Value() const {
        std::uint64_t value = value_;
        value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9U;
        value = (value ^ (value >> 27)) * 0x94D049BB133111EBU;
        return value ^ (value >> 31);
    }

private:
    std::uint64_t value_ = 0xCBF29CE484222325U;
};

/// An exact number with nothing superfluous: "1.5" for "+01.50" and "15e-1".
void AppendExact(std::string& text, std::string_view value, std::int64_t exponent) {
    const bool isNegative = value.starts_with('-');
    std::string digits;
    auto point = exponent;  // behind how many of the digits it stands
    bool isBehindPoint = false;
    for (const char character : value) {
        if (character == '.') isBehindPoint = true;
        if (character < '0' || character > '9') continue;
        digits += character;
        if (!isBehindPoint) ++point;
    }
    const std::size_t zeros = std::min(digits.find_first_not_of('0'), digits.size());
    digits.erase(0, zeros);
    point -= static_cast<std::int64_t>(zeros);
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.empty()) {
        text += '0';
        return;
    }
    // Digits and place, which say the same as zeros around them would.
    if (isNegative) text += '-';
    text += digits + 'e' + std::to_string(point);
}

/// What a column of numbers may hold besides: infinity under two names, nan, and on SQLite any text.
void AppendNoNumber(std::string& text, std::string_view value) {
    const std::string lower = platform::ToLower(value);
    if (lower.ends_with("infinity")) {
        text += lower.substr(0, lower.size() - 5);
    } else {
        text += lower.ends_with("inf") || lower == "nan" ? std::string_view(lower) : value;
    }
}

void AppendNumber(std::string& text, Kind kind, std::string_view value) {
    if (platform::EqualIgnoringCase(value, "true")) value = "1";
    if (platform::EqualIgnoringCase(value, "false")) value = "0";
    const auto number = platform::ParseNumber(value);
    if (!number) return AppendNoNumber(text, value);
    if (IsApproximate(kind)) {
        char buffer[platform::kNumberTextSize];
        const double known =
            kind == Kind::Single ? static_cast<double>(static_cast<float>(*number)) : *number;
        text += platform::DoubleText(known + 0.0, buffer);  // without a sign before nought
        return;
    }
    const std::size_t mark = value.find_first_of("eE");
    std::int64_t exponent = 0;
    if (mark != std::string_view::npos) {
        std::string_view digits = value.substr(mark + 1);
        if (digits.starts_with('+')) digits.remove_prefix(1);
        std::from_chars(digits.data(), digits.data() + digits.size(), exponent);
    }
    AppendExact(text, platform::TrimBlanks(value).substr(0, mark), exponent);
}

/// Numbers of two digits at least: "2005-03-01" for "2005/3/1".
void AppendPadded(std::string& text, std::string_view value) {
    const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
    for (std::size_t i = 0; i < value.size(); ++i) {
        const bool isAlone = isDigit(value[i]) && (i == 0 || !isDigit(value[i - 1])) &&
                             (i + 1 == value.size() || !isDigit(value[i + 1]));
        if (isAlone) text += '0';
        text += value[i] == '/' ? '-' : value[i];
    }
}

void AppendTimeOfDay(std::string& text, std::string_view value) {
    std::string_view fraction = value.substr(std::min(value.find('.'), value.size()));
    value.remove_suffix(fraction.size());
    AppendPadded(text, value);
    if (std::count(value.begin(), value.end(), ':') == 1) text += ":00";
    fraction = fraction.substr(0, fraction.find_last_not_of("0.") + 1);
    text += fraction;
}

void AppendMoment(std::string& text, Kind kind, std::string_view value) {
    if (IsInUtc(value)) value.remove_suffix(1);
    const std::size_t blank = std::min(value.find_first_of(" T"), value.size());
    std::string_view time = value.substr(std::min(blank + 1, value.size()));
    if (time.empty()) time = "00:00:00";
    AppendPadded(text, value.substr(0, blank));
    if (kind == Kind::Date && time.find_first_not_of("0:.") == std::string_view::npos) return;
    text += ' ';
    AppendTimeOfDay(text, time);
}

void AddLong(Hash& hash, ado::Field& field) {
    for (;;) {
        const ado::Bytes piece = field.GetChunk(kPiece);
        if (piece.empty()) return;
        hash.Add({reinterpret_cast<const char*>(piece.data()), piece.size()});
    }
}

}  // namespace

void AppendCanonical(std::string& text, const ComparedColumn& column, std::string_view value) {
    switch (column.kind) {
        case Kind::Boolean:
            if (const auto truth = BooleanOf(value)) value = *truth ? "1" : "0";
            AppendNumber(text, column.kind, value);
            break;
        case Kind::TinyInt:
        case Kind::SmallInt:
        case Kind::Integer:
        case Kind::BigInt:
        case Kind::Single:
        case Kind::Double:
        case Kind::Decimal:
            AppendNumber(text, column.kind, value);
            break;
        case Kind::Date:
        case Kind::Timestamp:
            AppendMoment(text, column.kind, value);
            break;
        case Kind::Time:
            AppendTimeOfDay(text, value);
            break;
        case Kind::Guid:
            if (value.starts_with('{') && value.ends_with('}')) value = value.substr(1, value.size() - 2);
            text += platform::ToUpper(value);
            break;
        default:
            if (column.ignoresBlanks) value = value.substr(0, value.find_last_not_of(' ') + 1);
            text += value;
    }
}

std::size_t RowSum::Add(const std::vector<SourceCell>& cells) {
    Hash row;
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        ado::Field& field = *cells[i].field;
        Hash cell;
        if (field.IsNull()) {
            cell.AddNumber(0);
        } else if (cells[i].isLong && !columns_[i].ignoresBlanks && field.ActualSize() > kPiece) {
            bytes += static_cast<std::size_t>(field.ActualSize());
            AddLong(cell, field);
        } else {
            text_.clear();
            AppendCanonical(text_, columns_[i], field.Text());
            cell.Add(text_);
            bytes += text_.size();
        }
        const std::uint64_t value = cell.Value();
        columnSums_[i] += value;
        row.AddNumber(value);
    }
    ++rows_;
    sum_ += row.Value();
    return bytes;
}

std::vector<std::size_t> RowSum::DifferingColumns(const RowSum& other) const {
    std::vector<std::size_t> columns;
    for (std::size_t i = 0; i < columnSums_.size(); ++i) {
        if (columnSums_[i] != other.columnSums_[i]) columns.push_back(i);
    }
    return columns;
}

}  // namespace halvtiv::cli::copy
