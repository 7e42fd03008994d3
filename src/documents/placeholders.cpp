#include "documents/placeholders.hpp"

#include <algorithm>
#include <utility>

#include "ado/sql_scanner.hpp"

namespace halvtiv {

namespace {

constexpr char kMark = '%';

bool MayBeginWithMinus(std::string_view value) {
    return value.starts_with('-') || value.starts_with(kMark);
}

/// Replaces all occurrences, left to right. Starts that are kept grow in order.
std::string Replace(std::string_view text, std::string_view placeholder, std::string_view value,
                    std::vector<std::size_t>& starts) {
    std::string replaced;
    std::vector<std::size_t> moved;
    auto start = starts.begin();
    std::size_t from = 0;
    for (;;) {
        const std::size_t at = std::min(text.find(placeholder, from), text.size());
        for (; start != starts.end() && *start < at; ++start)
            moved.push_back(*start - from + replaced.size());
        replaced.append(text.substr(from, at - from));
        if (at == text.size()) break;
        from = at + placeholder.size();
        const bool isStart = start != starts.end() && *start == at;
        while (start != starts.end() && *start < from) ++start;
        if (isStart || MayBeginWithMinus(value)) moved.push_back(replaced.size());
        replaced.append(value);
    }
    starts = std::move(moved);
    return replaced;
}

std::size_t CountOf(std::string_view text, std::string_view part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string_view::npos;
         at = text.find(part, at + part.size())) {
        ++count;
    }
    return count;
}

/// Parts each "-" at which a value starts from a "-" before it, unless the two stand in a quoted text or in a
/// comment.
std::string PartMinusSigns(std::string text, std::vector<std::size_t> starts, FilledText kind) {
    std::erase_if(starts, [&text](std::size_t at) { return at == 0 || text.compare(at - 1, 2, "--") != 0; });
    if (starts.empty()) return text;
    std::string parted;
    parted.reserve(text.size() + starts.size());
    std::size_t from = 0;
    for (std::size_t& start : starts) {
        parted.append(text, from, start - from);
        from = start;
        start = parted.size();  // of the blank
        parted += ' ';
    }
    parted.append(text, from);

    // With the blanks the signs are symbols; a blank behind anything else goes again.
    ado::SqlScanner scanner(
        parted, kind == FilledText::PostgresqlSql ? ado::SqlDialect::Postgresql : ado::SqlDialect::Common);
    auto token = scanner.Next();
    std::string kept;
    kept.reserve(parted.size());
    from = 0;
    for (const std::size_t blank : starts) {
        while (token.kind != ado::SqlToken::Kind::End && token.position + token.text.size() < blank)
            token = scanner.Next();
        kept.append(parted, from, blank - from);
        from = token.IsSymbol('-') && token.position + 1 == blank ? blank : blank + 1;
    }
    return kept.append(parted, from);
}

}  // namespace

FilledText SqlFor(std::string_view database) {
    return database == "PostgreSQL" ? FilledText::PostgresqlSql : FilledText::Sql;
}

void Placeholders::Add(std::string_view name, std::string value) {
    hasAwkwardName_ = hasAwkwardName_ || name.find(kMark) != std::string_view::npos;
    positions_.try_emplace(std::string(name), values_.size());
    values_.push_back({kMark + std::string(name) + kMark, std::move(value)});
}

std::size_t Placeholders::Room(std::size_t given) const {
    constexpr std::size_t kAlwaysAllowed = std::size_t{64} << 20;
    constexpr std::size_t kMostGrowth = 8;
    for (const Value& value : values_) given += value.text.size();
    return std::max(kAlwaysAllowed, kMostGrowth * given);
}

Placeholders::Outcome Placeholders::Take(std::size_t& room, std::size_t bytes) {
    if (bytes > room) return Outcome::NoRoom;
    room -= bytes;
    return Outcome::Done;
}

bool Placeholders::Fill(std::string& text, FilledText kind, std::size_t& room) const {
    Draft draft;
    Outcome outcome = FillInOnePass(text, room, draft);
    if (outcome == Outcome::NotInOnePass) {
        draft = {std::move(text), {}};
        outcome = FillOneByOne(room, draft);
    }
    if (outcome == Outcome::NoRoom) return false;
    text = kind == FilledText::Plain ? std::move(draft.text)
                                     : PartMinusSigns(std::move(draft.text), std::move(draft.starts), kind);
    return true;
}

// The usual text: each "%" belongs to a placeholder, and no two of them share one. Values without any bring
// in no other, so that the order of the names makes no difference.
Placeholders::Outcome Placeholders::FillInOnePass(std::string_view text, std::size_t& room,
                                                  Draft& draft) const {
    if (hasAwkwardName_) return Outcome::NotInOnePass;
    std::size_t from = 0;
    for (std::size_t open = text.find(kMark); open != std::string_view::npos; open = text.find(kMark, from)) {
        const std::string_view between = text.substr(from, open - from);
        if (from > 0 && positions_.find(between) != positions_.end()) return Outcome::NotInOnePass;
        const std::size_t close = text.find(kMark, open + 1);
        if (close == std::string_view::npos) return Outcome::NotInOnePass;
        const auto found = positions_.find(text.substr(open + 1, close - open - 1));
        if (found == positions_.end()) return Outcome::NotInOnePass;
        const std::string& value = values_[found->second].text;
        if (value.find(kMark) != std::string::npos) return Outcome::NotInOnePass;
        draft.text.append(between);
        if (draft.text.size() + value.size() > room) return Outcome::NoRoom;
        if (value.starts_with('-')) draft.starts.push_back(draft.text.size());
        draft.text.append(value);
        from = close + 1;
    }
    draft.text.append(text.substr(from));
    return Take(room, draft.text.size());
}

Placeholders::Outcome Placeholders::FillOneByOne(std::size_t& room, Draft& draft) const {
    for (const auto& [placeholder, value] : values_) {
        const std::size_t count = CountOf(draft.text, placeholder);
        if (count == 0) continue;
        const std::size_t size = draft.text.size() - count * placeholder.size() + count * value.size();
        if (Take(room, size) == Outcome::NoRoom) return Outcome::NoRoom;
        draft.text = Replace(draft.text, placeholder, value, draft.starts);
    }
    return Outcome::Done;
}

}  // namespace halvtiv
