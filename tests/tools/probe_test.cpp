// zeldicom probe: one line per file, checked against pydicom's reading of
// its sample corpus and against small files; exit status by the worst file.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "dicomdata/parse_fixtures.h"
#include "support/cli.h"

using namespace parsefix;

namespace {
// pydicom's view of a file: "meta", its transfer syntax ("-" if absent) and
// where the data set starts; or "nometa", byte order, VR encoding and the
// number of elements it reads when forced; or "error".
const char* kClassifier = R"(
import sys, warnings
warnings.simplefilter("ignore")
import pydicom
from pydicom.filereader import read_preamble, _read_file_meta_info
for path in sys.argv[1:]:
    try:
        with open(path, "rb") as f:
            read_preamble(f, False)
            meta = _read_file_meta_info(f)
            print(path, "meta", meta.get("TransferSyntaxUID", "-"), f.tell(), sep="\t")
            continue
    except Exception:
        pass
    try:
        d = pydicom.dcmread(path, force=True)
        print(path, "nometa", "le" if d.is_little_endian else "be",
              "implicit" if d.is_implicit_VR else "explicit", len(d), sep="\t")
    except Exception as e:
        print(path, "error", sep="\t")
)";
}

TEST(ProbeCommand, ClassifiesTheCorpusLikePydicom)
{
    std::string root = PydicomDataDir();
    if (root.empty())
        FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)";
    std::string script = ScratchPath("classify.py");
    WriteFile(script, text(kClassifier));
    // The top of each sample folder, directories included.
    std::vector<std::string> args = {script};
    for (const char* sub : {"test_files", "charset_files", "palettes"})
        for (const auto& entry : std::filesystem::directory_iterator(root + "/" + sub))
            args.push_back(entry.path().string());
    size_t files = args.size() - 1;
    CliResult pydicom = RunCli(args, "/usr/bin/python3");
    std::remove(script.c_str());
    ASSERT_EQ(pydicom.status, 0) << pydicom.err;
    args[0] = "probe";
    CliResult probe = RunCli(args);
    EXPECT_EQ(probe.status, 1);  // text files and a directory are in the corpus
    std::map<std::string, std::string> lines;
    for (const std::string& line : Lines(probe.out))
        lines[line.substr(0, line.find(": "))] = line.substr(line.find(": ") + 2);
    EXPECT_EQ(lines.size(), files) << probe.out;

    std::map<std::string, int> kinds;
    for (const std::string& row : Lines(pydicom.out)) {
        std::vector<std::string> f;
        std::stringstream in(row);
        for (std::string field; std::getline(in, field, '\t');)
            f.push_back(field);
        std::string line = lines[f[0]];
        SCOPED_TRACE(f[0] + ": " + line);
        if (f[1] == "meta") {
            std::string syntax = f[2] == "-" ? "1.2.840.10008.1.2" : f[2];  // absent: the default
            EXPECT_EQ(line.rfind("DICOM, meta information " + f[3] + " bytes, transfer syntax " + syntax + " (", 0), 0u);
            ++kinds[syntax == "1.2.840.10008.1.2.2" ? "big endian" : "meta"];
        } else if (f[1] == "nometa" && std::stoi(f[4]) > 1) {
            std::string syntax = f[2] == "be" ? "1.2.840.10008.1.2.2"
                                 : f[3] == "implicit" ? "1.2.840.10008.1.2" : "1.2.840.10008.1.2.1";
            EXPECT_EQ(line.rfind("DICOM, no meta information", 0), 0u);
            EXPECT_NE(line.find("transfer syntax " + syntax + " ("), std::string::npos);
            EXPECT_EQ(line.find("big endian") != std::string::npos, f[2] == "be");
            ++kinds[f[2] == "be" ? "big endian" : "no meta"];
        } else {  // text, archives, damaged data sets, directories
            EXPECT_TRUE(line.rfind("not DICOM", 0) == 0 || line.rfind("unreadable", 0) == 0);
            ++kinds["not DICOM"];
        }
    }
    EXPECT_GT(kinds["meta"], 40);
    EXPECT_GE(kinds["no meta"], 2);
    EXPECT_GE(kinds["big endian"], 5);
    EXPECT_GE(kinds["not DICOM"], 5);
    EXPECT_NE(lines[root + "/test_files/MR_small_RLE.dcm"].find("(RLE Lossless), compression 3"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/JPEG2000.dcm"].find("compression 5"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/SC_rgb_jpeg_gdcm.dcm"].find("compression 2"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/JPEG-lossy.dcm"].find("compression 1"), std::string::npos);
}

TEST(ProbeCommand, ArgumentsAndExitStatus)
{
    std::string dataSet = ScratchPath("probe.dcm"), notes = ScratchPath("probe.txt");
    WriteFile(dataSet, cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0010, 0x0010, "PN", "Doe^John")}));
    WriteFile(notes, text("no pixels here\n"));
    CliResult good = RunCli({"probe", dataSet});
    EXPECT_EQ(good.status, 0);
    EXPECT_EQ(good.out, dataSet + ": DICOM, no meta information, transfer syntax 1.2.840.10008.1.2.1 "
                                  "(Explicit VR Little Endian), compression 0\n");
    CliResult mixed = RunCli({"probe", notes, "/nonexistent/zeldicom.dcm", dataSet});
    EXPECT_EQ(mixed.status, 1);
    std::vector<std::string> lines = Lines(mixed.out);
    ASSERT_EQ(lines.size(), 3u) << mixed.out;
    EXPECT_EQ(lines[0], notes + ": not DICOM");
    EXPECT_EQ(lines[1].rfind("/nonexistent/zeldicom.dcm: unreadable", 0), 0u);
    EXPECT_EQ(lines[2].rfind(dataSet + ": DICOM", 0), 0u);
    CliResult none = RunCli({"probe"});
    EXPECT_EQ(none.status, 2);
    EXPECT_NE(none.err.find("Usage: zeldicom probe"), std::string::npos);
    std::remove(dataSet.c_str());
    std::remove(notes.c_str());
}

TEST(ProbeCommand, DicmWithoutWholeMetaInformationIsNotDicom)
{
    std::string preamble = ScratchPath("preamble.dcm"), cut = ScratchPath("cut.dcm");
    WriteFile(preamble, cat({Bytes(128, 0), text("DICM")}));
    Bytes whole = fileImage("1.2.840.10008.1.2", ielem(0x0010, 0x0010, text("DOE^JOHN")));
    // Cut inside the transfer syntax value of the meta information.
    WriteFile(cut, Bytes(whole.begin(), whole.begin() + 132 + 14 + 8 + 5));
    CliResult probe = RunCli({"probe", preamble, cut});
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.out, preamble + ": not DICOM (file meta information missing or cut short)\n" + cut +
                             ": not DICOM (file meta information missing or cut short)\n");
    std::remove(preamble.c_str());
    std::remove(cut.c_str());
}

TEST(ProbeCommand, CompressedSyntaxesWithoutATypeCodeAreNotCalledUncompressed)
{
    std::string jpegLs = ScratchPath("jpegls.dcm");
    WriteFile(jpegLs, fileImage("1.2.840.10008.1.2.4.80", elem(0x0010, 0x0010, "PN", "DOE^JOHN")));
    CliResult probe = RunCli({"probe", jpegLs});
    EXPECT_EQ(probe.status, 0);
    EXPECT_NE(probe.out.find("(JPEG-LS Lossless), compression other\n"), std::string::npos) << probe.out;
    std::remove(jpegLs.c_str());
}

TEST(ProbeCommand, OutputThatCannotBeWrittenFailsTheCommand)
{
    std::string dataSet = ScratchPath("full.dcm");
    WriteFile(dataSet, elem(0x0008, 0x0005, "CS", "ISO_IR 100"));
    for (const std::string& command : {"probe " + dataSet, std::string("lookup 0010,0010")}) {
        CliResult full = RunCli({"-c", "exec \"$0\" " + command + " >/dev/full", ZELDICOM_CLI}, "/bin/sh");
        EXPECT_EQ(full.status, 1) << command;
        EXPECT_NE(full.err.find("standard output: No space left on device"), std::string::npos) << full.err;
    }
    std::remove(dataSet.c_str());
}

