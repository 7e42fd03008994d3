#include "sql/script.hpp"

#include <algorithm>
#include <array>
#include <utility>

#include "sql/characters.hpp"
#include "sql/lexer.hpp"
#include "sql/words.hpp"

// Each class here follows one statement token by token and knows whether a ";" ends it.

namespace halvtiv::sql {
namespace {

/// Statements without bodies.
class PlainStatement {
public:
    bool EndsAt(const Token& token) { return token.IsSymbol(';'); }
};

/// The rest of the script is one statement.
class WholeScript {
public:
    bool EndsAt(const Token& /*token*/) { return false; }
};

/// CREATE TRIGGER ends at a ";" behind "; END".
class SqliteStatement {
public:
    bool EndsAt(const Token& token) {
        const bool ends = token.IsSymbol(';') && (!isTrigger_ || (isEnd_ && endsBody_));
        endsBody_ = token.IsWord("end") && isEnd_;
        isEnd_ = token.IsSymbol(';') || endsBody_;
        if (words_ == 0) isCreating_ = token.IsWord("create");
        if (words_ == 1 && isCreating_) isTrigger_ = token.IsWord("trigger");
        if (!(words_ == 1 && IsAnyWord(token, {"temp", "temporary"}))) ++words_;
        return ends;
    }

private:
    int words_ = 0;
    bool isCreating_ = false;
    bool isTrigger_ = false;
    bool isEnd_ = false;     // a ";", or an END behind one
    bool endsBody_ = false;  // an END behind a ";"
};

/// A ";" in brackets, as in CREATE RULE, or between BEGIN ATOMIC and END of a routine, ends nothing.
class PostgreSqlStatement {
public:
    bool EndsAt(const Token& token) {
        if (token.IsSymbol(';')) return brackets_ <= 0 && blocks_ == 0;
        if (token.IsSymbol('(')) ++brackets_;
        if (token.IsSymbol(')')) --brackets_;
        ReadHead(token);
        if (isRoutine_) {
            if (token.IsWord("atomic") && isBehindBegin_) blocks_ = 1;
            if (blocks_ > 0 && token.IsWord("case")) ++blocks_;
            if (blocks_ > 0 && token.IsWord("end")) --blocks_;
            isBehindBegin_ = token.IsWord("begin");
        }
        return false;
    }

private:
    // CREATE [OR REPLACE] FUNCTION or PROCEDURE.
    void ReadHead(const Token& token) {
        if (!inHead_) return;
        inHead_ = isFirst_ ? token.IsWord("create") : IsAnyWord(token, {"or", "replace"});
        isRoutine_ = !isFirst_ && IsAnyWord(token, {"function", "procedure"});
        isFirst_ = false;
    }

    int brackets_ = 0;
    int blocks_ = 0;  // and CASE expressions in them
    bool isFirst_ = true;
    bool inHead_ = true;
    bool isRoutine_ = false;
    bool isBehindBegin_ = false;
};

/// Compound statements: the bodies of stored programs, and those that stand for themselves. Their words open
/// and end a block only where a statement begins: IF, REPEAT and CASE are functions and expressions, too, and
/// BEGIN and END may be names.
class MariaDbStatement {
public:
    bool EndsAt(const Token& token) {
        if (token.IsSymbol(';')) {
            // A part of an executable comment cannot stand alone.
            if (blocks_ == 0 && !awaitsBegin_ && !token.isConditional) return true;
            BeginStatement();
        } else {
            Read(token);
        }
        before_ = token;
        return false;
    }

private:
    enum class Head { First, Creating, Name, Procedure, Function, Package, Event, Trigger, TriggerOrder };

    static bool OpensBlock(const Token& token) {
        return IsAnyWord(token, {"begin", "if", "case", "loop", "while", "repeat", "for"});
    }

    void Read(const Token& token) {
        if (inBody_) {
            ReadBody(token);
        } else if (!isPlain_) {
            ReadHead(token);
        }
    }

    void BeginStatement() {
        atStart_ = true;
        inControl_ = inUntil_ = isDeclaring_ = inHandler_ = inRoutineOfPackage_ = false;
        cases_ = 0;
    }
    void EnterBody() {
        inBody_ = true;
        BeginStatement();
    }
    void EnterBodyWith(const Token& token) {
        EnterBody();
        ReadBody(token);
    }

    void ReadHead(const Token& token) {
        switch (head_) {
            case Head::First:
                return ReadFirst(token);
            case Head::Creating:
                return ReadObjectType(token);
            case Head::Name:  // [BODY] [IF NOT EXISTS] name
                if (!IsAnyWord(token, {"body", "if", "not", "exists"})) head_ = type_;
                return;
            case Head::Procedure:
            case Head::Function:
                return ReadRoutineHead(token);
            case Head::Package:
                if (!IsAnyWord(token, {"as", "is", "procedure", "function"})) return;
                blocks_ = 1;
                inPackage_ = true;
                return EnterBodyWith(token);
            case Head::Event:
                if (token.IsWord("do")) EnterBody();
                return;
            case Head::Trigger:  // FOR EACH ROW
                if (token.IsWord("row")) head_ = Head::TriggerOrder;
                return;
            case Head::TriggerOrder: {
                const auto isOrder = [](const Token& any) { return IsAnyWord(any, {"follows", "precedes"}); };
                if (!isOrder(token) && !isOrder(before_)) EnterBodyWith(token);
                return;
            }
        }
    }

    void ReadFirst(const Token& token) {
        if (before_.IsWord("begin") ? token.IsWord("not") : token.IsSymbol(':')) {
            blocks_ = before_.IsWord("begin") ? 1 : 0;  // BEGIN NOT ATOMIC; else behind a label
            EnterBody();
        } else if (!before_.IsEnd()) {
            isPlain_ = true;
        } else if (IsAnyWord(token, {"create", "alter"})) {
            head_ = Head::Creating;
        } else if (OpensBlock(token) && !token.IsWord("begin")) {
            EnterBodyWith(token);
        }
    }

    // OR REPLACE, DEFINER = user, and AGGREGATE stand before the type.
    void ReadObjectType(const Token& token) {
        if (inDefiner_) {
            // name, name@host, CURRENT_USER()
            const bool isUser = token.IsSymbol('=') || before_.IsSymbol('=') || token.text.starts_with('@') ||
                                token.IsSymbol('(') || token.IsSymbol(')');
            if (isUser) return;
            inDefiner_ = false;
        }
        constexpr std::array<std::pair<std::string_view, Head>, 5> kTypes{{{"procedure", Head::Procedure},
                                                                           {"function", Head::Function},
                                                                           {"package", Head::Package},
                                                                           {"event", Head::Event},
                                                                           {"trigger", Head::Trigger}}};
        const auto* const type = std::find_if(kTypes.begin(), kTypes.end(),
                                              [&](const auto& known) { return token.IsWord(known.first); });
        if (type != kTypes.end()) {
            type_ = type->second;
            head_ = Head::Name;
        } else if (token.IsWord("definer")) {
            inDefiner_ = true;
        } else {
            isPlain_ = !IsAnyWord(token, {"or", "replace", "aggregate"});
        }
    }

    void ReadRoutineHead(const Token& token) {
        if (token.IsSymbol('(')) ++brackets_;
        if (token.IsSymbol(')')) --brackets_;
        const bool isWord = token.kind == Token::Kind::Word && brackets_ <= 0 && !before_.IsSymbol('.');
        if (!isWord) return;
        if (IsAnyWord(token, {"as", "is"})) {  // declarations may stand before BEGIN there
            awaitsBegin_ = true;
            EnterBody();
        } else if (head_ == Head::Function ? OpensBlock(token) || token.IsWord("return")
                                           : !IsCharacteristic(token)) {
            EnterBodyWith(token);
        }
    }

    static bool IsCharacteristic(const Token& token) {
        return IsAnyWord(token, {"comment", "language", "sql", "not", "deterministic", "contains", "no",
                                 "reads", "modifies", "data", "security", "definer", "invoker"});
    }

    void ReadBody(const Token& token) {
        if (inHandler_) {
            if (IsInHandlerHead(token)) return;
            BeginStatement();
        }
        const bool isFirst = std::exchange(atStart_, false);
        const bool isBehindFirst = std::exchange(isBehindFirst_, isFirst && token.IsName());
        if (token.kind != Token::Kind::Word) {
            atStart_ = token.IsSymbol(':') && isBehindFirst;  // behind a label
        } else if (isFirst || (inRoutineOfPackage_ && token.IsWord("begin"))) {
            ReadStart(token);
        } else {
            ReadOn(token);
        }
    }

    // DECLARE ... HANDLER FOR condition, condition: the handler's statement follows.
    bool IsInHandlerHead(const Token& token) const {
        return IsAnyWord(before_, {"handler", "for"}) || before_.IsSymbol(',') || token.IsSymbol(',') ||
               token.kind == Token::Kind::String || IsAnyWord(token, {"value", "found"});
    }

    // The first word of a statement in a body.
    void ReadStart(const Token& token) {
        inRoutineOfPackage_ = false;
        if (OpensBlock(token)) {
            ++blocks_;
            awaitsBegin_ = false;
            atStart_ = IsAnyWord(token, {"begin", "loop", "repeat"});
            inControl_ = !atStart_;
        } else if (token.IsWord("end")) {
            blocks_ = std::max(blocks_ - 1, 0);
        } else if (IsAnyWord(token, {"else", "not", "atomic", "as", "is"})) {
            atStart_ = true;
        } else {
            inControl_ = IsAnyWord(token, {"elseif", "when"});
            inUntil_ = token.IsWord("until");
            isDeclaring_ = token.IsWord("declare");
            inRoutineOfPackage_ = inPackage_ && IsAnyWord(token, {"procedure", "function"});
        }
    }

    // A later word of a statement in a body.
    void ReadOn(const Token& token) {
        if (token.IsWord("case")) {
            ++cases_;
        } else if (token.IsWord("end")) {
            if (cases_ > 0) {
                --cases_;
            } else if (std::exchange(inUntil_, false)) {
                blocks_ = std::max(blocks_ - 1, 0);
            }
        } else if (isDeclaring_ && token.IsWord("handler")) {
            inHandler_ = true;
        } else if (cases_ == 0 && inControl_ && IsAnyWord(token, {"then", "do"})) {
            inControl_ = false;
            atStart_ = true;
        } else if (inRoutineOfPackage_ && IsAnyWord(token, {"as", "is"})) {
            atStart_ = true;
        }
    }

    Head head_ = Head::First;
    Head type_ = Head::First;  // what is created
    Token before_;
    int brackets_ = 0;
    int blocks_ = 0;
    int cases_ = 0;                    // expressions
    bool isPlain_ = false;             // it has no body
    bool inDefiner_ = false;           // the name of a user
    bool inBody_ = false;              // behind the head
    bool inPackage_ = false;           // routines are declared in it
    bool awaitsBegin_ = false;         // between AS and BEGIN
    bool atStart_ = false;             // a statement may begin
    bool isBehindFirst_ = false;       // behind what may be a label
    bool inControl_ = false;           // before THEN or DO
    bool inUntil_ = false;             // before the END of REPEAT
    bool isDeclaring_ = false;         // in DECLARE
    bool inHandler_ = false;           // in the conditions of a handler
    bool inRoutineOfPackage_ = false;  // in its head
};

template <typename Statement>
ScriptStatement Read(std::string_view script, std::size_t position, Dialect dialect) {
    Lexer lexer(script, dialect, position);
    auto token = lexer.Next();
    auto begin = position;
    for (; token.IsSymbol(';') && !token.isConditional; token = lexer.Next()) begin = token.End();
    if (token.IsEnd()) return {{}, script.size()};
    Statement statement;
    while (!token.IsEnd() && !statement.EndsAt(token)) token = lexer.Next();
    begin = std::min(script.find_first_not_of(kBlanks, begin), token.position);
    auto text = script.substr(begin, token.position - begin);
    text = text.substr(0, text.find_last_not_of(kBlanks) + 1);
    return {text, token.End()};
}

}  // namespace

ScriptStatement NextStatement(std::string_view script, std::size_t position, Dialect dialect) {
    position = std::min(position, script.size());
    switch (dialect) {
        case Dialect::Sqlite:
            return Read<SqliteStatement>(script, position, dialect);
        case Dialect::PostgreSql:
            return Read<PostgreSqlStatement>(script, position, dialect);
        case Dialect::MariaDb:
            return Read<MariaDbStatement>(script, position, dialect);
        case Dialect::Access:
            return Read<PlainStatement>(script, position, dialect);
        case Dialect::SqlServer:
        case Dialect::Generic:
            break;
    }
    return Read<WholeScript>(script, position, dialect);
}

}  // namespace halvtiv::sql
