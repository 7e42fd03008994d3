#include "run_command.hpp"

#include <halvtiv/halvtiv.hpp>
#include <iostream>
#include <map>
#include <utility>

#include "call_request.hpp"
#include "connection.hpp"
#include "defs_command.hpp"
#include "export_request.hpp"
#include "formats.hpp"
#include "output.hpp"
#include "platform/files.hpp"
#include "platform/interrupt.hpp"
#include "platform/keywords.hpp"
#include "platform/streams.hpp"
#include "platform/xml_reader.hpp"
#include "progress.hpp"
#include "result_reader.hpp"

namespace halvtiv::cli {
namespace {

/// Remembers the name of the outermost element.
class RootName : public platform::XmlHandler {
public:
    std::string name;

    void StartElement(std::string_view element, std::span<const platform::XmlAttribute>) override {
        if (depth_ == 0) name = element;
        ++depth_;
    }
    void EndElement(std::string_view) override { --depth_; }
    void Text(std::string_view) override {}
    void Comment(std::string_view) override {}
    void ProcessingInstruction(std::string_view, std::string_view) override {}

private:
    int depth_ = 0;
};

/// What a request looks like before it is run.
struct RequestShape {
    bool isXml = false;
    bool isTransaction = false;
};

RequestShape LookAt(std::string_view requestXml) {
    RootName root;
    RequestShape shape;
    shape.isXml = platform::ReadXmlText(requestXml, root);
    shape.isTransaction = root.name == "transaction";
    return shape;
}

/// Loads the files of `--defs`; false when a definition failed, which does not keep the others from running.
/// exported: null without an export.
bool LoadDefinitions(ZorbDbAccessEngine& engine, const std::vector<std::string>& files,
                     ExportedFunction* exported) {
    bool complete = true;
    for (const std::string& file : files) {
        const LoadReport report = LoadDefinitionFile(engine, file);
        if (!report.loaded) throw CommandError(ExitStatus::NotRun, report.text);
        if (report.failed > 0) {
            std::cerr << platform::Shown(file) << ": " << report.text;
            complete = false;
        }
        if (exported != nullptr) exported->TakeDefinitions(engine, report.xml);
    }
    return complete;
}

/// Whether the engine can make a call of one of its own functions of the transaction's first call. Without a
/// connection, which is gone after this, nothing is run.
bool FirstCallCompiles(ZorbDbAccessEngine& engine, const std::string& transactionXml) {
    ZorbTransactionCall transaction;
    transaction.Parse(transactionXml);
    const ZorbFunctionCallPtr first = transaction.GetFunction(1);
    std::string callXml, ignored;
    if (!first || !first->Save(callXml)) return true;
    engine.DisConnect();
    return engine.RunFunction(callXml, ignored);
}

/// The texts of the function calls in a request.
std::vector<std::string> CallsIn(const std::string& requestXml, const RequestShape& shape) {
    if (!shape.isTransaction) return {requestXml};
    std::vector<std::string> calls;
    ZorbTransactionCall transaction;
    transaction.Parse(requestXml);
    for (std::int32_t index = 1; index <= transaction.FunctionCount(); ++index) {
        const ZorbFunctionCallPtr call = transaction.GetFunction(index);
        if (std::string xml; call && call->Save(xml)) calls.push_back(std::move(xml));
    }
    return calls;
}

std::string FunctionName(const std::string& callXml) {
    ZorbFunctionCall call;
    call.Parse(callXml);
    return call.FunctionName();
}

/// Says which data items the engine is going to pass over; raises `CommandError` (not run) for them where
/// `--strict` is given. A call whose table an earlier call makes is left alone.
void ReportUnusedItems(ZorbDbAccessEngine& engine, const Options& options, const std::string& requestXml,
                       const RequestShape& shape) {
    struct Found {
        UnusedItem item;
        std::size_t count = 0;
    };
    std::vector<Found> found;                                          // in the order of the calls
    std::map<std::pair<std::string, std::string>, std::size_t> index;  // of a function and an item
    for (const std::string& call : CallsIn(requestXml, shape)) {
        std::vector<UnusedItem> items;
        if (!engine.FindUnusedItems(call, items)) continue;
        const std::string function = FunctionName(call);
        for (const UnusedItem& item : items) {
            const auto [at, isNew] = index.try_emplace({function, item.Name}, found.size());
            if (isNew) found.push_back({item});
            ++found[at->second].count;
        }
    }
    std::string report;
    for (const auto& [item, count] : found) {
        report += "The item \"" + item.Name + "\" names no column that is written";
        if (count > 1) report += " (" + std::to_string(count) + " times)";
        report += item.Nearest.empty() ? ".\n" : "; did you mean \"" + item.Nearest + "\"?\n";
    }
    if (report.empty()) return;
    if (options.strict) throw CommandError(ExitStatus::NotRun, report);
    std::cerr << report;
}

/// What the engine made of a request.
struct Answer {
    bool isDone = false;
    std::string resultXml;
    std::string reason;  // the engine's last error
    bool isInterrupted = false;
};

/// Raises `CommandError` when nothing was run.
Answer RunRequest(ZorbDbAccessEngine& engine, const std::string& requestXml, const RequestShape& shape) {
    const auto progress = std::make_shared<ProgressLine>();
    AddExportersAndProgress(engine, progress);
    Answer answer;
    const platform::InterruptWatch interrupts([&engine] { engine.Cancel(); });
    answer.isDone = shape.isTransaction ? engine.RunTransaction(requestXml, answer.resultXml)
                                        : engine.RunFunction(requestXml, answer.resultXml);
    progress->Clear();
    answer.reason = engine.GetLastError();
    answer.isInterrupted = interrupts.WasInterrupted() && !answer.reason.empty();
    if (answer.isDone) return answer;
    // A transaction ends with a result that has no error entry where a call could not be compiled.
    const bool isUnknownCall = !answer.resultXml.empty() && !HoldsErrorEntry(answer.resultXml);
    if (!shape.isTransaction || !shape.isXml || (isUnknownCall && !FirstCallCompiles(engine, requestXml))) {
        throw CommandError(ExitStatus::NotRun, answer.reason);
    }
    return answer;
}

ExitStatus Run(const Options& options, const std::string& requestXml, ExportedFunction* exported = nullptr) {
    const RequestShape shape = LookAt(requestXml);
    Output output(options.output);
    ZorbDbAccessEngine engine;
    bool isGood = LoadDefinitions(engine, options.definitionFiles, exported);
    // What cannot be read is left to the engine, which says why, without opening a database for it.
    if (shape.isXml) Connect(engine, options.connection, options.output);
    if (shape.isXml) ReportUnusedItems(engine, options, requestXml, shape);
    if (exported != nullptr) exported->RequireExportable(engine.GetDatabaseConnection()->DatabaseName());

    const auto [isDone, resultXml, reason, isInterrupted] = RunRequest(engine, requestXml, shape);
    isGood = isGood && isDone;
    if (!reason.empty()) {
        std::cerr << reason << '\n';
        constexpr std::string_view kNoObject = "(ERR#: 91)";
        if (exported != nullptr && reason.ends_with(kNoObject)) {
            std::cerr << "The query gives nothing to export, which takes a result of two columns or more.\n";
        }
        isGood = false;
    }
    if (HoldsErrorEntry(resultXml)) isGood = false;
    if (const std::size_t marked = CountErrorCells(resultXml); marked > 0) {
        std::cerr
            << marked << (marked == 1 ? " cell is" : " cells are")
            << " marked as an error: the file was not written, or the text holds what XML cannot carry\n";
    }
    WriteResult(options, resultXml, output);
    if (isInterrupted) return ExitStatus::Interrupted;
    return isGood ? ExitStatus::Done : ExitStatus::Failed;
}

std::string ReadRequest(const std::string& path) {
    std::string requestXml;
    const std::string bytes = path == "-" ? platform::ReadStandardInput() : platform::ReadWholeFile(path);
    if (!platform::DecodeXmlFileBytes(bytes, requestXml)) {
        throw CommandError(ExitStatus::NotRun, "The request is not in the encoding that it declares.");
    }
    return requestXml;
}

}  // namespace

ExitStatus RunRequestFile(const Options& options) {
    return Run(options, ReadRequest(options.request));
}

ExitStatus RunCall(const Options& options) {
    return Run(options, BuildRequest(options));
}

ExitStatus RunExport(const Options& options) {
    const std::string requestXml =
        options.request.empty() ? BuildRequest(options) : ReadRequest(options.request);
    if (LookAt(requestXml).isTransaction) {
        throw CommandError(ExitStatus::NotRun, "An export is of one call, not of a transaction.");
    }
    ExportedFunction exported(options, requestXml);
    return Run(options, exported.RequestXml(), &exported);
}

}  // namespace halvtiv::cli
