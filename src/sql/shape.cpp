#include "sql/shape.hpp"

#include <algorithm>
#include <utility>

#include "sql/characters.hpp"
#include "sql/lexer.hpp"
#include "sql/words.hpp"

namespace halvtiv::sql {
namespace {

// The least number of parameters that some database allows.
constexpr std::size_t kMostLiterals = 999;
// A longer one may not be a 64-bit integer, and has another type then.
constexpr std::size_t kMostDigits = 18;

/// Whether it is one string without a prefix: each quote inside is doubled, and the last one ends it.
bool IsPlainString(std::string_view text) {
    if (text.size() < 2 || !text.starts_with('\'') || !text.ends_with('\'')) return false;
    text = text.substr(1, text.size() - 2);
    for (auto quote = text.find('\''); quote != std::string_view::npos; quote = text.find('\'', quote + 2)) {
        if (!text.substr(quote + 1).starts_with('\'')) return false;
    }
    return true;
}

/// The kind of a plain string or number; nothing for those with prefixes, hexadecimal digits, and the like.
std::optional<ShapeLiteral::Kind> KindOf(const Token& token, Dialect dialect) {
    using Kind = ShapeLiteral::Kind;
    if (token.kind == Token::Kind::String) {
        return IsPlainString(token.text) ? std::optional(Kind::Text) : std::nullopt;
    }
    if (token.kind != Token::Kind::Number) return std::nullopt;
    auto kind = Kind::Integer;
    for (std::size_t i = 0; i < token.text.size(); ++i) {
        const char c = token.text[i];
        if (c == '.') {
            kind = Kind::Decimal;
        } else if (LowerAscii(c) == 'e') {
            kind = Kind::Float;
            if (const char sign = token.text[i + 1]; sign == '+' || sign == '-') ++i;
        } else if (!IsDigit(c)) {
            return std::nullopt;
        }
    }
    if (kind == Kind::Integer && token.text.size() > kMostDigits) return std::nullopt;
    // SQLite reads such literals with an arithmetic of its own, which may round otherwise.
    if (kind != Kind::Integer && dialect == Dialect::Sqlite) return std::nullopt;
    return kind;
}

enum class Keyword : std::uint8_t {
    None,
    Where,
    On,
    Do,
    Fixed,
    Other,
    Limit,
    Update,
    Set,
    Values,
    Insert,
    AndOr,
    Not,
    In
};

constexpr WordMap kKeywords(std::to_array<std::pair<std::string_view, Keyword>>(
    {{"where", Keyword::Where},    {"on", Keyword::On},         {"do", Keyword::Do},
     {"select", Keyword::Fixed},   {"group", Keyword::Fixed},   {"having", Keyword::Fixed},
     {"order", Keyword::Fixed},    {"window", Keyword::Fixed},  {"returning", Keyword::Fixed},
     {"from", Keyword::Other},     {"join", Keyword::Other},    {"using", Keyword::Other},
     {"union", Keyword::Other},    {"except", Keyword::Other},  {"intersect", Keyword::Other},
     {"fetch", Keyword::Other},    {"for", Keyword::Other},     {"limit", Keyword::Limit},
     {"offset", Keyword::Limit},   {"update", Keyword::Update}, {"set", Keyword::Set},
     {"values", Keyword::Values},  {"value", Keyword::Values},  {"insert", Keyword::Insert},
     {"replace", Keyword::Insert}, {"and", Keyword::AndOr},     {"or", Keyword::AndOr},
     {"not", Keyword::Not},        {"in", Keyword::In}}));

/// Whether a comparison or an assignment ends before the token: nothing binds its literal to something else.
bool EndsOperand(const Token& token) {
    if (token.kind != Token::Kind::Word) return token.IsEnd() || token.IsSymbol(')') || token.IsSymbol(';');
    return IsAnyWord(token, {"and", "or", "where", "order", "group", "limit", "returning", "from", "left",
                             "join", "inner", "right", "cross", "full", "union", "for"});
}

class ShapeReader {
public:
    ShapeReader(std::string_view statement, Dialect dialect)
        : statement_(statement), dialect_(dialect), lexer_(statement, dialect) {
        shape_.text.reserve(statement.size());
        next_ = lexer_.Next();
        Advance();
    }

    std::optional<Shape> Read() {
        if (!IsAnyWord(token_, {"select", "insert", "update", "delete", "replace", "with"}))
            return std::nullopt;
        for (; !token_.IsEnd(); Advance()) {
            const bool isOver = token_.IsSymbol(';') && !next_.IsEnd();
            if (isOver || token_.kind == Token::Kind::Parameter || token_.isConditional) return std::nullopt;
            ReadToken();
        }
        if (shape_.literals.empty() || shape_.literals.size() > kMostLiterals) return std::nullopt;
        shape_.text += statement_.substr(copied_);
        return std::move(shape_);
    }

private:
    /// What stands at a place of a query, or in brackets. Only subqueries of `Other` have literals to lift,
    /// and nothing inside `Fixed` does: a column's name may be its text, and GROUP BY may repeat the text of
    /// an item.
    enum class Place : std::uint8_t { Fixed, Other, Condition, List, Rows, Row, Assignment, Limit };
    /// What has been read of a comparison or assignment.
    enum class Operand : std::uint8_t { None, Begin, Name, Point, NegatedName, List, Compared };

    void Advance() {
        before_ = token_;
        token_ = next_;
        next_ = lexer_.Next();
    }

    Place& Here() { return places_.back(); }

    void ReadToken() {
        if (fixedDepth_ > 0) {
            if (token_.IsSymbol('(')) ++fixedDepth_;
            if (token_.IsSymbol(')')) --fixedDepth_;
            return;
        }
        switch (token_.kind) {
            case Token::Kind::Word:
                if (!ReadKeyword()) ReadName();
                break;
            case Token::Kind::QuotedName:
                ReadName();
                break;
            case Token::Kind::String:
            case Token::Kind::Number:
                ReadLiteral(token_.position, before_);
                break;
            case Token::Kind::Symbol:
                ReadSymbol();
                break;
            case Token::Kind::Parameter:
            case Token::Kind::End:
                break;
        }
    }

    // Whether the word is more than a name.
    bool ReadKeyword() {
        switch (kKeywords.Find(token_, Keyword::None)) {
            case Keyword::Where:
                // The condition of ON CONFLICT must be that of an index.
                if (!isConflict_) Enter(Place::Condition);
                return true;
            case Keyword::On:
                isConflict_ = next_.IsWord("conflict");
                if (!isConflict_) Enter(Place::Condition);
                return true;
            case Keyword::Do:
                isConflict_ = false;
                return true;
            case Keyword::Fixed:
                Enter(Place::Fixed);
                return true;
            case Keyword::Other:
                Enter(Place::Other);
                return true;
            case Keyword::Limit:
                Enter(Place::Limit);
                return true;
            case Keyword::Update:
                if (!before_.IsWord("key")) return false;
                Enter(Place::Assignment);
                return true;
            case Keyword::Set:
                Enter(Place::Assignment);
                return true;
            case Keyword::Values:
                if (!isInsert_ || hasRows_ || places_.size() > 1) return false;
                hasRows_ = true;
                Enter(Place::Rows);
                return true;
            case Keyword::Insert: {
                const bool isVerb = before_.IsEnd() || before_.IsSymbol(')');  // else a function
                if (!isVerb || places_.size() > 1 || next_.IsSymbol('(')) return false;
                isInsert_ = true;
                return true;
            }
            case Keyword::AndOr:
                operand_ = Operand::Begin;
                return true;
            case Keyword::Not:
                if (operand_ == Operand::Begin) return true;
                operand_ = operand_ == Operand::Name ? Operand::NegatedName : Operand::None;
                return true;
            case Keyword::In: {
                const bool isOfColumn = operand_ == Operand::Name || operand_ == Operand::NegatedName;
                operand_ = isOfColumn ? Operand::List : Operand::None;
                return true;
            }
            case Keyword::None:
                break;
        }
        return false;
    }

    void Enter(Place place) {
        Here() = place;
        operand_ = Operand::Begin;
    }

    void ReadName() {
        const bool mayFollow = operand_ == Operand::Begin || operand_ == Operand::Point;
        // A user variable is no column.
        operand_ = mayFollow && !token_.text.starts_with('@') ? Operand::Name : Operand::None;
    }

    void ReadSymbol() {
        if (token_.IsSymbol('(')) return OpenBracket();
        if (token_.IsSymbol(')')) {
            if (places_.size() > 1) places_.pop_back();
            operand_ = Operand::None;
        } else if (token_.IsSymbol('-') && IsSigned()) {
            const auto sign = token_;
            const auto before = before_;
            Advance();
            ReadLiteral(sign.position, before);
        } else if (token_.IsSymbol('.')) {
            operand_ = operand_ == Operand::Name ? Operand::Point : Operand::None;
        } else if (token_.IsSymbol(',')) {
            operand_ = Here() == Place::Assignment ? Operand::Begin : Operand::None;
        } else {
            operand_ = operand_ == Operand::Name && IsComparison() ? Operand::Compared : Operand::None;
        }
    }

    bool IsSigned() const {
        return next_.kind == Token::Kind::Number && next_.position == token_.End() &&
               places_.back() != Place::Limit &&
               (operand_ == Operand::Compared || before_.IsSymbol('(') || before_.IsSymbol(','));
    }

    bool IsComparison() const {
        if (places_.back() == Place::Assignment) return token_.IsSymbol('=');
        for (const std::string_view symbol : {"=", "<>", "!=", "<", "<=", ">", ">=", "==", "<=>"}) {
            if (token_.text == symbol) return true;
        }
        return false;
    }

    void OpenBracket() {
        if (Here() == Place::Fixed) {
            fixedDepth_ = 1;
            return;
        }
        auto inside = Place::Other;
        auto operand = Operand::None;
        if (Here() == Place::Condition && operand_ == Operand::List) {
            inside = Place::List;
        } else if (Here() == Place::Condition && operand_ == Operand::Begin) {
            inside = Place::Condition;
            operand = Operand::Begin;
        } else if (Here() == Place::Rows) {
            inside = Place::Row;
        }
        places_.push_back(inside);
        operand_ = operand;
    }

    bool MayLift(const Token& before, ShapeLiteral::Kind kind) const {
        switch (places_.back()) {
            case Place::List:
            case Place::Row:  // the literal is all that stands between the commas
                return (before.IsSymbol('(') || before.IsSymbol(',')) &&
                       (next_.IsSymbol(',') || next_.IsSymbol(')'));
            case Place::Limit:
                return kind == ShapeLiteral::Kind::Integer &&
                       (IsAnyWord(before, {"limit", "offset"}) || before.IsSymbol(',')) &&
                       (EndsOperand(next_) || next_.IsWord("offset") || next_.IsSymbol(','));
            case Place::Condition:
                return operand_ == Operand::Compared && EndsOperand(next_);
            case Place::Assignment:
                return operand_ == Operand::Compared && (EndsOperand(next_) || next_.IsSymbol(','));
            case Place::Fixed:
            case Place::Other:
            case Place::Rows:
                break;
        }
        return false;
    }

    // The literal begins with its sign, where it has one; `before` is the token before it.
    void ReadLiteral(std::size_t begin, const Token& before) {
        const auto kind = KindOf(token_, dialect_);
        const auto end = token_.End();
        // A letter right behind it would become a part of the marker.
        const bool isApart = end == statement_.size() || !IsInName(statement_[end]);
        if (kind && isApart && MayLift(before, *kind)) Lift(*kind, begin, end);
        operand_ = Operand::None;
    }

    bool IsInName(char c) const { return SyntaxOf(dialect_).isInName[static_cast<unsigned char>(c)]; }

    void Lift(ShapeLiteral::Kind kind, std::size_t begin, std::size_t end) {
        shape_.literals.push_back({kind, statement_.substr(begin, end - begin), begin});
        shape_.text += statement_.substr(copied_, begin - copied_);
        copied_ = end;
        if (dialect_ == Dialect::PostgreSql) {
            shape_.text += '$' + std::to_string(shape_.literals.size());
        } else {
            shape_.text += '?';
        }
    }

    std::string_view statement_;
    Dialect dialect_;
    Lexer lexer_;
    Token before_;
    Token token_;
    Token next_;
    Shape shape_;
    std::size_t copied_ = 0;  // of the statement, into the shape's text
    std::vector<Place> places_{Place::Other};
    Operand operand_ = Operand::None;
    int fixedDepth_ = 0;  // of brackets in a place that is fixed
    bool isInsert_ = false;
    bool hasRows_ = false;
    bool isConflict_ = false;  // between CONFLICT and DO
};

}  // namespace

std::string ShapeLiteral::Value() const {
    if (kind != Kind::Text) return std::string(text);
    std::string value;
    value.reserve(text.size());
    for (std::size_t i = 1; i + 1 < text.size(); ++i) {
        value += text[i];
        if (text[i] == '\'') ++i;  // a doubled quote stands for one
    }
    return value;
}

std::optional<Shape> ReadShape(std::string_view statement, Dialect dialect) {
    // Of the other databases it is not known what a parameter means.
    const bool isKnown =
        dialect == Dialect::Sqlite || dialect == Dialect::PostgreSql || dialect == Dialect::MariaDb;
    return isKnown ? ShapeReader(statement, dialect).Read() : std::nullopt;
}

}  // namespace halvtiv::sql
