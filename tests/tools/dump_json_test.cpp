// `zeldicom dump --json`: the DICOM JSON Model as PS3.18 F.2 shapes it, and
// agreement with pydicom's to_json_dict() over pydicom's whole sample corpus.
#include <gtest/gtest.h>

#include "dicomdata/parse_fixtures.h"
#include "dump_run.h"

using namespace parsefix;

namespace {
const std::string kSample = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

std::string EncodeBase64(const std::string& bytes)
{
    static const char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (size_t i = 0; i < bytes.size(); i += 3) {
        uint32_t bits = static_cast<unsigned char>(bytes[i]) << 16;
        size_t left = bytes.size() - i;
        if (left > 1)
            bits |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (left > 2)
            bits |= static_cast<unsigned char>(bytes[i + 2]);
        for (size_t k = 0; k < 4; ++k)
            out += k <= left ? digits[(bits >> (18 - 6 * k)) & 63] : '=';
    }
    return out;
}

// The string value of "InlineBinary" in the member of the given key.
std::string InlineBinaryOf(const std::string& json, const std::string& key)
{
    size_t at = json.find("\"" + key + "\"");
    if (at == std::string::npos)
        return {};
    size_t start = json.find("\"InlineBinary\": \"", at);
    if (start == std::string::npos)
        return {};
    start += 17;
    return json.substr(start, json.find('"', start) - start);
}
}

TEST(DumpJson, SampleFollowsTheJsonModel)
{
    CliResult run = RunCli({"dump", "--json", kSample});
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string& json = run.out;
    EXPECT_EQ(json.front(), '{');
    EXPECT_TRUE(Contains(json, R"("00100010": {"vr": "PN", "Value": [{"Alphabetic": "Doe^Jane^^Ms"}]})"));
    EXPECT_TRUE(Contains(json, R"("00280010": {"vr": "US", "Value": [16]})"));
    EXPECT_TRUE(Contains(json, R"("00200037": {"vr": "DS", "Value": [1, 0, 0, 0, 1, 0]})"));
    EXPECT_TRUE(Contains(json, R"("00200032": {"vr": "DS", "Value": [-120.0, -120.0, 35.5]})"));
    EXPECT_TRUE(Contains(json, R"("00200013": {"vr": "IS", "Value": [1]})"));
    EXPECT_TRUE(Contains(json, R"("00080008": {"vr": "CS", "Value": ["ORIGINAL", "PRIMARY", "AXIAL"]})"));
    EXPECT_TRUE(Contains(json, R"("00091001": {"vr": "LO", "Value": ["private value"]})"));
    // Sequences hold their items as objects; delimiters are not attributes.
    EXPECT_TRUE(Contains(json, R"("00081032": {"vr": "SQ", "Value": [)"));
    EXPECT_TRUE(Contains(json, R"("00080100": {"vr": "SH", "Value": ["CTHEAD"]})"));
    EXPECT_FALSE(Contains(json, "\"FFFE"));
    // The file meta information is not part of the data set.
    EXPECT_FALSE(Contains(json, "\"0002"));
    // Pixel data: base64 of exactly the value bytes, the last 512 of the file.
    std::string sample = ReadText(kSample);
    ASSERT_GT(sample.size(), 512u);
    EXPECT_EQ(InlineBinaryOf(json, "7FE00010"), EncodeBase64(sample.substr(sample.size() - 512)));
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
    std::string path = TempPath("names.dcm");
    ASSERT_TRUE(WriteBytes(path, fileImage("1.2.840.10008.1.2.1", body)));
    CliResult run = RunCli({"dump", "--json", path});
    std::remove(path.c_str());
    ASSERT_EQ(run.status, 0) << run.err;
    const std::string& json = run.out;

    EXPECT_TRUE(Contains(json, R"("00080050": {"vr": "SH"})")) << json;
    EXPECT_TRUE(Contains(json, R"("00081140": {"vr": "SQ"})")) << json;
    EXPECT_TRUE(Contains(json, R"("00080060": {"vr": "CS", "Value": ["CT", null, "MR"]})")) << json;
    EXPECT_TRUE(Contains(json, "\"00100010\": {\"vr\": \"PN\", \"Value\": [{\"Alphabetic\": \"Yamada^Tarou\", "
                               "\"Ideographic\": \"\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E\"}]}"))
        << json;
    // LT is one value: its backslash is text, quotes and controls are escaped.
    EXPECT_TRUE(Contains(json, R"("00104000": {"vr": "LT", "Value": ["say \"hi\"\\ back\ttab\u0001"]})")) << json;
    // Decimal strings become JSON numbers even where DICOM's form is not JSON's.
    EXPECT_TRUE(Contains(json, R"("00180050": {"vr": "DS", "Value": [5, 0.5, 1, 1e3]})")) << json;
    EXPECT_TRUE(Contains(json, R"("00200013": {"vr": "IS", "Value": [7]})")) << json;
    EXPECT_TRUE(Contains(json, R"("00280009": {"vr": "AT", "Value": ["00181063"]})")) << json;
    EXPECT_TRUE(Contains(json, R"("00700010": {"vr": "FL", "Value": [-2.5]})")) << json;
    EXPECT_TRUE(Contains(json, R"("00281201": {"vr": "OW", "InlineBinary": "AQIDBA=="})")) << json;
    EXPECT_TRUE(Contains(json, R"("00091000": {"vr": "UN", "InlineBinary": "/w=="})")) << json;
    // A damaged VR field is reported as UN, never copied into the output.
    EXPECT_TRUE(Contains(json, R"("00080070": {"vr": "UN", "InlineBinary": "YWI="})")) << json;
}

TEST(DumpJson, AgreesWithPydicomOnTheWholeCorpus)
{
    std::string corpus = PydicomDataDir();
    if (corpus.empty())
        GTEST_SKIP() << "pydicom is not installed";
    std::vector<std::string> files = CorpusFiles(corpus);

    std::string listPath = TempPath("json-list.txt");
    std::string listing;
    std::vector<std::string> outputs;
    for (size_t i = 0; i < files.size(); ++i) {
        CliResult run = RunCli({"dump", "--json", files[i]});
        if (run.status != 0)
            continue;  // refusals are the corpus walk's business
        std::string out = TempPath("json-" + std::to_string(i) + ".json");
        ASSERT_TRUE(WriteBytes(out, Bytes(run.out.begin(), run.out.end())));
        outputs.push_back(out);
        listing += files[i] + "\t" + out + "\n";
    }
    ASSERT_GE(outputs.size(), 160u);
    ASSERT_TRUE(WriteBytes(listPath, Bytes(listing.begin(), listing.end())));

    CliResult compare = RunCli({std::string(ZELDICOM_SOURCE_DIR) + "/tests/tools/dump_json_compare.py", listPath},
                               "/usr/bin/python3");
    for (const std::string& out : outputs)
        std::remove(out.c_str());
    std::remove(listPath.c_str());
    EXPECT_EQ(compare.status, 0) << compare.out << compare.err;
    EXPECT_TRUE(Contains(compare.out, " 0 mismatches")) << compare.out;
    // The named differences, for the record.
    for (const std::string& line : Lines(compare.out))
        if (line.rfind("ALLOWED", 0) == 0 || line.rfind("COMPARED", 0) == 0 || line.rfind("SKIPPED", 0) == 0)
            std::printf("  %s\n", line.c_str());
}
