#include "documents/placeholders.hpp"

#include <algorithm>
#include <utility>

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

/// Where what is enclosed in quotes, or a comment, ends that begins at a position; the position itself where
/// none begins.
std::size_t EndOfEnclosed(std::string_view text, std::size_t at) {
    const auto behind = [text, at](std::string_view end, std::size_t length) {
        const std::size_t found = text.find(end, at + length);
        return found == std::string_view::npos ? text.size() : found + end.size();
    };
    const std::string_view rest = text.substr(at);
    if (rest.starts_with('\'') || rest.starts_with('"') || rest.starts_with('`'))
        return behind(rest.substr(0, 1), 1);
    if (rest.starts_with("--")) return behind("\n", 2);
    if (rest.starts_with("/*")) return behind("*/", 2);
    return at;
}

/// Parts each "-" at which a value starts from a "-" before it.
std::string PartMinusSigns(std::string text, std::vector<std::size_t> starts) {
    std::erase_if(starts, [&text](std::size_t at) { return at == 0 || text.compare(at - 1, 2, "--") != 0; });
    if (starts.empty()) return text;
    std::string parted;
    parted.reserve(text.size() + starts.size());
    std::size_t at = 0;
    for (auto start = starts.begin(); at < text.size();) {
        while (start != starts.end() && *start <= at) ++start;
        const bool isParted = start != starts.end() && *start == at + 1;
        const std::size_t end = isParted ? at + 1 : std::max(EndOfEnclosed(text, at), at + 1);
        parted.append(text, at, end - at);
        if (isParted) parted += ' ';
        at = end;
    }
    return parted;
}

}  // namespace

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
    text = kind == FilledText::Sql ? PartMinusSigns(std::move(draft.text), std::move(draft.starts))
                                   : std::move(draft.text);
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
