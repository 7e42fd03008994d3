// A call of the last of many definitions, beside a call of the first.

#include <benchmark/benchmark.h>

#include <string>

#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kDefinitions = 10000;

std::string Definitions() {
    std::string xml = "<functions>";
    for (int number = 1; number <= kDefinitions; ++number) {
        xml += "<functiondef name=\"Bench.Function." + std::to_string(number) +
               "\"><paramdef><param name=\"id\" type=\"integer\" value=\"key\"/></paramdef>"
               "<function name=\"public.getdata\">"
               "<param name=\"sql\" value=\"select code from t where id = %id%\"/></function></functiondef>";
    }
    return xml + "</functions>";
}

struct Loaded {
    SampleTable table{1000};
    std::unique_ptr<ZorbDbAccessEngine> engine = table.Engine();
    Loaded() {
        std::string log;
        Require(engine->LoadFunctionDefsXml(Definitions(), log), engine->GetLastError());
        Require(log.find("(0 failed, 10000 new added and 0 updated)") != std::string::npos, log);
    }
};

void Call(benchmark::State& state, int number) {
    static const Loaded loaded;
    const std::string request = "<function name=\"Bench.Function." + std::to_string(number) +
                                "\"><param name=\"id\" value=\"7\"/></function>";
    std::string result;
    for (auto _ : state) {
        Require(loaded.engine->RunFunction(request, result), loaded.engine->GetLastError());
        benchmark::DoNotOptimize(result);
    }
}

BENCHMARK_CAPTURE(Call, first, 1)->Name("definitions/first");
BENCHMARK_CAPTURE(Call, last, kDefinitions)->Name("definitions/last");

const Promised kIndexed({"10,000 definitions: a call of the last against the first", "definitions/last",
                         "definitions/first", "", 1.2});

}  // namespace

}  // namespace halvtiv::bench
