// One row by its key, beside a trip by hand: the request read, a prepared statement stepped and reset, text
// appended.

#include <benchmark/benchmark.h>

#include <charconv>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr std::string_view kBuiltIn =
    "<function name=\"public.getdata\" guid=\"0A1B2C3D4E5F60718293A4B5C6D7E8F9\">"
    "<param name=\"sql\" value=\"select * from t where id = 4711\" extra=\"\"/>"
    "<param name=\"datafolder\" value=\"\" extra=\"\"/><param name=\"caller\" value=\"benchmark\" "
    "extra=\"\"/>"
    "</function>";
constexpr std::string_view kDefined =
    "<function name=\"bench.one\" guid=\"0A1B2C3D4E5F60718293A4B5C6D7E8F9\">"
    "<param name=\"id\" value=\"4711\"/><param name=\"code\" value=\"C4711\"/></function>";
constexpr std::string_view kDefinition =
    "<functions><functiondef name=\"bench.one\"><paramdef>"
    "<param name=\"id\" type=\"integer\" value=\"key\"/>"
    "<param name=\"code\" type=\"text\" value=\"code\" extra=\"quote\"/></paramdef>"
    "<function name=\"public.getdata\"><param name=\"sql\""
    " value=\"select * from t where id = %id% and code = '%code%'\"/></function>"
    "</functiondef></functions>";

const SampleTable& Table() {
    static const SampleTable table(10000);
    return table;
}

void AppendEscaped(std::string& xml, std::string_view text) {
    for (const char byte : text) {
        switch (byte) {
            case '&':
                xml += "&amp;";
                break;
            case '<':
                xml += "&lt;";
                break;
            case '>':
                xml += "&gt;";
                break;
            case '"':
                xml += "&quot;";
                break;
            default:
                xml += byte;
        }
    }
}

template <typename Number>
void AppendNumber(std::string& xml, Number number) {
    char digits[24];
    xml.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

std::string_view TextOf(sqlite3_stmt* row, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
    return {text == nullptr ? "" : text, static_cast<std::size_t>(sqlite3_column_bytes(row, column))};
}

std::string RunByHand(sqlite3_stmt* row, std::string_view request) {
    pugi::xml_document document;
    document.load_buffer(request.data(), request.size());
    const pugi::xml_node call = document.document_element();
    std::string xml = "<result><data guid=\"";
    AppendEscaped(xml, call.attribute("guid").value());
    xml +=
        "\" type=\"data\"><row index=\"0\"><col name=\"id\" value=\"integer\"/><col name=\"amount\""
        " value=\"integer\"/><col name=\"price\" value=\"double\"/><col name=\"code\" value=\"text\"/>"
        "<col name=\"note\" value=\"text\"/><col name=\"made\" value=\"datetime\"/>"
        "<col name=\"remark\" value=\"text\"/><col name=\"kind\" value=\"integer\"/></row>";
    for (std::int64_t index = 1; sqlite3_step(row) == SQLITE_ROW; ++index) {
        xml += "<row index=\"";
        AppendNumber(xml, index);
        xml += "\"><col name=\"id\" value=\"";
        AppendNumber(xml, sqlite3_column_int64(row, 0));
        xml += "\"/><col name=\"amount\" value=\"";
        AppendNumber(xml, sqlite3_column_int64(row, 1));
        xml += "\"/><col name=\"price\" value=\"";
        AppendNumber(xml, sqlite3_column_double(row, 2));
        xml += "\"/><col name=\"code\" value=\"";
        AppendEscaped(xml, TextOf(row, 3));
        xml += "\"/><col name=\"note\" value=\"";
        AppendEscaped(xml, TextOf(row, 4));
        xml += "\"/><col name=\"made\" value=\"";
        AppendEscaped(xml, TextOf(row, 5));
        xml += "\"/><col name=\"remark\" value=\"";
        AppendEscaped(xml, TextOf(row, 6));
        xml += "\"/><col name=\"kind\" value=\"";
        AppendNumber(xml, sqlite3_column_int64(row, 7));
        xml += "\"/></row>";
    }
    sqlite3_reset(row);
    xml += "</data></result>";
    return xml;
}

std::string RunByHandOnce() {
    const SampleTable::Database database = Table().Open();
    const Statement statement = Prepare(database.get(), "select * from t where id = 4711");
    return RunByHand(statement.get(), kBuiltIn);
}

void SmallByHand(benchmark::State& state) {
    const SampleTable::Database database = Table().Open();
    const Statement statement = Prepare(database.get(), "select * from t where id = 4711");
    for (auto _ : state) benchmark::DoNotOptimize(RunByHand(statement.get(), kBuiltIn));
}

void SmallEngine(benchmark::State& state, std::string_view request) {
    const auto engine = Table().Engine();
    std::string log, result;
    Require(engine->LoadFunctionDefsXml(kDefinition, log), engine->GetLastError());
    engine->RunFunction(request, result);
    Require(result == RunByHandOnce(), "the engine's document differs from the one by hand: " + result);
    for (auto _ : state) {
        engine->RunFunction(request, result);
        benchmark::DoNotOptimize(result);
    }
}

BENCHMARK(SmallByHand)->Name("small/by hand");
BENCHMARK_CAPTURE(SmallEngine, built_in, kBuiltIn)->Name("small/built-in");
BENCHMARK_CAPTURE(SmallEngine, defined, kDefined)->Name("small/defined");

const Promised kDirect({"one row, built-in, against a trip by hand", "small/built-in", "small/by hand", "",
                        2.0});
const Promised kCompiled({"one row, defined function, against the same", "small/defined", "small/by hand", "",
                          3.0});

}  // namespace

}  // namespace halvtiv::bench
