// Documents of the smallest pieces there are: what reading them takes, against their text.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>

#include "process_memory.hpp"
#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr std::size_t kText = 8 << 20;

std::string Repeated(const std::string& start, const std::string& piece, const std::string& end) {
    std::string text = start;
    text.reserve(kText + 64);
    while (text.size() < kText) text += piece;
    return text + end;
}

/// The most that one of the documents takes for each byte of its text.
template <typename Read>
double WorstOf(std::initializer_list<std::string> texts, Read&& read) {
    double worst = 0;
    for (const std::string& text : texts) {
        const std::int64_t peak = PeakOf([&] { Require(read(text), "read a document"); });
        worst = std::max(worst, static_cast<double>(peak) / static_cast<double>(text.size()));
    }
    return worst;
}

void ReadTinyPieces(benchmark::State& state) {
    double worst = 0;
    for (auto _ : state) {
        const double results =
            WorstOf({Repeated("<r>", "<data/>", "</r>"), Repeated("<r>", "<data a=''/>", "</r>"),
                     Repeated("<r>", "x<a/>", "</r>")},
                    [](const std::string& text) { return ZorbFunctionResult().Parse(text); });
        const double calls = WorstOf({Repeated("<f>", "<param name='a'/>", "</f>"),
                                      Repeated("<f><param name='a'>", "<col/>", "</param></f>")},
                                     [](const std::string& text) { return ZorbFunctionCall().Parse(text); });
        const double items =
            WorstOf({Repeated("<r>", "<c name='a'/>", "</r>"), Repeated("<r>", "x<a/>", "</r>")},
                    [](const std::string& text) { return ZorbColumnDataItems().Parse(text, "c"); });
        const double definitions =
            WorstOf({Repeated("<f>", "<functiondef name='a'/>", "</f>"), Repeated("<f>", "x<a/>", "</f>")},
                    [](const std::string& text) {
                        std::string report;
                        return ZorbDbAccessEngine().LoadFunctionDefsXml(text, report);
                    });
        worst = std::max({worst, results, calls, items, definitions});
    }
    state.counters["peak_per_text"] = worst;
}

BENCHMARK(ReadTinyPieces)->Name("documents/tiny pieces")->Unit(benchmark::kMillisecond)->Iterations(1);

const Promised kMemory({"documents of tiny pieces, peak memory against the text", "documents/tiny pieces", "",
                        "peak_per_text", 32.0});

}  // namespace

}  // namespace halvtiv::bench
