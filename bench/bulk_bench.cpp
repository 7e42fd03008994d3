// A whole table through `RunFunction`, beside a loop by hand at its best.

#include <benchmark/benchmark.h>

#include <string>
#include <string_view>

#include "process_memory.hpp"
#include "ratios.hpp"
#include "sample_table.hpp"
#include "xml_by_hand.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kRows = 200000;
constexpr std::string_view kRequest =
    "<function name=\"public.getdata\" guid=\"0A1B2C3D4E5F60718293A4B5C6D7E8F9\">"
    "<param name=\"sql\" value=\"select * from t\"/></function>";

const SampleTable& Table() {
    static const SampleTable table(kRows);
    return table;
}

std::string RunByHand(sqlite3* database) {
    std::string result;
    const Statement statement = Prepare(database, "select * from t");
    {
        BlockWriter writer([&result](std::string_view block) { result.append(block); });
        writer.Put("<result><data guid=\"0A1B2C3D4E5F60718293A4B5C6D7E8F9\" type=\"data\">");
        WriteRowsByHand(statement.get(), writer);
        writer.Put("</data></result>");
    }
    return result;
}

void BulkByHand(benchmark::State& state) {
    const SampleTable::Database database = Table().Open();
    for (auto _ : state) benchmark::DoNotOptimize(RunByHand(database.get()));
    state.SetItemsProcessed(state.iterations() * kRows);
}

void BulkEngine(benchmark::State& state) {
    const auto engine = Table().Engine();
    for (auto _ : state) {
        std::string result;
        engine->RunFunction(kRequest, result);
        benchmark::DoNotOptimize(result);
    }
    state.SetItemsProcessed(state.iterations() * kRows);

    std::string result;
    engine->RunFunction(kRequest, result);
    Require(result == RunByHand(Table().Open().get()), "the engine's document differs from the loop's");
    const auto size = static_cast<double>(result.size());
    result = std::string();
    const std::int64_t peak = PeakOf([&] { engine->RunFunction(kRequest, result); });
    state.counters["text_MiB"] = size / (1 << 20);
    state.counters["peak_per_text"] = static_cast<double>(peak) / size;
}

BENCHMARK(BulkByHand)->Name("bulk/by hand")->Unit(benchmark::kMillisecond);
BENCHMARK(BulkEngine)->Name("bulk/engine")->Unit(benchmark::kMillisecond);

const Promised kTime({"200,000 x 8 rows, time against the loop by hand", "bulk/engine", "bulk/by hand", "",
                      1.0});
const Promised kMemory({"200,000 x 8 rows, peak memory against the text", "bulk/engine", "", "peak_per_text",
                        1.3});

}  // namespace

}  // namespace halvtiv::bench
