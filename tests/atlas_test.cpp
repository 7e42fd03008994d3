// The sample: every ready request gives through the command what it gives through the library.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <halvtiv/halvtiv.hpp>
#include <halvtiv_exporters/exporters.hpp>
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

/// A copy of the database in a folder of its own, where the requests find the folder that they write into.
class Copy {
public:
    explicit Copy(const std::string& name)
        : folder_(fs::path(testing::TempDir()) / ("halvtiv-atlas-" + name)) {
        fs::remove_all(folder_);
        fs::create_directories(folder_ / "examples/atlas/build");
        fs::copy_file(HALVTIV_ATLAS_DATABASE, folder_ / "atlas.db");
    }
    ~Copy() {
        fs::current_path(fs::temp_directory_path());
        fs::remove_all(folder_);
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    void Enter() const { fs::current_path(folder_); }
    std::string Written(const std::string& name) const {
        return ReadFile(folder_ / "examples/atlas/build" / name);
    }

private:
    fs::path folder_;
};

/// The requests in the order in which they stand in the folder, those that read what others write last.
std::vector<fs::path> Requests() {
    std::vector<fs::path> requests = XmlFilesIn(kAtlas / "requests");
    std::stable_partition(requests.begin(), requests.end(),
                          [](const fs::path& path) { return path.filename() != "remark-photo.xml"; });
    return requests;
}

TEST(AtlasTest, EveryRequestGivesTheSameBytesThroughLibraryAndCommand) {
    const Copy ofLibrary("library");
    const Copy ofCommand("command");
    ofLibrary.Enter();
    halvtiv::ZorbDbAccessEngine engine;
    halvtiv::exporters::AddAllExporters(engine);
    ASSERT_TRUE(engine.SetDatabaseConnection_MDBFile("atlas.db", "", "")) << engine.GetLastError();
    std::string command = std::string("'") + HALVTIV_COMMAND + "' run --db atlas.db";
    for (const fs::path& file : XmlFilesIn(kAtlas)) {
        std::string report;
        ASSERT_TRUE(engine.LoadFunctionDefs(file.string(), report)) << engine.GetLastError();
        EXPECT_NE(report.find("(0 failed"), std::string::npos) << report;
        command += " --defs '" + file.string() + "'";
    }

    int answered = 0;
    for (const fs::path& request : Requests()) {
        SCOPED_TRACE(request.filename().string());
        const std::string text = ReadFile(request);
        const bool isTransaction = text.find("<transaction") != std::string::npos;
        std::string result;
        ofLibrary.Enter();
        const bool ran =
            isTransaction ? engine.RunTransaction(text, result) : engine.RunFunction(text, result);
        const std::string name = request.filename().string();
        const bool isRefused = name.starts_with("fails") && name != "fails-bad-sql.xml";
        EXPECT_EQ(ran, !isRefused) << engine.GetLastError();
        EXPECT_EQ(engine.GetLastError().empty(), !name.starts_with("fails")) << engine.GetLastError();
        ofCommand.Enter();
        EXPECT_EQ(OutputOf(command + " '" + request.string() + "' 2>/dev/null"), result);
        answered += ran ? 1 : 0;
    }
    EXPECT_GE(answered, 20);
    // Half of fails-halfway.xml would be a visit to Peru.
    const std::string visits =
        OutputOf(command + " --format csv '" + (kAtlas / "requests/visits.xml").string() + "'");
    EXPECT_NE(visits.find("IS,Iceland,2,2024-06-21 00:00:00\r\nJP,Japan,2,2024-05-17 09:30:00\r\n"),
              std::string::npos)
        << visits;
    EXPECT_EQ(visits.find("PE"), std::string::npos) << visits;

    const std::string photo = ofCommand.Written("photo-ci.png");
    EXPECT_TRUE(photo.starts_with("\x89PNG")) << photo.size();
    EXPECT_EQ(photo, ofCommand.Written("flag-ci.png"));
    EXPECT_EQ(ofCommand.Written("nepal.png"), ofLibrary.Written("nepal.png"));
    EXPECT_TRUE(
        ofCommand.Written("countries.csv").starts_with("alpha2,alpha3,numeric,name,emoji\r\nAD,AND,20,"));
    EXPECT_EQ(ofCommand.Written("countries.csv"), ofLibrary.Written("countries.csv"));
    EXPECT_EQ(ofCommand.Written("countries.xml"), ofLibrary.Written("countries.xml"));
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
