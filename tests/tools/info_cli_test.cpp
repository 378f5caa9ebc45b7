// zeldicom info: readable text, one JSON object keyed by the record's field
// names, and a one-line error for what the record cannot describe.
#include <gtest/gtest.h>

#include "imageinfo/dicominfo.h"
#include "platform/text.h"
#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace testsupport;
using namespace zeldicom;

TEST(InfoCommand, PrintsTheRecordAsTextAndJson)
{
    PYDICOM_DATA_OR_FAIL(data);
    std::string ct = data + "/test_files/CT_small.dcm", frames = data + "/test_files/rtdose_rle.dcm";

    CliResult text = RunCli({"info", ct});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* expected : {"128 columns x 128 rows", "MONOCHROME2", "centre 400, width 2000",
                                 "top A, left R, right L, bottom P", "1CT1"})
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected << "\n" << text.out;

    // A Segmentation object: the position from the first frame's functional
    // groups (the record's values against pydicom's: tests/corpus).
    CliResult seg = RunCli({"info", data + "/test_files/liver_1frame.dcm"});
    EXPECT_NE(seg.out.find("image position         -2.352000e+02\\-2.268000e+02\\-1.286900e+02"), std::string::npos)
        << seg.out;

    // An object without an image keeps its identification and says it has no image.
    CliResult plan = RunCli({"info", data + "/test_files/rtplan.dcm"});
    ASSERT_EQ(plan.status, 0) << plan.err;
    EXPECT_NE(plan.out.find("RTPLAN"), std::string::npos) << plan.out;
    EXPECT_NE(plan.out.find("none (the object has no Rows and Columns)"), std::string::npos) << plan.out;
    EXPECT_EQ(plan.out.find("columns x"), std::string::npos) << plan.out;

    // One object per file and line; every scalar field is a key, lists are arrays.
    CliResult json = RunCli({"info", "--json", frames});
    ASSERT_EQ(json.status, 0) << json.err;
    int count = 0;
    const INFOFIELD* fields = DICOMINFO::GetFieldTable(count);
    for (int i = 0; i < count; ++i)
        EXPECT_NE(json.out.find("\"" + std::string(fields[i].name) + "\":"), std::string::npos) << fields[i].name;
    for (const char* expected : {"\"nNumberOfFrames\":15", "\"windows\":[", "\"overlays\":[",
                                 "\"pFrameOffsets\":[0,", "\"RedPaletteLut\":{\"nEntries\":4096"})
        EXPECT_NE(json.out.find(expected), std::string::npos) << expected;
    ScratchFolder folder("info-json");  // valid JSON as a JSON reader sees it
    ASSERT_TRUE(WriteFile(folder.path + "/info.json", testsupport::text(json.out)));
    EXPECT_EQ(RunShell("/usr/bin/python3 -m json.tool " + folder.path + "/info.json >/dev/null").first, 0) << json.out;

    CliResult refused = RunCli({"info", ct, data + "/test_files/README.txt"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.out.find("CT_small.dcm"), std::string::npos);
    EXPECT_EQ(std::count(refused.err.begin(), refused.err.end(), '\n'), 1) << refused.err;
    EXPECT_EQ(refused.err.rfind("zeldicom info: " + data + "/test_files/README.txt: ", 0), 0u) << refused.err;
}

TEST(InfoCommand, ShowsExactValuesAndNamesEmptyOnes)
{
    PYDICOM_DATA_OR_FAIL(data);
    // A JPEG object whose Window Center and Width DCMTK empties, as several
    // vendors write them: the record's default window, not 0/0.
    ScratchFolder folder("info-values");
    std::string file = folder.path + "/empty_window.dcm";
    ASSERT_EQ(RunShell("cp " + data + "/test_files/JPEG-lossy.dcm " + file +
                       " && dcmodify -nb -i '(0028,1050)=' -i '(0028,1051)=' " + file).first, 0);
    CliResult text = RunCli({"info", file});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* expected :
         {"centre 2048, width 4096 (default)", "empty in the file      (0028,1050) Window Center",
          "empty in the file      (0028,1051) Window Width"})
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected << "\n" << text.out;
    CliResult json = RunCli({"info", "--json", file});
    EXPECT_NE(json.out.find("\"aEmptyNumberElements\":[\"00281050\",\"00281051\"]"), std::string::npos) << json.out;

    // Window and rescale values that are no integers: the record's integers
    // and, beside them, the values as the file gives them.
    ASSERT_EQ(RunShell("cp " + data + "/test_files/CT_small.dcm " + file + " && dcmodify -nb -i '(0028,1050)=40.5' "
                       "-i '(0028,1051)=350.7' -m '(0028,1052)=-1024.25' -m '(0028,1053)=0.5' " + file).first, 0);
    text = RunCli({"info", file});
    for (const char* expected :
         {"centre 40, width 350 (exact 40.5, 350.7)", "intercept -1024 (exact -1024.25), slope 0.5"})
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected << "\n" << text.out;
    json = RunCli({"info", "--json", file});
    for (const char* expected : {"\"nWindowCenter\":40,", "\"dWindowCenter\":40.5,", "\"dWindowWidth\":350.7,",
                                 "\"dRescaleIntercept\":-1024.25,", "\"dRescaleSlope\":0.5,"})
        EXPECT_NE(json.out.find(expected), std::string::npos) << expected << "\n" << json.out;
}

// Several files (or --ndjson) give one JSON object a line with the file's
// path; dates and times are ISO 8601; the file's name and sex stand beside
// the record's normalised forms where these differ.
TEST(InfoCommand, SeveralFilesAreNdjsonWithIsoDatesAndTheFilesValues)
{
    PYDICOM_DATA_OR_FAIL(data);
    std::string ct = data + "/test_files/CT_small.dcm", mr = data + "/test_files/MR_small.dcm";
    ScratchFolder folder("info-ndjson");
    std::string noSex = folder.path + "/nosex.dcm";
    WriteFile(noSex, fileImage("1.2.840.10008.1.2.1", cat({elem(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.7"),
                                                            elem(0x0008, 0x0020, "DA", "20240102"),
                                                            elem(0x0010, 0x0010, "PN", "Doe^Jane"),
                                                            elem(0x0010, 0x0040, "CS", "")})));
    CliResult text = RunCli({"info", ct, noSex});
    ASSERT_EQ(text.status, 0) << text.err;
    for (const char* expected : {"study date and time    2004-01-19 07:27:30\n",
                                 "name                   CompressedSamples^CT1 (record: CompressedSamples CT1)\n",
                                 "sex                    O\n", "study date and time    2024-01-02 -\n",
                                 "name                   Doe^Jane (record: Doe Jane)\n",
                                 "sex                    (no value) (record: O)\n"})
        EXPECT_NE(text.out.find(expected), std::string::npos) << expected << "\n" << text.out;

    std::string check = "import json, sys\n"
                        "for line in sys.stdin:\n"
                        "    o = json.loads(line)\n"
                        "    print(o.get('file'), repr(o['PatientSex']), o['sPatientSex'], o['PatientName'])\n";
    std::string script = folder.path + "/ndjson.py", lines = folder.path + "/info.ndjson";
    ASSERT_TRUE(WriteFile(script, testsupport::text(check)));
    for (const std::vector<std::string>& args :
         {std::vector<std::string>{"info", "--json", ct, mr, noSex}, std::vector<std::string>{"info", "--ndjson", ct}}) {
        CliResult json = RunCli(args);
        ASSERT_EQ(json.status, 0) << json.err;
        ASSERT_TRUE(WriteFile(lines, testsupport::text(json.out)));
        auto [status, parsed] = RunShell("/usr/bin/python3 " + script + " < " + lines);
        EXPECT_EQ(status, 0) << json.out;
        std::string expected = ct + " 'O' O CompressedSamples^CT1\n";
        if (args.size() > 3)
            expected += mr + " 'F' F CompressedSamples^MR1\n" + noSex + " '' O Doe^Jane\n";
        EXPECT_EQ(parsed, expected);
    }
    // One file keeps the single object without a path.
    EXPECT_EQ(RunCli({"info", "--json", ct}).out.find("\"file\""), std::string::npos);
}
