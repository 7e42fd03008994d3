// The program that the crash test kills: it writes transactions of rows in two tables and a long value, each
// made from its number alone, and tells of each that is committed. Run for checking, it looks whether every
// transaction in the file is whole.
//
//   crash_writer write DATABASE FOLDER     until it is killed; prints each number once it is committed
//   crash_writer check DATABASE NUMBER     exit 1 when something is wrong, or NUMBER is not there

#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>

#include <halvtiv/halvtiv.hpp>

namespace {

using namespace halvtiv;

struct Content {
    explicit Content(std::int64_t number)
        : parts(2 + number % 5),
          size(number % 4 == 0 ? number * 7919 % 3000000 : number * 7919 % 20000),
          byte(static_cast<char>(number % 251)) {}
    std::int64_t parts;
    std::int64_t size;
    char byte;
};

class Writer {
public:
    explicit Writer(const std::string& path) {
        const auto connection =
            engine_.SetDatabaseConnectionString("Provider=SQLite;Create=1;Data Source=" + path);
        if (!connection) throw std::runtime_error(engine_.GetLastError());
        Execute("create table if not exists whole (id integer primary key, parts integer, photo blob)");
        Execute("create table if not exists part (whole integer, n integer)");
    }

    void WriteAll(const std::string& folder) {
        for (auto number = Number("select ifnull(max(id), 0) from whole") + 1;; ++number) {
            Write(number, folder + "/photo");
            std::printf("%lld\n", static_cast<long long>(number));
            std::fflush(stdout);
        }
    }

    bool Check(std::int64_t acknowledged) {
        const auto Is = [&](const char* what, std::int64_t found, std::int64_t expected) {
            if (found == expected) return true;
            std::fprintf(stderr, "%s: %lld instead of %lld\n", what, static_cast<long long>(found),
                         static_cast<long long>(expected));
            return false;
        };
        const auto count = Number("select count(*) from whole");
        bool good = Is("sound", Text("pragma integrity_check") == "ok", 1);
        good = Is("without gaps up to", Number("select ifnull(max(id), 0) from whole"), count) && good;
        good = Is("acknowledged and there", count >= acknowledged, 1) && good;
        std::int64_t parts = 0;
        const auto rows = Execute(
            "select id, parts, (select count(*) from part where whole = id), ifnull(length(photo), 0), "
            "replace(hex(photo), printf('%02X', id % 251), '') = '' from whole");
        for (; !rows->IsEOF(); rows->MoveNext()) {
            const auto field = [&](std::int32_t i) {
                return std::stoll(rows->Fields().Item(i)->Value().Text());
            };
            const Content expected(field(0));
            good = Is("parts", field(1), expected.parts) && Is("rows", field(2), expected.parts) &&
                   Is("bytes", field(3), expected.size) && Is("bytes as they were", field(4), 1) && good;
            parts += expected.parts;
        }
        return Is("rows in all", Number("select count(*) from part"), parts) && good;
    }

private:
    ado::RecordsetPtr Execute(const std::string& sql) {
        return engine_.GetDatabaseConnection()->Execute(sql);
    }
    std::string Text(const std::string& sql) { return Execute(sql)->Fields().Item(0)->Value().Text(); }
    std::int64_t Number(const std::string& sql) { return std::stoll(Text(sql)); }

    void Write(std::int64_t number, const std::string& file) {
        const Content content(number);
        std::ofstream(file, std::ios::binary)
            << std::string(static_cast<std::size_t>(content.size), content.byte);
        const auto id = std::to_string(number);
        auto& connection = *engine_.GetDatabaseConnection();
        connection.BeginTrans();
        for (std::int64_t i = 0; i < content.parts; ++i)
            Add("part", {{"whole", id, 0}, {"n", std::to_string(i), 0}});
        Add("whole", {{"id", id, 0}, {"photo", file, 1}});
        ZorbFunctionCall call;
        call.FunctionName("public.updatedata");
        call.AddParam("sql", "select parts from whole where id = " + id);
        call.AddSubParam(call.AddDataParam("data"), "parts", std::to_string(content.parts));
        Run(call);
        connection.CommitTrans();
    }

    struct Item {
        const char* name;
        std::string value;
        std::int32_t type;
    };
    void Add(const char* table, std::initializer_list<Item> items) {
        ZorbFunctionCall call;
        call.FunctionName("public.adddata");
        call.AddParam("sql", table);
        const auto block = call.AddDataParam("data");
        for (const Item& item : items) call.AddSubParam(block, item.name, item.value, item.type);
        Run(call);
    }
    void Run(ZorbFunctionCall& call) {
        std::string request, xml;
        const bool done = call.Save(request) && engine_.RunFunction(request, xml);
        if (!done || xml.find("type=\"info\"") == std::string::npos) throw std::runtime_error(xml);
    }

    ZorbDbAccessEngine engine_;
};

}  // namespace

int main(int count, char** arguments) try {
    if (count != 4) throw std::runtime_error("usage: crash_writer write|check DATABASE FOLDER|NUMBER");
    Writer writer(arguments[2]);
    if (std::string(arguments[1]) == "check") return writer.Check(std::stoll(arguments[3])) ? 0 : 1;
    writer.WriteAll(arguments[3]);
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 2;
}
