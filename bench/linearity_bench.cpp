// Every member of the document classes whose work grows with what the document holds: the time of an item
// among four times as many, beside the time of an item among fewer.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include <halvtiv/halvtiv.hpp>

#include "ratios.hpp"
#include "sample_table.hpp"

namespace halvtiv::bench {

namespace {

constexpr int kFew = 10000;

/// Work with n items, prepared outside of what is measured.
using Work = std::function<std::function<bool()>(int n)>;

std::string Repeated(int n, const std::string& start, const std::function<std::string(int)>& piece,
                     const std::string& end) {
    std::string text = start;
    for (int item = 1; item <= n; ++item) text += piece(item);
    return text + end;
}

std::string Number(int item) {
    return std::to_string(item);
}

std::string Name(int item) {
    return "name" + Number(item);
}

/// A member that is called once an item, on an object that `fill` has prepared.
template <typename Object, typename Fill, typename Call>
Work Each(Fill fill, Call call) {
    return [fill, call](int n) -> std::function<bool()> {
        auto object = std::make_shared<Object>();
        fill(*object, n);
        return [object, call, n] {
            bool done = true;
            for (int item = 1; item <= n; ++item) done = call(*object, item) && done;
            return done;
        };
    };
}

/// A member that is called once for all items.
template <typename Object, typename Fill, typename Call>
Work Whole(Fill fill, Call call) {
    return [fill, call](int n) -> std::function<bool()> {
        auto object = std::make_shared<Object>();
        fill(*object, n);
        return [object, call] { return call(*object); };
    };
}

void FillItems(ZorbColumnDataItems& items, int n) {
    for (int item = 1; item <= n; ++item) items.Add(Name(item), "v", 0, {}, Name(item));
}

void FillCall(ZorbFunctionCall& call, int n) {
    for (int item = 1; item <= n; ++item) call.AddParam(Name(item), "v");
    for (int item = 1; item <= n; ++item) call.AddSubParam(call.AddDataParam(Name(item)), "c", "v");
}

void FillTransaction(ZorbTransactionCall& transaction, int n) {
    for (int item = 1; item <= n; ++item)
        transaction.AddFunctionXml("<function name='f' guid='" + Name(item) + "'/>");
}

void FillEntries(ZorbFunctionResult& result, int n) {
    for (int item = 1; item <= n; ++item) result.AddFunctionResult_Info(Name(item), item);
}

void FillRows(ZorbFunctionResult& result, int n) {
    const auto row = [](int item) {
        return "<row index='" + Number(item) + "'><col name='c' value='v'/></row>";
    };
    Require(result.Parse(
                Repeated(n, "<result><data guid='k' type='data'><row index='0'/>", row, "</data></result>")),
            result.GetLastError());
}

/// Rows of a result whose document was handed out and let go again.
void FillReleased(ZorbFunctionResult& result, int n) {
    FillRows(result, n);
    result.ResultXMLDOMDoc();
}

struct Defined {
    ZorbDbAccessEngine engine;
    std::string request, definitions;
};

/// A definition of n parameters, all in one text, and a call of it.
void FillDefinition(Defined& defined, int n) {
    const auto declared = [](int item) { return "<param name='" + Name(item) + "' type='integer'/>"; };
    const auto used = [](int item) { return "%" + Name(item) + "%,"; };
    const auto given = [](int item) { return "<param name='" + Name(item) + "' value='1'/>"; };
    defined.definitions = Repeated(n, "<d><functiondef name='f'><paramdef>", declared, "</paramdef>") +
                          Repeated(n, "<function name='public.getdata'><param name='sql' value='", used,
                                   "'/></function></functiondef></d>");
    defined.request = Repeated(n, "<function name='f' guid='k'>", given, "</function>");
    std::string log;
    Require(defined.engine.LoadFunctionDefsXml(defined.definitions, log), log);
}

void FillManyDefinitions(Defined& defined, int n) {
    const auto one = [](int item) {
        return "<functiondef name='" + Name(item) + "'><function name='public.getdata'/></functiondef>";
    };
    defined.definitions = Repeated(n, "<d>", one, "</d>");
}

const std::vector<std::pair<std::string, Work>>& Members() {
    using Items = ZorbColumnDataItems;
    using Call = ZorbFunctionCall;
    using Transaction = ZorbTransactionCall;
    using Result = ZorbFunctionResult;
    const auto nothing = [](auto&, int) {};
    std::string text;
    static const std::vector<std::pair<std::string, Work>> members{
        {"items.Add",
         Each<Items>(nothing,
                     [](Items& o, int i) { return o.Add(Name(i), "v", 0, {}, Name(i)) != nullptr; })},
        {"items.Item", Each<Items>(FillItems, [](Items& o, int i) { return o.Item(i) != nullptr; })},
        {"items.Item by key",
         Each<Items>(FillItems, [](Items& o, int i) { return i == 1 || o.Item(Name(i)) != nullptr; })},
        {"items.CopyFrom", Whole<Items>(FillItems, [](Items& o) { return Items().CopyFrom(o); })},
        {"items.Save and Parse", Whole<Items>(FillItems,
                                              [](Items& o) {
                                                  std::string xml, message;
                                                  return o.Save(xml, "r", "col", message) &&
                                                         o.Parse(xml, "col");
                                              })},
        {"items.RemoveItemByName",
         Whole<Items>(FillItems, [](Items& o) { return o.RemoveItemByName("none"), true; })},
        {"items.Remove, the last",
         Each<Items>(FillItems, [](Items& o, int) { return o.Remove(o.Count()), true; })},
        {"items.Reset", Whole<Items>(FillItems, [](Items& o) { return o.Reset(), true; })},
        {"call.AddParam", Each<Call>(nothing, [](Call& o, int i) { return o.AddParam(Name(i), "v") == i; })},
        {"call.GetParam and SetParam",
         Each<Call>(FillCall, [](Call& o, int i) { return o.SetParam(i, "w") && o.GetParam(i) == "w"; })},
        {"call.GetParamArray", Whole<Call>(FillCall,
                                           [](Call& o) {
                                               std::vector<std::string> values;
                                               return o.GetParamArray("name7", values) == 1;
                                           })},
        {"call.AddDataParam and AddSubParam",
         Each<Call>(nothing,
                    [](Call& o, int i) { return o.AddSubParam(o.AddDataParam(Name(i)), "c", "v") == 1; })},
        {"call.GetSubParam", Each<Call>(FillCall, [](Call& o, int i) { return o.GetSubParam(i, 1) == "v"; })},
        {"call.RemoveDataParam, the last",
         Each<Call>(FillCall, [](Call& o, int) { return o.RemoveDataParam(o.DataParamCount()); })},
        {"call.Save and Parse", Whole<Call>(FillCall,
                                            [](Call& o) {
                                                std::string xml;
                                                return o.Save(xml) && o.Parse(xml);
                                            })},
        {"transaction.AddFunctionXml",
         Each<Transaction>(nothing, [](Transaction& o,
                                       int) { return o.AddFunctionXml("<function name='f'/>") != nullptr; })},
        {"transaction.GetFunction",
         Each<Transaction>(FillTransaction,
                           [](Transaction& o, int i) { return o.GetFunction(i) != nullptr; })},
        {"transaction.Save and Parse", Whole<Transaction>(FillTransaction,
                                                          [](Transaction& o) {
                                                              std::string xml;
                                                              return o.Save(xml) && o.Parse(xml);
                                                          })},
        {"result.AddFunctionResult_Info",
         Each<Result>(nothing, [](Result& o, int i) { return o.AddFunctionResult_Info(Name(i), i); })},
        {"result.AddFunctionResult_Error, new",
         Each<Result>(nothing,
                      [](Result& o, int i) { return o.AddFunctionResult_Error(Name(i), -1, "d", "s"); })},
        {"result.AddFunctionResult_Error, replacing",
         Each<Result>(FillEntries,
                      [](Result& o, int i) { return o.AddFunctionResult_Error(Name(i), -1, "d", "s"); })},
        {"result.ChangeResultDataGUID",
         Each<Result>(FillEntries,
                      [](Result& o, int i) { return o.ChangeResultDataGUID(Name(i), "x" + Name(i)); })},
        {"the same, all to one key",
         Each<Result>(FillEntries, [](Result& o, int i) { return o.ChangeResultDataGUID(Name(i), "one"); })},
        {"result.GetResultType",
         Each<Result>(FillEntries,
                      [](Result& o, int i) { return o.GetResultType(Name(i)) == QORV_OUTPUT_INFO; })},
        {"result.GetResultDataCount",
         Each<Result>(FillEntries, [](Result& o, int i) { return o.GetResultDataCount(Name(i)) == 0; })},
        {"result.GetResultDataXml",
         Each<Result>(FillEntries, [](Result& o, int i) { return !o.GetResultDataXml(Name(i)).empty(); })},
        {"result.GetResultDataItem",
         Each<Result>(FillRows, [](Result& o, int i) { return o.GetResultDataItem("k", i) != nullptr; })},
        {"the same, of a document let go",
         Each<Result>(FillReleased, [](Result& o, int i) { return o.GetResultDataItem("k", i) != nullptr; })},
        {"the same, by a key with a quote",
         Each<Result>(FillRows,
                      [](Result& o, int i) { return o.GetResultDataItem("x' or @guid='k", i) != nullptr; })},
        {"result.GetResultDataItemXml",
         Each<Result>(FillRows, [](Result& o, int i) { return !o.GetResultDataItemXml("k", i).empty(); })},
        {"result.MergeResult, Save and Parse", Whole<Result>(FillEntries,
                                                             [](Result& o) {
                                                                 std::string xml;
                                                                 return o.MergeResult(o) && o.Save(xml) &&
                                                                        o.Parse(xml);
                                                             })},
        {"result.ResultXMLDOMDoc",
         Whole<Result>(FillEntries, [](Result& o) { return o.ResultXMLDOMDoc() != nullptr; })},
        {"definition of many parameters, loaded", Whole<Defined>(FillDefinition,
                                                                 [](Defined& o) {
                                                                     std::string log;
                                                                     return o.engine.LoadFunctionDefsXml(
                                                                         o.definitions, log);
                                                                 })},
        {"definition of many parameters, called", Whole<Defined>(FillDefinition,
                                                                 [](Defined& o) {
                                                                     std::string result;
                                                                     return o.engine.RunFunction(o.request,
                                                                                                 result);
                                                                 })},
        {"many definitions, loaded", Whole<Defined>(FillManyDefinitions,
                                                    [](Defined& o) {
                                                        std::string log;
                                                        return o.engine.LoadFunctionDefsXml(o.definitions,
                                                                                            log);
                                                    })},
    };
    return members;
}

/// Processor time that an item takes among n: the least of some runs.
double TimeOf(const Work& work, int n) {
    constexpr int kRuns = 7;
    double least = 1e18;
    for (int run = 0; run < kRuns; ++run) {
        const std::function<bool()> prepared = work(n);
        const std::clock_t start = std::clock();
        Require(prepared(), "a member answers otherwise");
        least = std::min(least, static_cast<double>(std::clock() - start));
    }
    return std::max(least, 1.0) / n;
}

void Measure(benchmark::State& state, const Work& work) {
    for (auto _ : state) {
        const double few = TimeOf(work, kFew);
        state.counters["at_2n"] = TimeOf(work, 2 * kFew) / few;
        state.counters["at_4n"] = TimeOf(work, 4 * kFew) / few;
    }
}

const bool kRegistered = [] {
    for (const auto& [name, work] : Members()) {
        benchmark::RegisterBenchmark(("linear/" + name).c_str(),
                                     [&work = work](benchmark::State& state) { Measure(state, work); })
            ->Iterations(1)
            ->Unit(benchmark::kMillisecond);
        Promises().push_back({name, "linear/" + name, "", "at_4n", 3.5, false});
    }
    return true;
}();

}  // namespace

}  // namespace halvtiv::bench
