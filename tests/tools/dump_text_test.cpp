// `zeldicom dump` as text: what a reader of the tree sees, how bad files are
// reported, and that big files cost neither time nor memory.
#include <gtest/gtest.h>

#include <algorithm>

#include "dicomdata/parse_fixtures.h"
#include "dump_run.h"

using namespace parsefix;

namespace {
const std::string kSample = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";

// The first line that begins (after its indent) with the tag, or "".
std::string LineOf(const std::vector<std::string>& lines, const std::string& tag, size_t from = 0)
{
    for (size_t i = from; i < lines.size(); ++i)
        if (lines[i].find_first_not_of(' ') != std::string::npos && lines[i].compare(lines[i].find_first_not_of(' '), tag.size(), tag) == 0)
            return lines[i];
    return {};
}

size_t IndexOf(const std::vector<std::string>& lines, const std::string& tag, size_t from = 0)
{
    for (size_t i = from; i < lines.size(); ++i)
        if (lines[i].find(tag) != std::string::npos)
            return i;
    return lines.size();
}

size_t IndentOf(const std::string& line)
{
    return line.find_first_not_of(' ');
}
}

TEST(DumpText, SampleShowsMetaInformationNestingAndValues)
{
    CliResult run = RunCli({"dump", kSample});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_TRUE(run.err.empty()) << run.err;
    std::vector<std::string> lines = Lines(run.out);

    size_t meta = IndexOf(lines, "# File meta information");
    size_t data = IndexOf(lines, "# Data set");
    ASSERT_LT(meta, data);
    size_t syntax = IndexOf(lines, "(0002,0010)");
    EXPECT_GT(syntax, meta);
    EXPECT_LT(syntax, data);
    EXPECT_NE(lines[syntax].find("UI [1.2.840.10008.1.2.1]"), std::string::npos) << lines[syntax];

    std::string name = LineOf(lines, "(0010,0010)");
    EXPECT_NE(name.find("PN [Doe^Jane^^Ms]"), std::string::npos) << name;
    EXPECT_NE(name.find("Patient's Name"), std::string::npos) << name;
    EXPECT_NE(name.find("# 12,"), std::string::npos) << name;
    EXPECT_NE(LineOf(lines, "(0028,0010)").find("US 16 "), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0020,0032)").find("[-120.0\\-120.0\\35.5]"), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0009,1001)").find("LO [private value]"), std::string::npos);

    // Undefined-length sequence: item and both delimiters, each one level deeper.
    size_t sq = IndexOf(lines, "(0008,1032)");
    ASSERT_LT(sq + 6, lines.size());
    EXPECT_NE(lines[sq].find("SQ"), std::string::npos);
    EXPECT_NE(lines[sq].find("u/l"), std::string::npos);
    EXPECT_EQ(lines[sq + 1].substr(IndentOf(lines[sq + 1]), 11), "(FFFE,E000)");
    EXPECT_EQ(IndentOf(lines[sq + 1]), IndentOf(lines[sq]) + 2);
    EXPECT_NE(lines[sq + 2].find("(0008,0100) SH [CTHEAD]"), std::string::npos);
    EXPECT_EQ(IndentOf(lines[sq + 2]), IndentOf(lines[sq]) + 4);
    EXPECT_NE(lines[sq + 5].find("(FFFE,E00D)"), std::string::npos);
    EXPECT_EQ(IndentOf(lines[sq + 5]), IndentOf(lines[sq]) + 4);
    EXPECT_NE(lines[sq + 6].find("(FFFE,E0DD)"), std::string::npos);
    EXPECT_EQ(IndentOf(lines[sq + 6]), IndentOf(lines[sq]) + 2);
    // The next element is back at the data set's level.
    EXPECT_EQ(lines[sq + 7].substr(0, 11), "(0008,103E)");

    // Pixel data: a 16-byte preview, the cut marker, the full length.
    std::string pixels = LineOf(lines, "(7FE0,0010)");
    EXPECT_NE(pixels.find("OW 18 00 18 00 18 00 18 00 18 00 18 00 18 00 18 00 ..."), std::string::npos) << pixels;
    EXPECT_NE(pixels.find("# 512,"), std::string::npos) << pixels;
}

TEST(DumpText, BadFilesGetOneErrorLineAndTheOthersAreStillDumped)
{
    std::string notDicom = TempPath("not-dicom.txt");
    ASSERT_TRUE(WriteBytes(notDicom, Bytes(300, 'x')));
    std::string truncated = TempPath("truncated.dcm");
    std::string sample = ReadText(kSample);
    Bytes whole(sample.begin(), sample.end());
    ASSERT_GT(whole.size(), 1000u);
    ASSERT_TRUE(WriteBytes(truncated, Bytes(whole.begin(), whole.end() - 100)));

    CliResult run = RunCli({"dump", "/nonexistent/a.dcm", kSample, notDicom, truncated, kSample});
    EXPECT_NE(run.status, 0);
    std::vector<std::string> errors = Lines(run.err);
    ASSERT_EQ(errors.size(), 3u) << run.err;
    EXPECT_NE(errors[0].find("/nonexistent/a.dcm: "), std::string::npos);
    EXPECT_NE(errors[1].find(notDicom + ": "), std::string::npos);
    EXPECT_NE(errors[1].find("DICM"), std::string::npos);
    EXPECT_NE(errors[2].find(truncated + ": "), std::string::npos);
    EXPECT_NE(errors[2].find("truncated"), std::string::npos);
    // Both good files are dumped in full.
    std::vector<std::string> lines = Lines(run.out);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& l) { return l.rfind("(7FE0,0010)", 0) == 0; }),
              2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "# " + kSample), 2);

    EXPECT_EQ(RunCli({"dump"}).status, 2);
    EXPECT_EQ(RunCli({"dump", "--no-such-option", kSample}).status, 2);
    CliResult help = RunCli({"dump", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--json"), std::string::npos);
    std::remove(notDicom.c_str());
    std::remove(truncated.c_str());
}

TEST(DumpText, LongValuesAreCutNumbersAreNumbersAndEveryElementIsOneLine)
{
    std::string report(10000, 'r');
    report[5] = '\n';
    report[9] = '\r';
    Bytes floats = {0x00, 0x00, 0xC0, 0x3F};                          // FL 1.5
    Bytes doubles = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0xC0};  // FD -2.5
    Bytes shorts = {0xFB, 0xFF};                                      // SS -5
    Bytes tags = {0x10, 0x00, 0x10, 0x00, 0x28, 0x00, 0x00, 0x01};    // AT (0010,0010)\(0028,0100)
    Bytes many;
    for (uint16_t i = 0; i < 100; ++i)
        put16(many, i);
    Bytes body = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0018, 0x6020, "SL", Bytes{0xFE, 0xFF, 0xFF, 0xFF}),
                      elem(0x0028, 0x0009, "AT", tags), elem(0x0028, 0x1201, "US", many),
                      elem(0x0040, 0xA160, "UT", report), elem(0x0070, 0x0010, "FL", floats),
                      elem(0x0018, 0x6028, "FD", doubles), elem(0x6000, 0x0050, "SS", shorts)});
    std::string path = TempPath("values.dcm");
    ASSERT_TRUE(WriteBytes(path, fileImage("1.2.840.10008.1.2.1", body)));
    CliResult run = RunCli({"dump", path});
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::string> lines = Lines(run.out);

    std::string text = LineOf(lines, "(0040,A160)");
    EXPECT_NE(text.find("UT [rrrrr rrr rrr"), std::string::npos) << text;  // CR and LF shown as blanks
    EXPECT_NE(text.find("]..."), std::string::npos) << text;
    EXPECT_LT(text.size(), 200u);
    EXPECT_NE(text.find("# 10000,"), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0018,6020)").find("SL -2 "), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0028,0009)").find("AT (0010,0010)\\(0028,0100) "), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0070,0010)").find("FL 1.5 "), std::string::npos);
    EXPECT_NE(LineOf(lines, "(0018,6028)").find("FD -2.5 "), std::string::npos);
    EXPECT_NE(LineOf(lines, "(6000,0050)").find("SS -5 "), std::string::npos);
    std::string list = LineOf(lines, "(0028,1201)");
    EXPECT_NE(list.find("US 0\\1\\2\\3\\"), std::string::npos) << list;
    EXPECT_NE(list.find("\\15\\... (100 values)"), std::string::npos) << list;
    EXPECT_EQ(list.find("\\16\\"), std::string::npos) << list;
    // 8 data set elements, 2 meta elements, 2 headings: nothing spills onto extra lines.
    EXPECT_EQ(lines.size(), 12u) << run.out;
    std::remove(path.c_str());
}

TEST(DumpText, A512MiBFileIsDumpedWithoutReadingItsPixels)
{
    constexpr uint32_t kPixelBytes = 512u * 1024u * 1024u;
    Bytes body = cat({elem(0x0028, 0x0010, "US", us(16384)), elem(0x0028, 0x0011, "US", us(16384)),
                      elem(0x0028, 0x0100, "US", us(16)), elem(0x7FE0, 0x0010, "OW", Bytes{0x2A, 0x00}, kPixelBytes)});
    Bytes image = fileImage("1.2.840.10008.1.2.1", body);
    std::string path = TempPath("large.dcm");
    ASSERT_TRUE(WriteBytes(path, image));
    // The rest of the pixel data is a hole in a sparse file: nothing is
    // written, and reading it all would still cost 512 MiB of page faults.
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(image.size() - 2 + kPixelBytes)), 0);

    CliResult run = RunCli({"dump", path});
    std::remove(path.c_str());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("OW 2a 00 00 00"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("# 536870912,"), std::string::npos) << run.out;
    // Touching the pixel data would fault its pages in; the resident size
    // shows it was left alone. (Its speed is measured by the benchmarks.)
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(run.maxResidentKiB, 16 * 1024) << "resident KiB";
#endif
    RecordProperty("seconds", std::to_string(run.seconds));
    RecordProperty("max_resident_kib", std::to_string(run.maxResidentKiB));
}
