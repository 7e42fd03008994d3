#include "documents/key_expression.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>

#include "foundation/err_object.hpp"
#include "foundation/xml_utils.hpp"

namespace halvtiv {

namespace {

[[noreturn]] void Refuse(const char* why) {
    throw OwnError("ZorbFunctionResult", std::string("Key is an expression that ") + why + ".");
}

constexpr bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

constexpr bool IsNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

constexpr bool IsNameCharacter(char c) noexcept {
    return IsNameStart(c) || IsDigit(c) || c == '-' || c == '.';
}

bool IsAnyOf(std::string_view name, std::initializer_list<std::string_view> names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Goes over a predicate that is known to be well-formed, and counts the paths into the entry.
class PredicateReader {
public:
    explicit PredicateReader(std::string_view text) : text_(text) {}

    int CountPaths() {
        for (SkipBlanks(); at_ < text_.size(); SkipBlanks()) ReadToken();
        return paths_;
    }

private:
    void SkipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }
    bool Follows(std::string_view what) const { return text_.substr(at_).starts_with(what); }
    bool Take(std::string_view what) {
        SkipBlanks();
        if (!Follows(what)) return false;
        at_ += what.size();
        return true;
    }
    std::string_view TakeName() {
        const std::size_t begin = at_;
        while (at_ < text_.size() && (IsNameCharacter(text_[at_]) || (text_[at_] == ':' && !Follows("::"))))
            ++at_;
        return text_.substr(begin, at_ - begin);
    }

    void ReadToken() {
        const char c = text_[at_];
        if (c == '"' || c == '\'') {
            at_ = text_.find(c, at_ + 1) + 1;
            isOperand_ = true;
        } else if (IsDigit(c) || (c == '.' && at_ + 1 < text_.size() && IsDigit(text_[at_ + 1]))) {
            at_ = std::min(text_.find_first_not_of("0123456789.", at_), text_.size());
            isOperand_ = true;
        } else if (IsNameStart(c)) {
            ReadName();
        } else {
            ReadSymbol();
        }
    }

    void ReadName() {
        const std::string_view name = TakeName();
        if (isOperand_ && IsAnyOf(name, {"and", "or", "div", "mod"})) {
            isOperand_ = false;
        } else if (Take("::")) {
            if (name == "attribute") return ReadAttribute();
            if (name != "child") Refuse("leaves its entry");
        } else if (Take("(")) {
            ReadFunction(name);
        } else {
            Step();
        }
    }

    void ReadFunction(std::string_view name) {
        if (IsAnyOf(name, {"translate", "lang", "id", "processing-instruction"}))
            Refuse("calls a function that keys may not call");
        const bool readsNothing = IsAnyOf(name, {"true", "false", "position", "last"});
        isOperand_ = Take(")");  // without an argument: of the node itself, or a test of child nodes
        if (isOperand_) {
            if (!readsNothing) Step();
        } else {
            ++depth_;
        }
    }

    void ReadAttribute() {
        SkipBlanks();
        if (Follows("*") || TakeName().empty()) Refuse("reads all attributes at once");
        isOperand_ = true;
        isBehindSlash_ = false;
    }

    void ReadSymbol() {
        if (Follows("..") || Follows("//")) Refuse("leaves its entry");
        const char c = text_[at_++];
        switch (c) {
            case '@':
                return ReadAttribute();
            case '/':
                if (!isOperand_) Refuse("leaves its entry");
                isBehindSlash_ = true;
                break;
            case '(':
            case '[':
                ++depth_;
                break;
            case ')':
            case ']':
                if (--depth_ < 0) Refuse("leaves its entry");
                isOperand_ = true;
                return;
            case '.':
                return Step();
            case '*':
                if (!isOperand_) return Step();
                break;
            default:
                break;
        }
        isOperand_ = false;
    }

    /// A step to child nodes, or the text of the node itself. Steps behind a slash go on with the same path.
    void Step() {
        if (!isBehindSlash_) ++paths_;
        isBehindSlash_ = false;
        isOperand_ = true;
    }

    std::string_view text_;
    std::size_t at_ = 0;
    int depth_ = 0;
    int paths_ = 0;
    bool isOperand_ = false;  // what has been read last is one: an operator may follow
    bool isBehindSlash_ = false;
};

std::string Predicate(std::string_view key) {
    return "@guid='" + std::string(key) + "'";
}

double AttributeBytes(const pugi::xml_node& element) {
    std::size_t bytes = 1;
    for (const pugi::xml_attribute& attribute : element.attributes()) {
        bytes += std::strlen(attribute.name()) + std::strlen(attribute.value());
    }
    return static_cast<double>(bytes);
}

/// The bytes of an element and of all inside.
double TreeBytes(const pugi::xml_node& root) {
    double bytes = 0;
    pugi::xml_node at = root;
    for (;;) {
        bytes += AttributeBytes(at) + static_cast<double>(std::strlen(at.name()) + std::strlen(at.value()));
        if (at.first_child()) {
            at = at.first_child();
            continue;
        }
        while (at != root && !at.next_sibling()) at = at.parent();
        if (at == root) return bytes;
        at = at.next_sibling();
    }
}

}  // namespace

KeyExpression::KeyExpression(std::string_view key)
    : query_(CompileXPath("/*/data[" + Predicate(key) + "]")),
      size_(key.size()),
      steps_(PredicateReader(Predicate(key)).CountPaths()) {}

std::vector<pugi::xml_node> KeyExpression::Select(const pugi::xml_document& document) const {
    constexpr double kMostWork = 1e10;
    double work = 0;
    for (const pugi::xml_node& entry : document.document_element().children()) {
        const double bytes = ReadsContent() ? TreeBytes(entry) : AttributeBytes(entry);
        work += static_cast<double>(size_) * std::pow(bytes, std::max(steps_, 1));
    }
    if (work > kMostWork) Refuse("takes too long on a result of this size");
    std::vector<pugi::xml_node> entries;
    for (const pugi::xpath_node& node : SelectXmlNodes(document, query_)) entries.push_back(node.node());
    return entries;
}

}  // namespace halvtiv
