#include "copy/array_rows.hpp"

#include <algorithm>

#include "copy/dialect.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

std::string LowerType(const Column& column) {
    return platform::ToLower(column.type.declared);
}

/// The type without a bound: a cast to one that has it would cut silently, where assigning complains.
std::string ElementType(const Column& column) {
    const std::string declared = LowerType(column);
    switch (column.type.kind) {
        case Kind::Boolean:
            return "boolean";
        case Kind::TinyInt:
        case Kind::SmallInt:
        case Kind::Integer:
        case Kind::BigInt:
            return "bigint";
        case Kind::Single:
            return "real";
        case Kind::Double:
            return "double precision";
        case Kind::Decimal:
            return declared == "money" ? "text" : "numeric";
        case Kind::Binary:
        case Kind::VarBinary:
        case Kind::Blob:
            return "bytea";
        case Kind::Date:
            return "date";
        case Kind::Time:
            return "time";
        case Kind::Timestamp:
            return declared.find("with time zone") != std::string::npos ? "timestamptz" : "timestamp";
        case Kind::Guid:
            return "uuid";
        default:
            return "text";
    }
}

bool IsPlainText(const Column& column) {
    const std::string declared = LowerType(column);
    return declared == "text" || declared.starts_with("char") || declared.starts_with("varchar");
}

}  // namespace

bool ArrayRows::CanCarry(const std::vector<const Column*>& columns) {
    return std::none_of(columns.begin(), columns.end(), [](const Column* column) {
        const std::string declared = LowerType(*column);
        return declared.ends_with("[]") || declared.starts_with("bit");
    });
}

ArrayRows::ArrayRows(const std::vector<const Column*>& columns) {
    for (const Column* column : columns) {
        Array& array = arrays_.emplace_back();
        array.kind = column->type.kind;
        array.type = ElementType(*column);
        if (array.type == "text" && !IsPlainText(*column)) array.cast = "::" + column->type.declared;
    }
}

std::string& ArrayRows::Next(std::size_t column) {
    std::string& values = arrays_[column].values;
    if (!values.empty()) values += ',';
    return values;
}

void ArrayRows::AddNull(std::size_t column) {
    Next(column) += "NULL";
    bytes_ += 5;
}

void ArrayRows::Add(std::size_t column, std::string_view value) {
    std::string& values = Next(column);
    const std::size_t before = values.size();
    const Kind kind = arrays_[column].kind;
    std::string literal;
    if (IsBytes(kind) || kind == Kind::Boolean || IsInteger(kind)) {
        AppendLiteral(literal, Dialect::Postgresql, kind, value);
        value = literal;
        if (value.starts_with('\'')) value = value.substr(1, value.size() - 2);
    } else if (value.find('\0') != std::string_view::npos) {
        AppendLiteral(literal, Dialect::Postgresql, kind, value);  // raises
    }
    values += '"';
    for (const char character : value) {
        if (character == '"' || character == '\\') values += '\\';
        if (character == '\'') values += character;
        values += character;
    }
    values += '"';
    bytes_ += values.size() - before;
}

std::string ArrayRows::TakeQuery() {
    std::string items, arrays, names;
    for (std::size_t i = 0; i < arrays_.size(); ++i) {
        const std::string name = "c" + std::to_string(i + 1);
        const std::string separator = i == 0 ? "" : ", ";
        items += separator + name + arrays_[i].cast;
        names += separator + name;
        arrays += separator + "'{" + arrays_[i].values + "}'::" + arrays_[i].type + "[]";
        arrays_[i].values.clear();
    }
    bytes_ = 0;
    return "select " + items + " from unnest(" + arrays + ") as r(" + names + ')';
}

}  // namespace halvtiv::cli::copy
