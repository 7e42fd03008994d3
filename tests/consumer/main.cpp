#include <iostream>
#include <string>

#include <halvtiv/halvtiv.hpp>

using namespace halvtiv;

// A function: its name, what a caller must give, and the SQL behind it.
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
</functions>)";

// The data-access layer runs any SQL; a database in memory lasts as long as its connection.
void MakeTable(const ado::ConnectionPtr& connection) {
    const ado::RecordsetPtr batch = connection->Execute(
        "create table city (name varchar(40) primary key, millions double);"
        "insert into city values ('Montréal', 4.3), ('北京', 21.9), ('Αθήνα', 3.6), ('Køge', 0.06)");
    batch->Close();  // what nobody has asked for yet runs now, and its errors are raised here
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
