// Runs one thing that an engine can do while one memory allocation or one system call on a file after the
// other fails, until none does, each time in a process of its own. Afterwards the answer tells of the failure
// or is right, database and files are as before or as after the run, and the engine still works.
//
//   fault_sweep                                              prints the scenarios
//   fault_sweep FOLDER SCENARIO KIND:ERRNO:LENGTH:STRIDE...  prints "FAULT NUMBER PROBLEM" for each problem,
//   and
//                                                            "FAULT right COUNT"
//   fault_sweep FOLDER SCENARIO KIND:ERRNO:LENGTH:STRIDE NUMBER  that one in this very process, for a
//   debugger
//
// It runs in FOLDER, a copy of FOLDER.template, both made by scripts/fault-sweep. KIND is memory or system;
// with a LENGTH of 0 all calls fail from the first one on.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>

#include <halvtiv_exporters/exporters.hpp>

#include "faults.hpp"
#include "support.hpp"

namespace halvtiv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* kResult =
    R"(<result><data guid="k" type="data"><row index="1"><col name="a" value="a value beyond any small buffer"/>)"
    R"(</row></data></result>)";

enum Effect {
    Reads,      // changes no row, and can be done again
    AllOrNone,  // changes all rows or none
    RowByRow,   // rows changed before the failure stay so
};

struct Scenario {
    std::string name;  // a built-in function's, and what makes it different behind a hyphen
    Effect effect;
    std::string arguments = {};  // "parameter=text|column:=text|column@=file"; of a transaction its scenarios
};
const Scenario kScenarios[] = {
    {"documents", Reads},
    {"connect", Reads},
    {"definitions", Reads},
    {"getdata", Reads, "sql=select * from t where id < 4|datafolder=parts"},
    {"getdata-simple", Reads, "sql=select id, name from t"},
    {"getdatatofile", Reads, "sql=select * from t|filename=out.xml"},
    {"read.complex", Reads, "long parameter name=something|n=4"},
    {"executesql", RowByRow,
     "sql=insert into t (n) values (1); update t set n = 5 where id = 1; select * from t"},
    {"executesql-simple", AllOrNone, "sql=delete from t where id = 3; select n from t"},
    {"adddata", AllOrNone, "sql=t|name:=one more beyond any small buffer|photo@=../in"},
    {"adddata-simple", AllOrNone, "sql=t"},
    {"updatedata", RowByRow, "sql=select * from t where id > 2|n:=5|photo@=../small"},
    {"updatedata-simple", RowByRow, "sql=t"},
    {"updatedataex", RowByRow, "sql=select * from t where id > 2|n:=5"},
    {"updatedataex-adds", AllOrNone, "sql=select * from t where id = 99|n:=5"},
    {"updatedatacoladd", RowByRow, "sql=t|col=n|n:=5"},
    {"deletedata", RowByRow, "sql=select * from t where id > 1"},
    {"deletedata-simple", RowByRow, "sql=t"},
    {"getbinarydata", Reads, "sql=select * from t where id = 2|colname=photo|filename=photo"},
    {"setbinarydata", AllOrNone, "sql=select * from t where id > 10|colname=photo|filename=../in"},
    {"deletebinarydata", RowByRow, "sql=t|colname=photo"},
    {"transaction", AllOrNone, "adddata|updatedata|setbinarydata|read.complex|deletedata|executesql"},
    {"follow.read", Reads},
    {"adddata-follow", AllOrNone, "sql=follow|note:=works"},
    {"getdatatoexportfile-csv", Reads,
     "sql=select * from t|filename=out.csv|exporttype=csv|datafolder=parts"},
    {"getdatatoexportfile-xlsx", Reads, "sql=select id, name, n from t|filename=out.xlsx|exporttype=xlsx"},
    {"getdatatoexportfile-jsonl", Reads, "sql=select * from t|filename=out.jsonl|exporttype=jsonl"},
    {"getdatatoexportfile-db", Reads, "sql=select id, name from t|filename=out.db|tablename=t|exporttype=db"},
    {"getdatatoexportfile-new", Reads,
     "sql=select id, name from t|filename=new.db|tablename=t|exporttype=db"}};

/// What a run works with, in the folder of its files.
struct Place {
    ZorbDbAccessEngine engine;
    ZorbFunctionCall call;
    ZorbFunctionResult result;
    ZorbColumnDataItems items;

    std::string Errors() { return engine.GetLastError() + call.GetLastError() + result.GetLastError(); }
};

const Scenario& Find(const std::string& name) {
    return *std::find_if(std::begin(kScenarios), std::end(kScenarios),
                         [&](const Scenario& scenario) { return scenario.name == name; });
}

std::string RequestOf(const Scenario& scenario, ZorbColumnDataItems& items) {
    std::string request;
    ZorbTransactionCall transaction;
    ZorbFunctionCall call;
    const bool isDefined = scenario.name.find('.') != std::string::npos;
    call.FunctionName((isDefined ? "" : "public.") + scenario.name.substr(0, scenario.name.find('-')));
    call.FunctionGUID("K");
    transaction.TransGUID("T");
    std::istringstream arguments(scenario.arguments);
    for (std::string part; std::getline(arguments, part, '|');) {
        const std::size_t equals = part.find('=');
        if (equals == std::string::npos) {
            transaction.AddFunctionXml(RequestOf(Find(part), items));
        } else if (const char kind = part[equals - 1]; kind == ':' || kind == '@') {
            const std::int32_t block = call.DataParamCount() > 0 ? 1 : call.AddDataParam("data");
            call.AddSubParam(block, part.substr(0, equals - 1), part.substr(equals + 1), kind == '@' ? 1 : 0);
        } else {
            call.AddParam(part.substr(0, equals), part.substr(equals + 1));
            items.Add(part.substr(0, equals), part.substr(equals + 1));
        }
    }
    transaction.FunctionCount() > 0 ? transaction.Save(request) : call.Save(request);
    return request;
}

bool UseDocuments(Place& place, const std::string& request, std::string& text) {
    auto& result = place.result;
    bool done =
        place.call.Parse(request) && place.call.Save(text) && text == request && result.Parse(kResult);
    for (const char* const key : {"k", "k' or @guid='k"}) {  // the second one needs the tree
        const auto row = done ? result.GetResultDataItem(key, 1) : nullptr;
        done = row && row->Count() == 1 && result.AddFunctionResult_Info("k", 5);
    }
    return done && result.Save(text) && result.ChangeResultDataGUID("k", "l") &&
           result.AddFunctionResult_Error("e", -1, "a description beyond any small buffer", "");
}

/// Allocates nothing by itself.
bool Run(Place& place, const Scenario& scenario, const std::string& request, std::string& text) {
    constexpr const char* kData = R"(<d><col name="n" value="8"/></d>)";
    auto& engine = place.engine;
    const auto is = [&](const char* name) { return scenario.name == name; };
    if (is("connect"))
        return engine.SetDatabaseConnectionString("Provider=SQLite;Data Source=data.db") != nullptr;
    if (is("definitions")) return engine.LoadFunctionDefs("../definitions.xml", text);
    if (is("documents")) return UseDocuments(place, request, text);
    if (is("transaction")) return engine.RunTransaction(request, text);
    if (is("adddata-simple")) return engine.SimpleAddDataItem("public.adddata", &place.items, kData);
    if (is("updatedata-simple")) return engine.SimpleUpdateDataItem("public.updatedata", &place.items, kData);
    if (is("getdata-simple")) return engine.SimpleGetDataItem("public.getdata", &place.items, text, true);
    if (is("deletedata-simple")) return engine.SimpleDeleteDataItem("public.deletedata", &place.items);
    if (is("executesql-simple"))
        return engine.SimpleExecuteSQL("public.executesql", &place.items, &text, true);
    return engine.RunFunction(request, text);
}

/// Rows, files and answers by name.
using Observation = std::map<std::string, std::string>;

/// rows: a query for ids and texts.
void LookAtDatabase(const std::string& path, const char* rows, Observation& seen) try {
    const auto connection = MakeDatabase(path);
    seen["check " + path] = RestOf(connection->Execute("pragma integrity_check"));
    const auto row = connection->Execute(rows);
    for (; !row->IsEOF(); row->MoveNext()) {
        const auto text = [&](std::int32_t column) { return row->Fields().Item(column)->Value().Text(); };
        seen["row " + path + " " + text(0)] = text(1);
    }
} catch (const ErrorInfo& error) {
    seen["check " + path] = error.Description;
}

/// All files but the database that is worked on.
void LookAtFiles(Observation& seen) {
    for (const auto& entry : fs::recursive_directory_iterator(".")) {
        const std::string name = entry.path().string().substr(2);
        if (entry.is_directory() || name.starts_with("data.db")) continue;
        seen["file " + name] = name.ends_with(".db") ? "" : ReadFile(name);
        if (name.ends_with(".db")) LookAtDatabase(name, "select id, ifnull(name, '') from t", seen);
    }
}

/// Runs a scenario, or none, in a copy of the template while something fails; `fired` is whether anything
/// did.
Observation Observe(const std::string& folder, const Scenario* scenario, const Fault& fault, bool& fired) {
    fs::remove_all(folder);
    fs::copy(folder + ".template", folder, fs::copy_options::recursive);
    fs::current_path(folder);
    Observation seen;
    const auto place = std::make_unique<Place>();
    std::string text;
    exporters::AddAllExporters(place->engine);
    Run(*place, Find("definitions"), {}, text);
    if (scenario == nullptr || scenario->name != "connect") Run(*place, Find("connect"), {}, text);
    if (scenario != nullptr) {
        const std::string request = RequestOf(*scenario, place->items);
        if (fault.kind == FaultKind::System) TrapSystemCalls();
        std::string& answer = seen["answer"];
        bool done = false;
        fired = RunWithFault(fault, [&] { done = Run(*place, *scenario, request, answer); });
        const std::string error = place->Errors();
        if (!done && error.empty()) seen["silent"] = "false without an error";
        // An error entry, an error cell, or a definition that is said not to have been loaded.
        const bool isInText = answer.find("type=\"error\"") != std::string::npos ||
                              answer.find(": Failed. (") != std::string::npos;
        if (!done || !error.empty() || isInText) seen["!told"] = error.empty() ? answer : error;
        LookAtFiles(seen);
        if (scenario->effect == Reads) Run(*place, *scenario, request, seen["again"]);
        if (scenario->effect == Reads) seen["again"] += place->Errors();
    }
    place->engine.ReConnectInterval(0);
    for (const char* const name : {"follow.read", "adddata-follow"}) {
        place->engine.RunFunction(RequestOf(Find(name), place->items), seen[name]);
        seen[name] += place->engine.GetLastError();
    }
    place->engine.DisConnect();
    if (scenario == nullptr) LookAtFiles(seen);
    // Whether a value is whole, its length tells, and whether there are zeros in it.
    LookAtDatabase(
        "data.db",
        "select -id, note from follow union all select id, printf('%s %s %s %d %d', name, n, hex(small), "
        "length(photo), instr(photo, x'00')) from t",
        seen);
    if (fs::exists("data.db-journal")) seen["journal"] = "left behind";
    return seen;
}

std::vector<std::string> Problems(const Scenario& scenario, const Observation& before,
                                  const Observation& after, const Observation& seen) {
    const auto get = [](const Observation& from, const std::string& name) {
        const auto at = from.find(name);
        return at == from.end() ? "(none)" : at->second;
    };
    std::vector<std::string> problems;
    const bool told = seen.contains("!told");
    bool allOld = true;
    bool allNew = true;
    Observation all = seen;
    all.insert(before.begin(), before.end());
    all.insert(after.begin(), after.end());
    for (const auto& [name, any] : all) {
        if (name == "!told" || (told && name == "answer")) continue;
        const std::string now = get(seen, name);
        const bool isNew = now == get(after, name);
        const bool isOld = now == get(before, name) && name != "again";
        const bool isEmptied =
            name.starts_with("file parts/") && now.empty();  // before a value is written there
        allOld = allOld && (isOld || !name.starts_with("row "));
        allNew = allNew && (isNew || !name.starts_with("row "));
        if (isNew || (told && (isOld || isEmptied))) continue;
        problems.push_back((told ? "" : "not told: ") + name + " is " + now.substr(0, 300));
    }
    if (told && scenario.effect != RowByRow && !allOld && !allNew)
        problems.emplace_back("not all rows are changed");
    return problems;
}

class Sweep {
public:
    Sweep(std::string folder, const Scenario& scenario) : folder_(std::move(folder)), scenario_(scenario) {
        before_ = Observe(folder_, nullptr, {}, fired_);
        after_ = Observe(folder_, &scenario, {FaultKind::Memory, 0, 0}, fired_);
        if (after_.contains("!told")) throw std::runtime_error(scenario.name + " fails: " + after_["!told"]);
    }

    void Run(const std::string& name, Fault fault, int stride) {
        int right = 0;
        for (int status = kRight; status != kNothingFailed; fault.number += stride) {
            std::fflush(stdout);
            const pid_t child = ::fork();
            if (child == 0) RunInChild(name, fault);
            ::waitpid(child, &status, 0);
            if (WIFSIGNALED(status))
                Print(name, fault, std::string("died: ") + ::strsignal(WTERMSIG(status)));
            status = WIFEXITED(status) ? WEXITSTATUS(status) : kWrong;
            right += status == kRight ? 1 : 0;
        }
        std::printf("%s right %d\n", name.c_str(), right);
    }

    int RunHere(const std::string& name, const Fault& fault) {
        const Observation seen = Observe(folder_, &scenario_, fault, fired_);
        const auto problems = Problems(scenario_, before_, after_, seen);
        for (const std::string& problem : problems) Print(name, fault, problem);
        return !problems.empty() ? kWrong : fired_ ? kRight : kNothingFailed;
    }

private:
    static constexpr int kRight = 0;
    static constexpr int kWrong = 1;
    static constexpr int kNothingFailed = 2;

    static void Print(const std::string& name, const Fault& fault, const std::string& problem) {
        std::printf("%s %lld %s\n", name.c_str(), static_cast<long long>(fault.number), problem.c_str());
    }

    [[noreturn]] void RunInChild(const std::string& name, const Fault& fault) {
        constexpr unsigned kMostSeconds = 60;
        ::alarm(kMostSeconds);
        // There libraries write what fails.
        int status = std::freopen("/dev/null", "w", stderr) != nullptr ? kRight : kWrong;
        if (status == kRight) status = RunHere(name, fault);
        std::fflush(stdout);
        ::_exit(status);
    }

    std::string folder_;
    const Scenario& scenario_;
    Observation before_;
    Observation after_;
    bool fired_ = true;
};

int Main(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        for (const Scenario& scenario : kScenarios) std::printf("%s\n", scenario.name.c_str());
        return 0;
    }
    const rlimit noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    Sweep sweep(arguments[0], Find(arguments[1]));
    const bool isOne = arguments.size() == 4 && arguments[3].find(':') == std::string::npos;
    for (std::size_t index = 2; index < arguments.size(); ++index) {
        char kind = 0;
        int error = 0, length = 0, stride = 1;
        if (std::sscanf(arguments[index].c_str(), "%c%*[a-z]:%d:%d:%d", &kind, &error, &length, &stride) != 4)
            throw std::runtime_error("unknown fault: " + arguments[index]);
        Fault fault{kind == 'm' ? FaultKind::Memory : FaultKind::System, error,
                    length > 0 ? length : Fault::kUnlimited};
        if (isOne) {
            fault.number = std::stoi(arguments[3]);
            return sweep.RunHere(arguments[2], fault);
        }
        sweep.Run(arguments[index], fault, stride);
    }
    return 0;
}

}  // namespace
}  // namespace halvtiv::test

int main(int count, char** arguments) try {
    return halvtiv::test::Main({arguments + 1, arguments + count});
} catch (const std::exception& error) {
    std::fprintf(stderr, "fault_sweep: %s\n", error.what());
    return 2;
}
