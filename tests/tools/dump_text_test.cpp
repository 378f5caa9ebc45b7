// `zeldicom dump` as text: what a reader of the tree sees, how bad files are
// reported, and that big files cost neither time nor memory.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace testsupport;

namespace {
const std::string kSample = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";

// The index of the first line that begins (after its indent) with start.
size_t Find(const std::vector<std::string>& lines, const std::string& start)
{
    for (size_t i = 0; i < lines.size(); ++i)
        if (size_t indent = lines[i].find_first_not_of(' '); indent != std::string::npos &&
                                                               lines[i].compare(indent, start.size(), start) == 0)
            return i;
    return lines.size();
}
std::string LineOf(const std::vector<std::string>& lines, const std::string& start)
{
    size_t at = Find(lines, start);
    return at < lines.size() ? lines[at] : std::string();
}
}

// The sample as text; with --keywords, the keyword column dcmdump users grep
// instead of the name, the layout otherwise the same, elements without a
// keyword keeping their names.
TEST(DumpText, SampleShowsMetaInformationNestingAndValues)
{
    CliResult run = RunCli({"dump", kSample}), keywords = RunCli({"dump", "--keywords", kSample});
    ASSERT_EQ(run.status, 0) << run.err;
    ASSERT_EQ(keywords.status, 0) << keywords.err;
    EXPECT_TRUE(run.err.empty()) << run.err;
    std::vector<std::string> lines = Lines(run.out), keyworded = Lines(keywords.out);
    ASSERT_EQ(lines.size(), keyworded.size());
    for (size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].substr(0, lines[i].find(" # ")), keyworded[i].substr(0, keyworded[i].find(" # ")));
    for (const char* shown : {"(0010,0010) PN [Doe^Jane^^Ms]                            # 12, 1 PatientName\n",
                              "# 14, 1 Private\n", "# 0, 1 Item Delimitation Item\n"})
        EXPECT_NE(keywords.out.find(shown), std::string::npos) << shown;
    size_t meta = Find(lines, "# File meta information"), data = Find(lines, "# Data set");
    size_t syntax = Find(lines, "(0002,0010)");
    ASSERT_LT(data, lines.size());
    EXPECT_TRUE(meta < syntax && syntax < data);
    EXPECT_NE(lines[syntax].find("UI [1.2.840.10008.1.2.1]"), std::string::npos) << lines[syntax];

    for (const auto& [tag, shown] : {std::pair{"(0010,0010)", "PN [Doe^Jane^^Ms]"}, {"(0010,0010)", "Patient's Name"},
                                     {"(0010,0010)", "# 12,"}, {"(0028,0010)", "US 16 "},
                                     {"(0020,0032)", "[-120.0\\-120.0\\35.5]"}, {"(0009,1001)", "LO [private value]"}})
        EXPECT_NE(LineOf(lines, tag).find(shown), std::string::npos) << LineOf(lines, tag);

    // Undefined-length sequence: item and both delimiters, each one level
    // deeper, then the next element back at the data set's level.
    size_t sq = Find(lines, "(0008,1032)");
    ASSERT_LT(sq + 7, lines.size());
    EXPECT_NE(lines[sq].find("SQ"), std::string::npos);
    EXPECT_NE(lines[sq].find("u/l"), std::string::npos);
    const std::pair<size_t, std::string> nested[] = {{1, "  (FFFE,E000)"}, {2, "    (0008,0100) SH [CTHEAD]"},
                                                     {5, "    (FFFE,E00D)"}, {6, "  (FFFE,E0DD)"}, {7, "(0008,103E)"}};
    for (const auto& [offset, start] : nested)
        EXPECT_EQ(lines[sq + offset].substr(0, start.size()), start) << lines[sq + offset];

    // Pixel data: a 16-byte preview, the cut marker, the full length.
    std::string pixels = LineOf(lines, "(7FE0,0010)");
    EXPECT_NE(pixels.find("OW 18 00 18 00 18 00 18 00 18 00 18 00 18 00 18 00 ..."), std::string::npos) << pixels;
    EXPECT_NE(pixels.find("# 512,"), std::string::npos) << pixels;
}

TEST(DumpText, BadFilesGetOneErrorLineAndTheOthersAreStillDumped)
{
    ScratchFolder folder("dump-bad");
    std::string notDicom = folder.path + "/not-dicom.txt", truncated = folder.path + "/truncated.dcm";
    ASSERT_TRUE(WriteFile(notDicom, Bytes(300, 'x')));
    Bytes whole = ReadFile(kSample);
    ASSERT_GT(whole.size(), 1000u);
    ASSERT_TRUE(WriteFile(truncated, Bytes(whole.begin(), whole.end() - 100)));

    CliResult run = RunCli({"dump", "/nonexistent/a.dcm", kSample, notDicom, truncated, kSample});
    EXPECT_NE(run.status, 0);
    std::vector<std::string> errors = Lines(run.err);
    ASSERT_EQ(errors.size(), 3u) << run.err;
    EXPECT_NE(errors[0].find("/nonexistent/a.dcm: "), std::string::npos);
    EXPECT_NE(errors[1].find(notDicom + ": "), std::string::npos);
    EXPECT_NE(errors[1].find("DICM"), std::string::npos);
    EXPECT_NE(errors[2].find(truncated + ": "), std::string::npos);
    EXPECT_NE(errors[2].find("truncated: reading stopped at element (7FE0,0010), byte offset "), std::string::npos)
        << errors[2];
    // Both good files are dumped in full, the cut one up to its pixel data.
    std::vector<std::string> lines = Lines(run.out);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), [](const std::string& l) { return l.rfind("(7FE0,0010)", 0) == 0; }),
              3);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "# " + kSample), 2);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "# " + truncated), 1);
    // JSON is written whole or not at all.
    CliResult json = RunCli({"dump", "--json", truncated});
    EXPECT_EQ(json.status, 1);
    EXPECT_EQ(json.out, "");

    EXPECT_EQ(RunCli({"dump"}).status, 2);
    EXPECT_EQ(RunCli({"dump", "--no-such-option", kSample}).status, 2);
    CliResult help = RunCli({"dump", "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_NE(help.out.find("--json"), std::string::npos);
}

TEST(DumpText, LongValuesAreCutNumbersAreNumbersAndEveryElementIsOneLine)
{
    std::string report(10000, 'r');
    report[5] = '\n';
    report[9] = '\r';
    Bytes many;
    for (uint16_t i = 0; i < 100; ++i)
        put16(many, i);
    Bytes body = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0018, 0x6020, "SL", Bytes{0xFE, 0xFF, 0xFF, 0xFF}),
                      elem(0x0028, 0x0009, "AT", Bytes{0x10, 0x00, 0x10, 0x00, 0x28, 0x00, 0x00, 0x01}),
                      elem(0x0028, 0x1201, "US", many), elem(0x0040, 0xA160, "UT", report),
                      elem(0x0070, 0x0010, "FL", Bytes{0x00, 0x00, 0xC0, 0x3F}),
                      elem(0x0018, 0x6028, "FD", Bytes{0, 0, 0, 0, 0, 0, 0x04, 0xC0}),
                      elem(0x6000, 0x0050, "SS", Bytes{0xFB, 0xFF})});
    ScratchFolder folder("dump-values");
    ASSERT_TRUE(WriteFile(folder.path + "/values.dcm", fileImage("1.2.840.10008.1.2.1", body)));
    CliResult run = RunCli({"dump", folder.path + "/values.dcm"});
    ASSERT_EQ(run.status, 0) << run.err;
    std::vector<std::string> lines = Lines(run.out);

    std::string text = LineOf(lines, "(0040,A160)");
    EXPECT_NE(text.find("UT [rrrrr rrr rrr"), std::string::npos) << text;  // CR and LF shown as blanks
    EXPECT_NE(text.find("]..."), std::string::npos) << text;
    EXPECT_LT(text.size(), 200u);
    EXPECT_NE(text.find("# 10000,"), std::string::npos);
    for (const auto& [tag, shown] :
         {std::pair{"(0018,6020)", "SL -2 "}, {"(0028,0009)", "AT (0010,0010)\\(0028,0100) "}, {"(0070,0010)", "FL 1.5 "},
          {"(0018,6028)", "FD -2.5 "}, {"(6000,0050)", "SS -5 "}, {"(0028,1201)", "US 0\\1\\2\\3\\"},
          {"(0028,1201)", "\\15\\... (100 values)"}})
        EXPECT_NE(LineOf(lines, tag).find(shown), std::string::npos) << LineOf(lines, tag);
    EXPECT_EQ(LineOf(lines, "(0028,1201)").find("\\16\\"), std::string::npos);
    // 8 data set elements, 2 meta elements, 2 headings: nothing spills onto extra lines.
    EXPECT_EQ(lines.size(), 12u) << run.out;
}

TEST(DumpText, A512MiBFileIsDumpedWithoutReadingItsPixels)
{
    constexpr uint32_t kPixelBytes = 512u * 1024u * 1024u;
    Bytes body = cat({elem(0x0028, 0x0010, "US", us(16384)), elem(0x0028, 0x0011, "US", us(16384)),
                      elem(0x0028, 0x0100, "US", us(16)), elem(0x7FE0, 0x0010, "OW", Bytes{0x2A, 0x00}, kPixelBytes)});
    Bytes image = fileImage("1.2.840.10008.1.2.1", body);
    std::string path = ScratchPath("large.dcm");
    ASSERT_TRUE(WriteFile(path, image));
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

