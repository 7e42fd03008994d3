#include "formats.hpp"

#include "platform/streams.hpp"

namespace halvtiv::cli {
namespace {

Format ChosenFormat(const Options& options) {
    if (options.format) return *options.format;
    return !options.output && platform::OutputIsTerminal() ? Format::Table : Format::Xml;
}

}  // namespace

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

}  // namespace halvtiv::cli
