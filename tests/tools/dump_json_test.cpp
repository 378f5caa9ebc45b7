// `zeldicom dump --json`: the DICOM JSON Model as PS3.18 F.2 shapes it where
// pydicom's samples do not reach (agreement with pydicom over every sample,
// sequences, private elements and inline binaries included: tests/corpus).
#include <gtest/gtest.h>

#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace testsupport;

namespace {
const std::string kSample = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";

// The members that are not in the output.
std::vector<std::string> Missing(const std::string& json, std::initializer_list<const char*> members)
{
    std::vector<std::string> missing;
    for (const char* member : members)
        if (json.find(member) == std::string::npos)
            missing.push_back(member);
    return missing;
}
}

TEST(DumpJson, NamesNumbersEmptyValuesAndEscapes)
{
    const std::string name = "Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E=";  // UTF-8, no phonetic group
    Bytes body = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 192"), elem(0x0008, 0x0050, "SH", Bytes{}),
                      elem(0x0008, 0x0060, "CS", "CT\\\\MR "), elem(0x0008, 0x0070, std::string("\x01\x02", 2), "ab"),
                      elem(0x0010, 0x0010, "PN", name),
                      elem(0x0010, 0x4000, "LT", "say \"hi\"\\ back\ttab\x01"), elem(0x0018, 0x0050, "DS", "+5\\.5 \\1.\\1e3 "),
                      elem(0x0020, 0x0013, "IS", "007 "), elem(0x0028, 0x0009, "AT", Bytes{0x18, 0x00, 0x63, 0x10}),
                      elem(0x0028, 0x0103, "US", us(1)), elem(0x0070, 0x0010, "FL", Bytes{0x00, 0x00, 0x20, 0xC0}),
                      elem(0x0028, 0x1201, "OW", Bytes{1, 2, 3, 4}), elem(0x0009, 0x1000, "UN", Bytes{0xFF}),
                      elem(0x0008, 0x1140, "SQ", Bytes{})});
    ScratchFolder folder("dump-json");
    ASSERT_TRUE(WriteFile(folder.path + "/names.dcm", fileImage("1.2.840.10008.1.2.1", body)));
    CliResult run = RunCli({"dump", "--json", folder.path + "/names.dcm"});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(Missing(run.out, {R"("00080050": {"vr": "SH"})", R"("00081140": {"vr": "SQ"})",
                                R"("00080060": {"vr": "CS", "Value": ["CT", null, "MR"]})",
                                "\"00100010\": {\"vr\": \"PN\", \"Value\": [{\"Alphabetic\": \"Yamada^Tarou\", "
                                "\"Ideographic\": \"\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E\"}]}",
                                // LT is one value: its backslash is text, quotes and controls are escaped.
                                R"("00104000": {"vr": "LT", "Value": ["say \"hi\"\\ back\ttab\u0001"]})",
                                // Decimal strings become JSON numbers even where DICOM's form is not JSON's.
                                R"("00180050": {"vr": "DS", "Value": [5, 0.5, 1, 1e3]})",
                                R"("00200013": {"vr": "IS", "Value": [7]})",
                                R"("00280009": {"vr": "AT", "Value": ["00181063"]})",
                                R"("00700010": {"vr": "FL", "Value": [-2.5]})",
                                R"("00281201": {"vr": "OW", "InlineBinary": "AQIDBA=="})",
                                R"("00091000": {"vr": "UN", "InlineBinary": "/w=="})",
                                // A damaged VR field is reported as UN, never copied into the output.
                                R"("00080070": {"vr": "UN", "InlineBinary": "YWI="})"}),
              std::vector<std::string>{})
        << run.out;
}

// Several files, or --ndjson, give one line per file naming it (the corpus
// sweep parses such output of every sample); one file keeps the bare object.
TEST(DumpJson, SeveralFilesAreOneLineEachWithTheirPath)
{
    CliResult two = RunCli({"dump", "--json", kSample, kSample});
    ASSERT_EQ(two.status, 0) << two.err;
    std::vector<std::string> lines = Lines(two.out);
    ASSERT_EQ(lines.size(), 2u) << two.out;
    for (const std::string& line : lines) {
        EXPECT_EQ(line.rfind("{\"file\": \"" + kSample + "\", \"dataset\": {\"00080005\": ", 0), 0u) << line;
        EXPECT_EQ(line.back(), '}');
    }
    CliResult one = RunCli({"dump", "--ndjson", kSample});
    EXPECT_EQ(one.out, lines[0] + "\n");
    EXPECT_EQ(RunCli({"dump", "--json", kSample}).out.find("\"file\""), std::string::npos);
}
