#include "run_command.hpp"

#include <halvtiv/halvtiv.hpp>
#include <iostream>

#include "connection.hpp"
#include "defs_command.hpp"
#include "formats.hpp"
#include "output.hpp"
#include "platform/files.hpp"
#include "platform/streams.hpp"
#include "platform/xml_reader.hpp"
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

/// The name of the root element; "" when the text is no XML.
std::string RootElement(std::string_view xml) {
    RootName root;
    return platform::ReadXmlText(xml, root) ? root.name : std::string();
}

Format ChosenFormat(const Options& options) {
    if (options.format) return *options.format;
    return !options.output && platform::OutputIsTerminal() ? Format::Table : Format::Xml;
}

void WriteResult(const Options& options, const std::string& resultXml, Output& output) {
    // Without a text there was no result to save; the reason is the engine's last error.
    if (!resultXml.empty()) {
        switch (ChosenFormat(options)) {
            case Format::Xml:
                output.Write(resultXml);
                break;
            case Format::Table:
                WriteTable(resultXml, output);
                break;
            case Format::Csv:
                WriteCsv(resultXml, output);
                break;
            case Format::Json:
                WriteJson(resultXml, output);
                break;
        }
    }
    output.Finish();
}

/// Loads the files of `--defs`; false when a definition failed, which does not keep the others from running.
bool LoadDefinitions(ZorbDbAccessEngine& engine, const std::vector<std::string>& files) {
    bool complete = true;
    for (const std::string& file : files) {
        const LoadReport report = LoadDefinitionFile(engine, file);
        if (!report.loaded) throw CommandError(ExitStatus::NotRun, report.text);
        if (report.failed > 0) {
            std::cerr << file << ": " << report.text;
            complete = false;
        }
    }
    return complete;
}

ExitStatus Run(const Options& options, const std::string& requestXml) {
    const std::string root = RootElement(requestXml);
    if (root == "transaction") {
        throw CommandError(ExitStatus::NotRun, "Transactions are not available in this version.");
    }
    Output output(options.output);
    ZorbDbAccessEngine engine;
    bool isGood = LoadDefinitions(engine, options.definitionFiles);
    // What cannot be read is left to the engine, which says why, without opening a database for it.
    if (!root.empty()) Connect(engine, options.connection);

    std::string resultXml;
    if (!engine.RunFunction(requestXml, resultXml)) {
        throw CommandError(ExitStatus::NotRun, engine.GetLastError());
    }
    if (const std::string reason = engine.GetLastError(); !reason.empty()) {
        std::cerr << reason << '\n';
        isGood = false;
    }
    if (HoldsErrorEntry(resultXml)) isGood = false;
    if (const std::size_t marked = CountErrorCells(resultXml); marked > 0) {
        std::cerr
            << marked << (marked == 1 ? " cell is" : " cells are")
            << " marked as an error: the file was not written, or the text holds what XML cannot carry\n";
    }
    WriteResult(options, resultXml, output);
    return isGood ? ExitStatus::Done : ExitStatus::Failed;
}

[[noreturn]] void RaiseLastError(const ZorbFunctionCall& call) {
    throw CommandError(ExitStatus::NotRun, call.GetLastError());
}

/// The request that the options of `call` describe.
std::string BuildRequest(const Options& options) {
    ZorbFunctionCall call;
    call.FunctionName(options.function);
    for (const auto& [name, value] : options.parameters) {
        if (call.AddParam(name, value) < 0) RaiseLastError(call);
    }
    if (!options.sets.empty()) {
        const std::int32_t block = call.AddDataParam("data");
        for (const SetOption& set : options.sets) {
            const std::int32_t type = set.isFile ? QORV_COLUMN_FILE : QORV_COLUMN_DATA;
            if (call.AddSubParam(block, set.column, set.value, type) < 0) RaiseLastError(call);
        }
    }
    std::string xml;
    if (!call.Save(xml)) RaiseLastError(call);
    return xml;
}

}  // namespace

ExitStatus RunRequestFile(const Options& options) {
    std::string requestXml;
    const std::string bytes =
        options.request == "-" ? platform::ReadStandardInput() : platform::ReadWholeFile(options.request);
    if (!platform::DecodeXmlFileBytes(bytes, requestXml)) {
        throw CommandError(ExitStatus::NotRun, "The request is not in the encoding that it declares.");
    }
    return Run(options, requestXml);
}

ExitStatus RunCall(const Options& options) {
    return Run(options, BuildRequest(options));
}

}  // namespace halvtiv::cli
