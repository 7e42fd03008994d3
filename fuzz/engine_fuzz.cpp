// Values of calls on the way into a database and back.

#include <string>

#include <halvtiv/halvtiv.hpp>

#include "platform/text.hpp"
#include "property.hpp"

namespace halvtiv::fuzz {
namespace {

constexpr const char* kDefinitions = R"xml(<functions>
  <functiondef name="put">
    <paramdef><param name="v" type="text" extra="quote"/></paramdef>
    <function name="public.executesql"><param name="sql" value="insert into t values (1, '%v%')"/></function>
  </functiondef>
  <functiondef name="find">
    <paramdef><param name="v" type="text" extra="quote"/></paramdef>
    <function name="public.getdata"><param name="sql" value="select v from t where v = '%v%'"/></function>
  </functiondef></functions>)xml";

class Table {
public:
    Table() {
        std::string report;
        Require(engine_.SetDatabaseConnectionString("Provider=SQLite;Data Source=:memory:") != nullptr &&
                    engine_.LoadFunctionDefsXml(kDefinitions, report),
                "there is no database");
        engine_.GetDatabaseConnection()->Execute("create table t (n integer, v varchar(100))");
    }

    /// Writes a value through one door and looks for it through another.
    void Keep(std::string_view value) {
        ZorbFunctionCall call;
        // Its own placeholder would be replaced by itself; what XML cannot carry does not get in.
        if (value.find("%v%") != std::string_view::npos || call.AddParam("v", value) < 0) return;
        Run(call, "put");
        Run(call, "find");
        ZorbFunctionCall direct;
        const auto block = direct.AddDataParam("data");
        direct.AddParam("sql", "t");
        direct.AddSubParam(block, "v", value);
        Run(direct, "public.adddata");
        value = platform::TrimBlanks(value);  // as documents are read
        ado::Recordset rows;
        rows.Open("select v from t", engine_.GetDatabaseConnection(), ado::adOpenForwardOnly,
                  ado::adLockReadOnly);
        const auto field = rows.Fields().Item(0);
        Require(!rows.IsEOF() && field->Text() == value, "a value has changed");
        rows.MoveNext();
        // An empty value is none there.
        Require(!rows.IsEOF() && (field->IsNull() ? value.empty() : field->Text() == value),
                "a value of a block has changed");
    }

private:
    void Run(ZorbFunctionCall& call, std::string_view name) {
        std::string xml;
        call.FunctionName(name);
        call.FunctionGUID("K");
        Require(call.Save(xml), "a call is not written");
        ZorbFunctionResult result;
        Require(engine_.RunFunction(xml, xml) && result.Parse(xml), "a call is not run");
        Require(engine_.GetLastError().empty(), "a call fails");
        Require(result.GetResultDataCount("K") == (name == "find" ? 1 : 0), "a value is not found");
    }

    ZorbDbAccessEngine engine_;
};

}  // namespace
}  // namespace halvtiv::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    halvtiv::fuzz::Table().Keep(halvtiv::fuzz::TextOf(data, size));
    return 0;
}
