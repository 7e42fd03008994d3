// The sample: every ready request gives through the command what it gives through the library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <halvtiv/halvtiv.hpp>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

const fs::path kAtlas = HALVTIV_ATLAS;

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<fs::path> XmlFilesIn(const fs::path& folder) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".xml") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string OutputOf(const std::string& command) {
    struct Close {
        void operator()(FILE* pipe) const { ::pclose(pipe); }
    };
    const std::unique_ptr<FILE, Close> pipe(::popen(command.c_str(), "r"));
    std::string output;
    char block[4096];
    while (const std::size_t count = std::fread(block, 1, sizeof block, pipe.get()))
        output.append(block, count);
    return output;
}

TEST(AtlasTest, EveryRequestGivesTheSameBytesThroughLibraryAndCommand) {
    const std::string database = HALVTIV_ATLAS_DATABASE;
    // A data folder of its own name in a request is below the current folder.
    const fs::path folder = fs::path(testing::TempDir()) / "halvtiv-atlas-run";
    fs::create_directories(folder / "examples/atlas/build");
    fs::current_path(folder);

    halvtiv::ZorbDbAccessEngine engine;
    ASSERT_TRUE(engine.SetDatabaseConnection_MDBFile(database, "", "")) << engine.GetLastError();
    std::string command = std::string("'") + HALVTIV_COMMAND + "' run --db '" + database + "'";
    for (const fs::path& file : XmlFilesIn(kAtlas)) {
        std::string report;
        ASSERT_TRUE(engine.LoadFunctionDefs(file.string(), report)) << engine.GetLastError();
        EXPECT_NE(report.find("(0 failed"), std::string::npos) << report;
        command += " --defs '" + file.string() + "'";
    }

    int answered = 0;
    for (const fs::path& request : XmlFilesIn(kAtlas / "requests")) {
        SCOPED_TRACE(request.filename().string());
        const std::string text = ReadFile(request);
        std::string result;
        const bool ran = engine.RunFunction(text, result);
        const std::string name = request.filename().string();
        const bool isRefused = name == "fails-missing-value.xml" || name == "fails-wrong-type.xml";
        EXPECT_EQ(ran, !isRefused) << engine.GetLastError();
        EXPECT_EQ(engine.GetLastError().empty(), !name.starts_with("fails")) << engine.GetLastError();
        // Without a guid of its own a call's entries carry none; with one, both runs carry the same.
        EXPECT_EQ(OutputOf(command + " '" + request.string() + "' 2>/dev/null"), result);
        answered += ran ? 1 : 0;
    }
    EXPECT_GE(answered, 8);
    fs::current_path(fs::temp_directory_path());
    fs::remove_all(folder);
}

TEST(AtlasTest, CountriesAreFoundInTheirOwnScripts) {
    halvtiv::ZorbDbAccessEngine engine;
    ASSERT_TRUE(engine.SetDatabaseConnection_MDBFile(HALVTIV_ATLAS_DATABASE, "", ""))
        << engine.GetLastError();
    std::string report, result;
    ASSERT_TRUE(engine.LoadFunctionDefs((kAtlas / "names.xml").string(), report)) << engine.GetLastError();
    struct Case {
        const char* part;
        const char* country;
    };
    for (const Case& one : {Case{"\u5fb7\u56fd", "Germany"}, Case{"\u0645\u0635\u0631", "Egypt"},
                            Case{"\u0395\u03bb\u03bb\u03ac\u03b4\u03b1", "Greece"}}) {
        ASSERT_TRUE(engine.RunFunction(std::string("<function name='atlas.find'><param name='text' value='") +
                                           one.part + "'/></function>",
                                       result))
            << engine.GetLastError();
        EXPECT_NE(result.find(one.country), std::string::npos) << one.part << result;
        EXPECT_NE(result.find(one.part), std::string::npos) << one.part << result;
    }
}

}  // namespace
