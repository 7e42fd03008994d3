#include "copy/copy_state.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

#include "command_error.hpp"
#include "copy/catalogue_queries.hpp"

namespace halvtiv::cli::copy {
namespace {

// A key's values as hexadecimal digits: they may hold anything. "-" stands in front of each.
std::string Written(const Key& key) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const std::string& value : key) {
        text += '-';
        for (const char character : value) {
            const auto byte = static_cast<unsigned char>(character);
            text += kDigits[byte >> 4];
            text += kDigits[byte & 15];
        }
    }
    return text;
}

Key ReadKey(std::string_view text) {
    Key key;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == '-') {
            key.emplace_back();
            ++i;
            continue;
        }
        unsigned byte = 0;
        const char* const start = text.data() + i;
        std::from_chars(start, start + std::min<std::size_t>(2, text.size() - i), byte, 16);
        if (key.empty()) break;
        key.back() += static_cast<char>(byte);
        i += 2;
    }
    return key;
}

bool IsThere(const Database& target, std::string_view table) {
    for (const auto& row : RowsOf(target, QueriesOf(target.dialect).columns)) {
        if (row.at(0) == table) return true;
    }
    return false;
}

std::string TextType(Dialect dialect) {
    return TypeText(dialect, {}, 0);
}

}  // namespace

CopyState::CopyState(Database target, std::string source)
    : target_(std::move(target)),
      name_(QuotedName(target_.dialect, kStateTable)),
      source_(std::move(source)),
      isThere_(IsThere(target_, kStateTable)) {
    if (!isThere_) return;
    for (const auto& row : RowsOf(
             target_, "select source, table_name, is_created, is_done, row_count, last_key from " + name_)) {
        if (row.at(0) != source_) {
            throw CommandError(
                ExitStatus::NotRun,
                "The target has an unfinished copy from another database. Finish that one, or drop "
                "its table halvtiv_copy and the tables that it has made.");
        }
        TableState state;
        state.isCreated = row.at(2) == "1";
        state.isDone = row.at(3) == "1";
        const std::string count = row.at(4).value_or("0");
        std::from_chars(count.data(), count.data() + count.size(), state.rows);
        if (row.at(5)) state.last = ReadKey(*row.at(5));
        tables_[row.at(1).value_or("")] = state;
    }
}

const TableState* CopyState::Find(const std::string& table) const {
    const auto found = tables_.find(table);
    return found == tables_.end() ? nullptr : &found->second;
}

void CopyState::Begin() {
    if (isThere_) return;
    const std::string text = TextType(target_.dialect);
    const std::string name = TypeText(target_.dialect, {Kind::VarChar, 250, 0, {}}, 1);
    RunAll(target_,
           "create table " + name_ + " (table_name " + name + " not null primary key, source " + name +
               " not null, is_created smallint not null, is_done smallint not null, row_count bigint "
               "not null, last_key " +
               text + ")" +
               (target_.dialect == Dialect::MariaDb
                    ? " engine = InnoDB character set utf8mb4 collate utf8mb4_bin"
                    : ""));
    isThere_ = true;
}

void CopyState::Save(const std::string& table, const TableState& state) {
    const auto literal = [this](std::string_view value) { return TextLiteral(target_.dialect, value); };
    const std::string created = state.isCreated ? "1" : "0";
    const std::string done = state.isDone ? "1" : "0";
    const std::string key = state.last ? literal(Written(*state.last)) : "null";
    const std::string rows = std::to_string(state.rows);
    if (Find(table) == nullptr) {
        RunAll(target_, "insert into " + name_ +
                            " (table_name, source, is_created, is_done, row_count, last_key) values (" +
                            literal(table) + ", " + literal(source_) + ", " + created + ", " + done + ", " +
                            rows + ", " + key + ")");
    } else {
        RunAll(target_, "update " + name_ + " set is_created = " + created + ", is_done = " + done +
                            ", row_count = " + rows + ", last_key = " + key +
                            " where table_name = " + literal(table));
    }
    tables_[table] = state;
}

void CopyState::Finish() {
    if (isThere_) RunAll(target_, "drop table " + name_);
    isThere_ = false;
    tables_.clear();
}

}  // namespace halvtiv::cli::copy
