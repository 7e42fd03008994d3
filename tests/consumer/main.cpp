#include <atomic>
#include <chrono>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include <halvtiv/halvtiv.hpp>

using namespace halvtiv;

// Functions: a name, what a caller must give, and the SQL behind it.
constexpr const char* kDefinitions = R"(
<functions>
  <functiondef name="cities.larger">
    <paramdef>
      <param name="millions" type="double" value="least number of inhabitants, in millions"/>
    </paramdef>
    <function name="public.getdata">
      <param name="sql" value="select name, millions from city where millions >= %millions% order by name"/>
    </function>
  </functiondef>
  <functiondef name="cities.add">
    <function name="public.adddata">
      <param name="sql" value="city"/>
    </function>
  </functiondef>
</functions>)";

// The data-access layer runs any SQL; a database in memory lasts as long as its connection.
void MakeTable(const ado::ConnectionPtr& connection) {
    ado::RecordsetPtr result = connection->Execute(
        "create table city (name varchar(40) primary key, millions double);"
        "insert into city values ('Montréal', 4.3), ('北京', 21.9), ('Αθήνα', 3.6), ('Køge', 0.06)");
    // Runs every statement, however many there are, and raises their errors.
    while (result) result = result->NextRecordset();
}

void ShowCities(ZorbDbAccessEngine& engine, const std::string& millions) {
    ZorbFunctionCall call;
    call.FunctionName("cities.larger");
    call.FunctionGUID("cities");  // the key under which the result answers
    call.AddParam("millions", millions);
    std::string request, answer;
    if (!call.Save(request)) call.RaiseLastError();

    // False: nothing was run, because the request, the function's name or a value is wrong.
    if (!engine.RunFunction(request, answer)) engine.RaiseLastError();

    ZorbFunctionResult result;
    if (!result.Parse(answer)) result.RaiseLastError();
    // It was run and failed: the error stands in the place of the rows.
    if (result.GetResultType("cities") == QORV_OUTPUT_ERROR) result.RaiseResultError("cities");

    for (std::int32_t row = 1; row <= result.GetResultDataCount("cities"); ++row) {  // row 0 is the header
        const ZorbColumnDataItemsPtr city = result.GetResultDataItem("cities", row);
        std::cout << city->GetItemValueByName("name") << ' ' << city->GetItemValueByName("millions") << '\n';
    }
}

// All cities or none: the calls of a transaction are done together.
void AddCities(ZorbDbAccessEngine& engine, const std::vector<std::string>& names) {
    ZorbTransactionCall transaction;
    for (const std::string& name : names) {
        ZorbFunctionCall call;
        call.FunctionName("cities.add");
        const std::int32_t row = call.AddDataParam("data");
        call.AddSubParam(row, "name", name);
        call.AddSubParam(row, "millions", "5.5");
        transaction.AddFunction(call);
    }
    std::string request, answer;
    if (!transaction.Save(request)) transaction.RaiseLastError();
    const bool isDone = engine.RunTransaction(request, answer);
    std::cout << (isDone ? "added" : "not added: " + engine.GetLastError()) << '\n';
}

// Cancel is the one member for other threads. It stops what runs by then, so this one calls until that is
// over.
void CancelWhatNeverEnds(ZorbDbAccessEngine& engine) {
    std::atomic<bool> isOver = false;
    std::thread other([&] {
        while (!isOver) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            engine.Cancel();
        }
    });
    std::string answer;
    engine.RunFunction(R"(<function name="public.getdata">
        <param name="sql" value="with recursive n(i) as (select 1 union all select i + 1 from n) select max(i) from n"/>
        </function>)",
                       answer);
    isOver = true;
    other.join();
    std::cout << engine.GetLastError() << '\n';
}

int main() {
    ZorbDbAccessEngine engine;
    try {
        std::string report;
        if (!engine.LoadFunctionDefsXml(kDefinitions, report)) engine.RaiseLastError();
        const ado::ConnectionPtr connection =
            engine.SetDatabaseConnectionString("Provider=SQLite;Data Source=:memory:");
        if (!connection) engine.RaiseLastError();
        MakeTable(connection);
        ShowCities(engine, "3.6");
        AddCities(engine, {"Singapore", "Sydney"});
        AddCities(engine, {"Barcelona", "Sydney"});  // Sydney is there already, so Barcelona stays out
        ShowCities(engine, "5");
        CancelWhatNeverEnds(engine);
    } catch (const ErrorInfo& error) {
        std::cout << "error " << error.Number << ": " << error.Description << '\n';
        return 1;
    }
    try {
        ShowCities(engine, "many");
    } catch (const ErrorInfo& error) {
        std::cout << "error " << error.Number << ": " << error.Description << '\n';
    }
}
