// A parsed result read row by row, five times the rows beside one.

#include <benchmark/benchmark.h>

#include <string>

#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kFewRows = 20000;
constexpr int kManyRows = 100000;

std::string ResultOf(int rows) {
    const SampleTable table(rows);
    std::string result;
    Require(table.Engine()->RunFunction("<function name='public.getdata' guid='G'><param name='sql' "
                                        "value='select id, code from t'/></function>",
                                        result),
            "read the table");
    return result;
}

void Read(benchmark::State& state, int rows) {
    const std::string xml = ResultOf(rows);
    ZorbFunctionResult result;
    for (auto _ : state) {
        Require(result.Parse(xml), result.GetLastError());
        for (int row = 1; row <= rows; ++row) benchmark::DoNotOptimize(result.GetResultDataItem("G", row));
    }
    Require(result.GetResultDataItem("G", rows)->GetItemValueByName("id") == std::to_string(rows),
            "the last row");
    state.SetItemsProcessed(state.iterations() * rows);
}

BENCHMARK_CAPTURE(Read, few, kFewRows)->Name("reading/20,000 rows")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(Read, many, kManyRows)->Name("reading/100,000 rows")->Unit(benchmark::kMillisecond);

const Promised kLinear({"100,000 rows read one by one against 20,000", "reading/100,000 rows",
                        "reading/20,000 rows", "", 8.0});

}  // namespace

}  // namespace halvtiv::bench
