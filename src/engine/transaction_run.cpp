#include "engine/transaction_run.hpp"

#include <cstdint>
#include <optional>

#include <halvtiv/function_result.hpp>
#include <halvtiv/transaction_call.hpp>

#include "documents/result_hand_over.hpp"
#include "engine/dispatcher.hpp"
#include "foundation/guarded.hpp"

namespace halvtiv {

namespace {

class TransactionRun {
public:
    TransactionRun(EngineState& engine, std::string& resultXml) : engine_(engine), resultXml_(resultXml) {}

    bool Run(std::string_view transactionXml) {
        Succeeds(
            engine_.errors,
            [&] {
                Parse(transactionXml);
                Begin();
                for (std::int32_t index = 1; index <= transaction_.FunctionCount(); ++index) {
                    if (!RunCall(*transaction_.GetFunction(index))) return Abandon();
                }
                Commit();
                done_ = true;  // a result that cannot be saved is the engine's last error, no failed run
                const bool isSaved = ResultHandOver::Save(merged_, resultXml_);
                if (!isSaved && engine_.errors.Number() == 0) merged_.RaiseLastError();
            },
            [&] {
                if (!done_) Abandon();
            });
        return done_;
    }

private:
    void Parse(std::string_view transactionXml) {
        const bool parsed = transaction_.Parse(transactionXml);
        resultXml_.clear();  // not before: the caller may give one text for both
        if (!parsed) transaction_.RaiseLastError();
        SignAsTransaction(merged_);
    }

    void SignAsTransaction(ZorbFunctionResult& result) const {
        result.ResultGUID(transaction_.TransGUID());
        result.ResultName(transaction_.TransName());
    }

    /// Without a connection nothing can begin: why is then the engine's last error, and the first call's.
    void Begin() {
        connected_ = engine_.core.IsConnectionOK() || engine_.ReConnect({});
        if (connected_ && !engine_.core.BeginTrans()) engine_.core.RaiseLastError();
    }

    /// Whether the call succeeded; its result is merged then, and otherwise stays the current one.
    bool RunCall(ZorbFunctionCall& call) {
        ZorbFunctionResult& result = current_.emplace();
        SignAsTransaction(result);
        CompileCall(engine_, call);
        if (!connected_) {
            ReportError(engine_, call, result);
            return false;
        }
        if (!ExecuteBuiltInFunction(engine_, call, result, RunsIn::Transaction)) return false;
        if (!ResultHandOver::Merge(merged_, result)) merged_.RaiseLastError();
        current_.reset();
        return true;
    }

    /// A commit that fails does not make the run fail, but is the engine's last error, with words of its own:
    /// the answer is the same as after a commit whose result cannot be saved.
    void Commit() {
        if (!connected_) return;  // nor were there calls
        Succeeds(engine_.errors, [&] {
            if (!engine_.core.CommitTrans()) engine_.core.RaiseLastError();
        });
        if (engine_.errors.Number() != 0) engine_.errors.Preface("The commit failed: ");
    }

    /// Undoes everything; what is left is the result of the call that was running.
    void Abandon() {
        engine_.core.RollbackTrans();
        resultXml_.clear();
        if (current_) ResultHandOver::Save(*current_, resultXml_);
    }

    EngineState& engine_;
    std::string& resultXml_;
    ZorbTransactionCall transaction_;
    ZorbFunctionResult merged_;
    std::optional<ZorbFunctionResult> current_;  // of the call that runs
    bool connected_ = false;
    bool done_ = false;
};

}  // namespace

bool RunTransaction(EngineState& engine, std::string_view transactionXml, std::string& resultXml) {
    const auto underWay = engine.core.BeginCall();
    bool done = false;
    Succeeds(
        engine.errors, [&] { done = TransactionRun(engine, resultXml).Run(transactionXml); },
        [&] { resultXml.clear(); });
    return done;
}

}  // namespace halvtiv
