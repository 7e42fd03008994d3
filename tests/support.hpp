#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <pugixml.hpp>

#include <halvtiv/halvtiv.hpp>

namespace halvtiv::test {

/// The error that an action raises; number 0 when it raises none.
inline ErrorInfo ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const ErrorInfo& error) {
        return error;
    }
    return {};
}

inline std::int32_t NumberOf(const std::function<void()>& action) {
    return ErrorOf(action).Number;
}

/// A new empty folder under a name that no other test has.
inline std::filesystem::path MakeTemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "halvtiv-test-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    return name;
}

/// A folder of the running test's own, gone with this object.
class TemporaryFolder {
public:
    TemporaryFolder() : path_(MakeTemporaryFolder()) {}
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string PathOf(const std::string& name) const { return (path_ / name).string(); }
    /// Names of the files in a folder, sorted.
    std::vector<std::string> FilesIn(const std::string& name = {}) const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(path_ / name)) {
            names.push_back(entry.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::filesystem::path path_;
};

inline std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void WriteFile(const std::string& path, std::string_view bytes) {
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

/// Opens a database file, making it when it is missing, and runs statements on it.
inline ado::ConnectionPtr MakeDatabase(const std::string& path, std::string_view sql = {}) {
    auto connection = std::make_shared<ado::Connection>();
    connection->Open("Provider=SQLite;Create=1;Data Source=" + path);
    if (!sql.empty()) {
        for (auto result = connection->Execute(sql); result; result = result->NextRecordset()) continue;
    }
    return connection;
}

/// The rows from the current one on, "a b|c d", null as "null".
inline std::string RestOf(const ado::RecordsetPtr& rows) {
    std::string all;
    for (bool isFirst = true; !rows->IsEOF(); rows->MoveNext(), isFirst = false) {
        if (!isFirst) all += '|';
        for (std::int32_t i = 0; i < rows->Fields().Count(); ++i) {
            const auto value = rows->Fields().Item(i)->Value();
            all += (i > 0 ? " " : "") + (value.IsNull() ? "null" : value.Text());
        }
    }
    return all;
}

using Params = std::initializer_list<std::pair<std::string_view, std::string_view>>;

/// A column's value, or a file's name, in a call's "data" block.
struct Item {
    const char* name;
    std::string value;
    std::int32_t type = 0;
};

/// A request's XML text, under the key "K".
inline std::string Request(std::string_view function, Params params = {},
                           const std::vector<Item>* items = nullptr) {
    ZorbFunctionCall call;
    call.FunctionName(function);
    call.FunctionGUID("K");
    for (const auto& [name, value] : params) call.AddParam(name, value);
    if (items) {
        const auto block = call.AddDataParam("data");
        for (const Item& item : *items) call.AddSubParam(block, item.name, item.value, item.type);
    }
    std::string xml;
    EXPECT_TRUE(call.Save(xml)) << call.GetLastError();
    return xml;
}

/// A result's entries in few words, one line each: `K data[a=1 b=x(file)|a=2 ...]`, values as they stand in
/// the document.
inline std::vector<std::string> Entries(const std::string& resultXml) {
    std::vector<std::string> lines;
    pugi::xml_document document;
    EXPECT_TRUE(document.load_buffer(resultXml.data(), resultXml.size())) << resultXml;
    for (const auto& entry : document.document_element().children("data")) {
        std::string line =
            std::string(entry.attribute("guid").value()) + " " + entry.attribute("type").value();
        char separator = '[';
        for (const auto& row : entry.children("row")) {
            line += separator;
            separator = '|';
            for (const auto& cell : row.children("col")) {
                if (cell != row.first_child()) line += ' ';
                line.append(cell.attribute("name").value())
                    .append("=")
                    .append(cell.attribute("value").value());
                if (cell.attribute("type")) line += "(" + std::string(cell.attribute("type").value()) + ")";
            }
        }
        lines.push_back(line + "]");
    }
    return lines;
}

}  // namespace halvtiv::test
