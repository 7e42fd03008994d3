#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <halvtiv/error_info.hpp>
#include <halvtiv/output_file.hpp>
#include <sstream>
#include <stdexcept>

#include "platform/date_time.hpp"
#include "platform/files.hpp"
#include "platform/guid.hpp"
#include "platform/keywords.hpp"
#include "platform/number.hpp"
#include "platform/plain_xml.hpp"
#include "platform/run_time_error.hpp"
#include "platform/spool_file.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"
#include "xml_transcript.hpp"

namespace halvtiv::platform {
namespace {

using namespace std::string_literals;
using test::Parsed;
using test::Transcript;

template <typename Action>
std::int32_t RaisedNumber(Action action) {
    try {
        action();
    } catch (const ErrorInfo& error) {
        EXPECT_EQ(error.Source, "HalvTiv");
        return error.Number;
    }
    return 0;
}

std::string TreeText(const pugi::xml_document& document) {
    std::ostringstream out;
    document.save(out, "", pugi::format_raw | pugi::format_no_declaration);
    return out.str();
}

std::string Read(std::string_view text) {
    pugi::xml_document document;
    return LoadXmlText(text, document) ? TreeText(document) : "refused";
}

std::string ReadFile(std::string_view bytes) {
    pugi::xml_document document;
    return LoadXmlFileBytes(bytes, document) ? TreeText(document) : "refused";
}

std::string Encoded(std::string text, const char* encoding) {
    iconv_t converter = iconv_open(encoding, "UTF-8");
    std::string bytes(text.size() * 4 + 16, '\0');
    char* from = text.data();
    char* to = bytes.data();
    std::size_t left = text.size();
    std::size_t room = bytes.size();
    EXPECT_EQ(iconv(converter, &from, &left, &to, &room), 0U) << encoding;
    iconv_close(converter);
    bytes.resize(bytes.size() - room);
    return bytes;
}

std::string Nested(int depth) {
    std::string text;
    for (int level = 0; level < depth; ++level) text += "<a>";
    for (int level = 0; level < depth; ++level) text += "</a>";
    return text;
}

TEST(XmlReading, RefusesWhatIsNotWellFormed) {
    // clang-format off
    const std::string cases[] = {
        "", " ", "x", "<", "<a>", "<a></b>", "<a/><b/>", "<a/>x", "x<a/>", "<a/>\0"s, "<a x='1' x='2'/>",
        "<a x=1/>", "<a x='<'/>", "<a>&b;</a>", "<a b='&c;'/>", "<a>&#0;</a>", "<a>&#xD800;</a>",
        "<a>&#xFFFE;</a>", "<a>\x01</a>", "<a>\0</a>"s, "<a>]]></a>", "<a><!-- -- --></a>", "<a>&amp</a>",
        " <?xml version='1.0'?><a/>", "<?xml version='2.0'?><a/>", "<a>\xC0\x80</a>", "<a>\xE0\x80\x80</a>",
        "<a>\xF0\x80\x80\x80</a>", "<a>\xED\xA0\x80</a>", "<a>\xF4\x90\x80\x80</a>", "<a>\xE4\xB8</a>",
        "<a>\xFF</a>", "<a>\x80</a>", "<a>\xEF\xBF\xBF</a>", "<!DOCTYPE a><a/>",
        "<!DOCTYPE a [<!ENTITY b 'c'>]><a>&b;</a>", "<!DOCTYPE a SYSTEM 'b'><a/>",
        "\xEF\xBB\xBF\xEF\xBB\xBF<a/>", "<a>\xEF\xBB\xBF"};
    // clang-format on
    for (const std::string& text : cases) EXPECT_EQ(Read(text), "refused") << text;
    EXPECT_NE(Read(Nested(256)), "refused");
    EXPECT_EQ(Read(Nested(257)), "refused");
}

TEST(XmlReading, KeepsWhatTheTextMeans) {
    // clang-format off
    const std::pair<std::string, std::string> cases[] = {
        {"<?xml version='1.0' encoding='GBK'?>\n<a>\xC3\xA9</a>\n<!--out--><?out?>", "<a>\xC3\xA9</a>"},
        {"\xEF\xBB\xBF<a/>", "<a/>"}, {"<a> \r\n <b/>\t<c> x </c> </a>", "<a><b/><c> x </c></a>"},
        {"<a>1<![CDATA[<&>]]>2&lt;&#65;</a>", "<a>1&lt;&amp;&gt;2&lt;A</a>"},
        {"<a><![CDATA[ ]]>&#32;</a>", "<a/>"}, {"<a><![CDATA[ ]]>\nx</a>", "<a> \nx</a>"},
        {"<a>x<!-- c -->y<?p  d ?\?>z<?q?></a>", "<a>x<!-- c -->y<?p d ?\?>z<?q ?></a>"},
        {"<a b='\"&amp;&lt;&apos;>'/>", "<a b=\"&quot;&amp;&lt;'>\"/>"},
        {"<a b='1\r\n2\t3'/>", "<a b=\"1 2 3\"/>"}, {"<n:a n:b='c'/>", "<n:a n:b=\"c\"/>"}};
    // clang-format on
    for (const auto& [text, tree] : cases) EXPECT_EQ(Read(text), tree) << text;

    pugi::xml_document document;
    ASSERT_TRUE(LoadXmlText("<a b='&#13;&#10;&#9;'>\r\nx&#13;<![CDATA[y]]></a>", document));
    EXPECT_STREQ(document.child("a").attribute("b").value(), "\r\n\t");
    EXPECT_STREQ(document.child("a").first_child().value(), "\nx\ry");
    EXPECT_EQ(document.child("a").first_child().next_sibling(), pugi::xml_node());
    ASSERT_FALSE(LoadXmlText("<a>", document));
    EXPECT_TRUE(document.first_child().empty());
}

TEST(XmlReading, TellsPlainDocumentsInTheParsersWords) {
    const std::string documents[] = {
        "<f n=\"a\" g='\"1>'><p x = \"\"\n/>\r\n<q-1.>\xE4\xB8\xAD x </q-1.>,<r\ty='z'></r> </f>\n",
        "<a><b> \xF0\x9F\x98\x80\t</b ><b c=\"\xC3\xA9\" d=\"e\"/></a>"};
    const std::string bytes = "<>/=\"'&];! \t\r\n?-.:_a1#\x01\x7F\x80\xC3\xED\xEF\xF0\0"s;
    int plain = 0;
    const auto check = [&](const std::string& text) {
        Transcript transcript;
        if (!ReadPlainXml(text, transcript)) {
            EXPECT_EQ(transcript.words.str(), "") << text;
        } else {
            ++plain;
            EXPECT_EQ(transcript.words.str(), Parsed(text)) << text;
        }
    };
    for (const std::string& document : documents) {
        for (std::size_t at = 0; at <= document.size(); ++at) {
            check(document.substr(0, at));
            check(document.substr(at));
            check(document.substr(0, at) + document.substr(std::min(at + 1, document.size())));
            for (const char byte : bytes) {
                std::string changed = document;
                check(changed.insert(at, 1, byte));
                changed.erase(std::min(at + 1, changed.size() - 1), 1);
                check(changed);
            }
        }
    }
    EXPECT_GT(plain, 1000);

    // clang-format off
    const std::string declined[] = {
        "<a b='1' b='2'/>", "<a b='1'c='2'/>", "<a>&amp;</a>", "<a b='&lt;'/>", "<a b='1\n2'/>", "<a>1\r\n2</a>", "<a>]]></a>",
        "<a><!----></a>", "<?xml version='1.0'?><a/>", "<a/><b/>", "<a>\xED\xA0\x80</a>", "\xEF\xBB\xBF<a/>", Nested(9),
        "<a b='" + std::string(20000, 'x') + "'/>"};
    // clang-format on
    for (const std::string& text : declined) {
        Transcript transcript;
        EXPECT_FALSE(ReadPlainXml(text, transcript)) << text;
    }
    Transcript transcript;
    EXPECT_TRUE(ReadPlainXml("<f name='a'><param name='b' value='c'/></f>", transcript));
}

TEST(XmlReading, TakesUtf16ByItsFirstBytes) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"utf-16\"?><a>\xE4\xB8\xAD\xF0\x9F\x98\x80</a>";
    for (const char* encoding : {"UTF-16LE", "UTF-16BE"}) {
        const std::string bytes = Encoded(text, encoding);
        const std::string mark = Encoded("\xEF\xBB\xBF", encoding);
        const std::string tree = "<a>\xE4\xB8\xAD\xF0\x9F\x98\x80</a>";
        EXPECT_EQ(Read(bytes), tree) << encoding;
        EXPECT_EQ(Read(mark + bytes), tree) << encoding;
        EXPECT_EQ(ReadFile(mark + bytes), tree) << encoding;
        EXPECT_EQ(Read(mark + mark + bytes), "refused") << encoding;
        EXPECT_EQ(Read(bytes.substr(0, bytes.size() - 1)), "refused") << encoding;
    }
    EXPECT_EQ(Read("<\0a\0>\0\x00\xD8<\0/\0a\0>\0"s), "refused");
}

TEST(XmlReading, TakesAFileInItsDeclaredEncoding) {
    const auto declaring = [](std::string name, std::string word) {
        return Encoded("<?xml version='1.0' encoding='" + name + "'?><a>" + word + "</a>", name.c_str());
    };
    const std::string chinese = "\xE4\xB8\xAD\xE6\x96\x87";
    EXPECT_EQ(ReadFile(declaring("GBK", chinese)), "<a>" + chinese + "</a>");
    EXPECT_EQ(ReadFile(declaring("ISO-2022-JP", "\xE6\x97\xA5")), "<a>\xE6\x97\xA5</a>");
    EXPECT_EQ(ReadFile(declaring("ISO-8859-1", "\xC3\xA9")), "<a>\xC3\xA9</a>");
    EXPECT_EQ(ReadFile(declaring("windows-1252", "\xE2\x82\xAC")), "<a>\xE2\x82\xAC</a>");
    EXPECT_EQ(ReadFile(Encoded("\xEF\xBB\xBF<a/>", "UTF-32LE")), "<a/>");
    EXPECT_EQ(ReadFile("<a>" + chinese + "</a>"), "<a>" + chinese + "</a>");
    EXPECT_EQ(ReadFile("<a>\xD6\xD0</a>"), "refused");
    EXPECT_EQ(ReadFile("<?xml version='1.0' encoding='windows-1252'?><a>\x81</a>"), "refused");
    EXPECT_EQ(ReadFile("<?xml version='1.0' encoding='no-such'?><a/>"), "refused");
    EXPECT_EQ(ReadFile("<?xml version='1.0' encoding='GBK//IGNORE'?><a/>"), "refused");
    EXPECT_EQ(ReadFile(""), "refused");
}

TEST(XmlReading, PassesTheHandlersExceptionThroughAndCanReadAgain) {
    struct Thrower : XmlHandler {
        void StartElement(std::string_view, std::span<const XmlAttribute>) override {}
        void EndElement(std::string_view) override { throw std::runtime_error("enough"); }
        void Text(std::string_view) override {}
        void Comment(std::string_view) override {}
        void ProcessingInstruction(std::string_view, std::string_view) override {}
    } thrower;
    EXPECT_THROW(ReadXmlText("<a><b/><c/></a>", thrower), std::runtime_error);
    EXPECT_EQ(Read("<a><b/></a>"), "<a><b/></a>");
}

TEST(TextRules, CaseIsUnicodeAndBadBytesStay) {
    EXPECT_EQ(ToLower("ABC \xC3\x84\xD0\x96 z\xFF"), "abc \xC3\xA4\xD0\xB6 z\xFF");
    EXPECT_EQ(ToUpper("stra\xC3\x9F\x65 \xC3\xA4"), "STRA\xC3\x9F\x45 \xC3\x84");
    EXPECT_TRUE(EqualIgnoringCase("Gr\xC3\x9C\x45n", "gR\xC3\xBC\x65N"));
    EXPECT_TRUE(EqualIgnoringCase("\xE2\x84\xAA", "k"));  // the Kelvin sign
    EXPECT_FALSE(EqualIgnoringCase("a", "ab"));
    EXPECT_EQ(TrimBlanks("  \ta  "), "\ta");
    EXPECT_EQ(TrimBlanks("   "), "");
    EXPECT_EQ(ReplaceAll("aaa", "aa", "b"), "ba");
    EXPECT_EQ(ReplaceAll("abc", "", "x"), "abc");
    EXPECT_EQ(ReplaceAllIgnoringCase("x%Id%%ID", "%id%", "7"), "x7%ID");
}

TEST(TextRules, KnowsWhatXmlCanCarry) {
    const std::string good = "0123456789abcdef\t\r\n\x7F\xC3\xA4\xE4\xB8\xAD\xF0\x9F\x98\x80";
    EXPECT_TRUE(IsXmlText(good));
    EXPECT_EQ(RepairXmlText(good), good);
    for (const std::string& bad : {"\0"s, "\x1F"s, "\xC3"s, "\xED\xA0\x80"s, "\xEF\xBF\xBE"s}) {
        for (std::size_t at = 0; at < 40; ++at) {
            const std::string before(at, 'x');
            EXPECT_FALSE(IsXmlText(before + bad + "0123456789abcdef"));
            EXPECT_EQ(RepairXmlText(before + bad + "y"), before + "\xEF\xBF\xBDy");
        }
    }
    EXPECT_EQ(RepairXmlText("\xC0\x80"), "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(Numbers, AreReadByOneRule) {
    // clang-format off
    const std::pair<const char*, double> good[] = {
        {"12", 12}, {" -1.5 ", -1.5}, {"+5.", 5}, {".5", 0.5}, {"1e3", 1000}, {"1E-400", 0}, {"0e999", 0},
        {"1e308", 1e308}, {"5e-324", 5e-324}, {"0.00000000000000000001e20", 1}, {"1e-99999999999999999999", 0}};
    // clang-format on
    for (const auto& [text, value] : good) EXPECT_EQ(ParseNumber(text), value) << text;
    for (const char* text : {"", ".", "+", "e5", "1e", "1e+", "1e400", "-1e99999999999999999999", "inf",
                             "nan", "0x1", "1,000", "1 2", "--1", "+-1", "1.2.3", "\t1", "1f"}) {
        EXPECT_EQ(ParseNumber(text), std::nullopt) << text;
    }
}

TEST(Numbers, AreRoundedHalfToEven) {
    // clang-format off
    const std::pair<const char*, std::int32_t> good[] = {
        {"2.5", 2}, {"3.5", 4}, {"-2.5", -2}, {"-0.5", 0}, {"-1.5", -2}, {"2.51", 3},
        {"2147483647.4", 2147483647}, {"-2147483648.5", -2147483647 - 1}};
    // clang-format on
    for (const auto& [text, value] : good) EXPECT_EQ(TextToInt32(text), value) << text;
    EXPECT_EQ(RaisedNumber([] { TextToInt32("2147483647.5"); }), 6);
    EXPECT_EQ(RaisedNumber([] { TextToInt32("x"); }), 13);
    EXPECT_EQ(RaisedNumber([] { RoundToInt32(std::nan("")); }), 6);
}

TEST(Numbers, AreWrittenShortest) {
    char buffer[kNumberTextSize];
    // clang-format off
    const std::pair<double, const char*> cases[] = {
        {0.1, "0.1"}, {3, "3"}, {100000, "100000"}, {1e20, "100000000000000000000"}, {1e21, "1e+21"},
        {-1.2345678901234567e-6, "-0.0000012345678901234567"}, {1e-7, "1e-07"}, {INFINITY, "inf"},
        {-1.7976931348623157e308, "-1.7976931348623157e+308"}};
    // clang-format on
    for (const auto& [value, text] : cases) EXPECT_EQ(DoubleText(value, buffer), text);
    EXPECT_EQ(IntegerText(INT64_MIN, buffer), "-9223372036854775808");
    EXPECT_EQ(HexPadded(255, 4), "00FF");
    EXPECT_EQ(HexPadded(65535, 2), "FFFF");
}

TEST(Dates, AreReadAndWrittenBack) {
    // clang-format off
    const std::pair<const char*, const char*> good[] = {
        {"2024-02-29", "2024-02-29"}, {" 2024/12/31 ", "2024-12-31"}, {"23:59", "23:59:00"},
        {"2024-01-02T03:04:05.670Z", "2024-01-02 03:04:05.67"},
        {"2024-01-02 03:04:05+05:30", "2024-01-02 03:04:05"},
        {"2024-01-02 03:04:05-08", "2024-01-02 03:04:05"},
        {"0001-01-01 00:00:00.000000001", "0001-01-01 00:00:00.000000001"}};
    // clang-format on
    char buffer[kDateTimeTextSize];
    for (const auto& [text, written] : good) {
        const auto parsed = ParseDateTime(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(DateTimeText(parsed->value, buffer), written);
    }
    EXPECT_TRUE(ParseDateTime("10:00:00+0100")->hasOffset);
    EXPECT_FALSE(ParseDateTime("10:00:00")->hasOffset);
    // clang-format off
    const char* const bad[] = {
        "", "2023-02-29", "1900-02-29", "2024-13-01", "2024-00-01", "2024-1-1", "2024-01/02", "24:00",
        "12:60", "12:00:60", "12", "2024-01-02  03:04", "2024-01-02Z", "0000-01-01", "12:00:00.",
        "12:00:00.1234567890", "2024-01-02 ", "12:00+5", "12:00 Z", "2024-01-02x"};
    // clang-format on
    for (const char* text : bad) {
        EXPECT_EQ(ParseDateTime(text).has_value(), "2024-01-02 "s == text) << text;
    }
    for (const char* text : {"2024-02-29 23:59:59", "9999-12-31 00:00:00"})
        EXPECT_TRUE(IsPlainTimestamp(text));
    for (const char* text :
         {"2023-02-29 23:59:59", "2024/02/29 23:59:59", "2024-02-29T23:59:59", "2024-02-29 23:59+01"}) {
        EXPECT_FALSE(IsPlainTimestamp(text)) << text;
    }
    for (const char byte : {'/', ':', '\x80', '\xB0', '\0'}) {
        for (std::size_t at = 0; at < 19; ++at) {
            std::string text = "2024-02-29 23:59:59";
            text[at] = byte;
            EXPECT_EQ(IsPlainTimestamp(text), text == "2024-02-29 23:59:59") << text;
        }
    }
}

class Files : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "halvtiv-files.XXXXXX").string();
        ASSERT_NE(mkdtemp(name.data()), nullptr);
        folder_ = name;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::string Path(const char* name) const { return (folder_ / name).string(); }
    std::ptrdiff_t Count() const {
        return std::distance(std::filesystem::directory_iterator(folder_),
                             std::filesystem::directory_iterator());
    }
    std::filesystem::path folder_;
};

TEST_F(Files, ErrorsTellWhatIsWrongWithThePath) {
    EXPECT_EQ(RaisedNumber([&] { ReadWholeFile(Path("absent")); }), 53);
    EXPECT_EQ(RaisedNumber([&] { ReadWholeFile(Path("no/file")); }), 76);
    EXPECT_EQ(RaisedNumber([&] { ReadWholeFile(folder_.string()); }), 75);
    EXPECT_EQ(RaisedNumber([&] { ReadWholeFile("a\0b"s); }), 75);
    EXPECT_EQ(RaisedNumber([&] { OutputFile file(Path("no\\file")); }), 76);
    EXPECT_EQ(RaisedNumber([&] { OutputFile file(folder_.string()); }), 75);
    EXPECT_EQ(RaisedNumber([] { OutputFile file(""); }), 76);
    EXPECT_TRUE(FolderExists(LibraryFolder()));
    EXPECT_EQ(MakeRunTimeError(RunTimeError::FileNotFound, "x").Description, "File not found. (x)");
}

TEST_F(Files, AnOutputFileAppearsOnlyWhenCommitted) {
    const std::string path = Path("out");
    const std::string large(200'000, 'x');
    {
        OutputFile file(path);
        file.Write("lost");
    }
    EXPECT_EQ(Count(), 0);
    OutputFile(path).Commit();
    ASSERT_EQ(chmod(path.c_str(), 0640), 0);
    std::filesystem::create_symlink("out", Path("link"));
    OutputFile file(folder_.string() + "\\link");
    file.Write("a");
    file.Write(large);
    file.Write("b");
    EXPECT_EQ(ReadWholeFile(path), "");
    file.Commit();
    EXPECT_EQ(ReadWholeFile(path), "a" + large + "b");
    EXPECT_TRUE(std::filesystem::is_symlink(Path("link")));
    EXPECT_EQ(static_cast<int>(std::filesystem::status(path).permissions()), 0640);
    EXPECT_EQ(Count(), 2);
    EXPECT_EQ(RaisedNumber([&] { file.Write("late"); }), 57);

    std::filesystem::remove(path);
    OutputFile(Path("link")).Commit();
    EXPECT_TRUE(FileExists(path)) << "a link to nothing yet";
    std::filesystem::create_symlink("loop", Path("loop"));
    EXPECT_EQ(RaisedNumber([&] { OutputFile loop(Path("loop")); }), 75);

    const std::string longName = Path("") + std::string(255, 'n');
    OutputFile longNamed(longName);
    longNamed.Commit();
    EXPECT_TRUE(FileExists(longName));
}

TEST_F(Files, TemporaryFilesArePrivateAndOldOnesAreRemoved) {
    const auto twoDaysAgo = std::filesystem::file_time_type::clock::now() - std::chrono::hours(48);
    for (const char* name : {".out.1.tmp", ".out.2.tmp", ".out.3.tmp", ".other.1.tmp", ".out.0a1b.tmp"}) {
        std::ofstream(Path(name)) << "left";
        if (name != std::string(".out.2.tmp")) std::filesystem::last_write_time(Path(name), twoDaysAgo);
    }
    OutputFile file(Path("out"));
    EXPECT_EQ(file.TemporaryPath(), Path(".out.1.tmp"));
    EXPECT_FALSE(FileExists(Path(".out.3.tmp")));
    EXPECT_EQ(ReadWholeFile(Path(".out.2.tmp")), "left") << "somebody may be writing it";
    EXPECT_TRUE(FileExists(Path(".other.1.tmp")));
    EXPECT_EQ(static_cast<int>(std::filesystem::status(file.TemporaryPath()).permissions()), 0600);
    std::filesystem::last_write_time(file.TemporaryPath(), twoDaysAgo);
    OutputFile second(Path("out")), third(Path("out"));
    EXPECT_EQ(second.TemporaryPath(), Path(".out.3.tmp")) << "the first is still being written";
    EXPECT_TRUE(FileExists(Path(".out.0a1b.tmp")));
    OutputFile fourth(Path("out"));
    EXPECT_FALSE(FileExists(Path(".out.0a1b.tmp"))) << "all four names are in use";
    file.CommitAsNew();
    EXPECT_EQ(RaisedNumber([&] { second.CommitAsNew(); }), 75);
    std::filesystem::remove(third.TemporaryPath());
    std::ofstream(Path(".out.4.tmp")) << "another's";
    EXPECT_EQ(RaisedNumber([&] { third.Commit(); }), 75);
    EXPECT_EQ(ReadWholeFile(Path("out")), "");
    EXPECT_EQ(ReadWholeFile(Path(".out.4.tmp")), "another's");
    fourth.Commit();
    EXPECT_EQ(Count(), 4) << "out, .out.2.tmp, .out.4.tmp and .other.1.tmp";
}

TEST_F(Files, AnOpenFileIsWrittenAndAnotherUsersLinkIsNotFollowed) {
    const std::string path = Path("out");
    const int open = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_EQ(::write(open, "1", 1), 1);
    for (const char* folder : {"/dev/fd/", "/proc/self/fd/"}) {
        OutputFile file(folder + std::to_string(open));
        file.Write("2");
        file.Commit();
    }
    ASSERT_EQ(::write(open, "3", 1), 1);
    ::close(open);
    EXPECT_EQ(ReadWholeFile(path), "1223");

    ASSERT_EQ(::mkdir(Path("shared").c_str(), 0700), 0);
    ASSERT_EQ(::chmod(Path("shared").c_str(), 01777), 0);
    for (const char* target : {"../out", "../missing"}) {
        const std::string link = Path("shared/") + std::to_string(Count());
        std::filesystem::create_symlink(target, link);
        if (::lchown(link.c_str(), 65534, 65534) != 0) GTEST_SKIP() << "needs the right to give files away";
        EXPECT_EQ(RaisedNumber([&] { OutputFile file(link); }), 70) << target;
        std::filesystem::remove(link);
    }
    EXPECT_EQ(ReadWholeFile(path), "1223");
}

TEST_F(Files, AFullDeviceIsReportedAndASpoolFileReadsBack) {
    EXPECT_EQ(RaisedNumber([] {
                  OutputFile file("/dev/full");
                  file.Write("x");
                  file.Commit();
              }),
              61);
    SpoolFile spool;
    for (int count = 0; count < 30'000; ++count) spool.Append("0123456789");
    char bytes[10];
    spool.Read(299'985, bytes, 10);
    EXPECT_EQ(std::string_view(bytes, 10), "5678901234");
    spool.Append("end");
    spool.Read(300'000, bytes, 3);
    EXPECT_EQ(std::string_view(bytes, 3), "end");
    EXPECT_EQ(spool.Size(), 300'003U);
    EXPECT_EQ(RaisedNumber([&] { spool.Read(300'000, bytes, 4); }), 57);
}

TEST(Keywords, APasswordIsNotShownWhateverItsKeywordIsCalled) {
    for (const char* text :
         {"x Passwd=hid", "x pass = hid", "x my_secret:hid", "sslpassword=hid", "x PWD hid", "me:hid@host",
          "db://me:hid@host/x", "me:h@id@host", "x Word=hid", "token=hid"}) {
        EXPECT_EQ(Shown(text).find("h@id"), std::string::npos) << Shown(text);
        EXPECT_EQ(Shown(text).find("hid"), std::string::npos) << Shown(text);
        EXPECT_EQ(HoldsSecret(text), std::string_view(text).find_first_of("=@") != std::string::npos) << text;
    }
    for (const char* text : {"/data/passwords.db", "words", "me@host", "http://host/a:b", "10:30 o'clock"}) {
        EXPECT_EQ(Shown(text), text);
    }
}

TEST(Guids, AreRandomAndOfVersionFour) {
    const auto guid = NewGuid();
    ASSERT_TRUE(guid);
    EXPECT_EQ((*guid)[6] >> 4, 4);
    EXPECT_EQ((*guid)[8] >> 6, 2);
    EXPECT_NE(guid, NewGuid());
}

}  // namespace
}  // namespace halvtiv::platform
