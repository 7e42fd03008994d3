#pragma once

#include <string_view>
#include <vector>

#include <pugixml.hpp>

namespace halvtiv {

/// A key with a quote. It is no plain text but a part of the expression `/*/data[@guid='KEY']`, which selects
/// entries.
///
/// Requests bring such keys, so the work is bounded before anything is evaluated. A key may read the
/// attributes of its entry, and the elements inside by child steps. What leads out of the entry (`..`, `//`,
/// an absolute path, another axis than child and attribute, a closed predicate), `@*`, `translate`, `lang`
/// and `id` are refused.
class KeyExpression {
public:
    static bool Is(std::string_view key) { return key.find('\'') != std::string_view::npos; }

    /// Raises -2147467259 for a key that breaks the expression, -1 for one that is refused.
    explicit KeyExpression(std::string_view key);

    /// Whether it reads what is inside an entry, not only the attributes.
    bool ReadsContent() const noexcept { return steps_ > 0; }
    /// The selected "data" children of the document's root, in document order. Raises -1 when there is too
    /// much to read: the length of the key times the bytes of each entry, to the power of the number of
    /// paths into it, must not pass 10^10.
    std::vector<pugi::xml_node> Select(const pugi::xml_document& document) const;

private:
    pugi::xpath_query query_;
    std::size_t size_;
    int steps_;  // paths into the entry; each may visit all of it for every node that another one visits
};

}  // namespace halvtiv
