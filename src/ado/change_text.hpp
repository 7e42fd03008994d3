#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"

namespace halvtiv::ado {

/// The text of a change of one row, and the values for its places in order.
struct ChangeText {
    std::string text;
    std::vector<const Parameter*> parameters;
};

/// Writes INSERT, UPDATE or DELETE. appendPlace(text, number, parameter) appends the place of the number-th
/// value, from 1. noValues is what follows the table's name in an INSERT without values.
template <typename AppendPlace>
ChangeText WriteChange(const RowChange& change, AppendPlace&& appendPlace,
                       std::string_view noValues = " DEFAULT VALUES") {
    ChangeText result;
    std::string& text = result.text;
    const auto appendNext = [&](const Parameter& parameter) {
        result.parameters.push_back(&parameter);
        appendPlace(text, result.parameters.size(), parameter);
    };
    const auto forAll = [&text](const std::vector<Parameter>& parameters, std::string_view separator,
                                const auto& append) {
        for (const Parameter& parameter : parameters) {
            if (&parameter != &parameters.front()) text += separator;
            append(parameter);
        }
    };
    const auto appendName = [&text](const Parameter& parameter) { text += parameter.name; };

    switch (change.kind) {
        case RowChange::Kind::Insert:
            text += "INSERT INTO ";
            text += change.table->name;
            if (change.values.empty()) {
                text += noValues;
                return result;
            }
            text += " (";
            forAll(change.values, ", ", appendName);
            text += ") VALUES (";
            forAll(change.values, ", ", appendNext);
            text += ')';
            return result;
        case RowChange::Kind::Update:
            text += "UPDATE ";
            text += change.table->name;
            text += " SET ";
            forAll(change.values, ", ", [&](const Parameter& parameter) {
                appendName(parameter);
                text += " = ";
                appendNext(parameter);
            });
            break;
        case RowChange::Kind::Delete:
            text += "DELETE FROM ";
            text += change.table->name;
            break;
    }
    text += " WHERE ";
    forAll(change.conditions, " AND ", [&](const Parameter& parameter) {
        const bool isNull = parameter.value.kind == CellKind::Null;
        if (isNull && !parameter.nullTest.empty()) {
            text += parameter.nullTest;
            return;
        }
        appendName(parameter);
        if (isNull) {
            text += " IS NULL";
            return;
        }
        text += " = ";
        appendNext(parameter);
    });
    return result;
}

}  // namespace halvtiv::ado
