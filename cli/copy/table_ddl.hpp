#pragma once

#include <string>
#include <vector>

#include "copy/catalogue.hpp"

namespace halvtiv::cli::copy {

/// A table as the target is to have it, and what of the source's it will lack, in words.
struct TranslatedTable {
    Table table;
    std::vector<std::string> lacks;
};

/// A name as an application's SQL finds it there, which mostly does without quotes: PostgreSQL takes such
/// names in small letters.
std::string TranslatedName(Dialect source, Dialect target, const std::string& name);
TranslatedTable Translate(Dialect source, Dialect target, const Table& table);

/// The statement that makes the table, with its primary key. Only SQLite takes foreign keys here, as it
/// cannot add them later. collation: of texts, "" for the database's own.
std::string CreateTableText(Dialect dialect, const Table& table, const std::string& collation);
std::string CreateIndexText(Dialect dialect, const Table& table, const Index& index);
std::string AddForeignKeyText(Dialect dialect, const std::string& table, const ForeignKey& key);

/// Sets an auto number behind the largest there is, where the database does not do so by itself; "" there.
std::string ContinueNumbersText(Dialect dialect, const std::string& table, const std::string& column);

}  // namespace halvtiv::cli::copy
