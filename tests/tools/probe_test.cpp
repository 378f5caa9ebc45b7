// zeldicom probe: one classification line per file, checked against
// pydicom's own reading of the sample corpus and against small files made
// here; exit status by the worst file.
#include <gtest/gtest.h>
#include <dirent.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "dicomdata/parse_fixtures.h"
#include "tools/dump_run.h"

namespace {

std::vector<std::string> CorpusFiles(const std::string& root)
{
    std::vector<std::string> files;
    for (const char* sub : {"test_files", "charset_files", "palettes"}) {
        std::string dir = root + "/" + sub;
        if (DIR* d = opendir(dir.c_str())) {
            while (dirent* entry = readdir(d))
                if (entry->d_name[0] != '.')
                    files.push_back(dir + "/" + entry->d_name);
            closedir(d);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

// pydicom's view of each file: the meta information it reads (transfer
// syntax and where the data set starts), or for a file without it the
// byte order and VR encoding it settles on and how many elements it finds.
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
            end = f.tell()
        print(path, "meta", meta.get("TransferSyntaxUID", "-"), end, sep="\t")
        continue
    except Exception:
        pass
    try:
        d = pydicom.dcmread(path, force=True)
        print(path, "nometa", "le" if d.is_little_endian else "be",
              "implicit" if d.is_implicit_VR else "explicit", len(d), sep="\t")
    except Exception as e:
        print(path, "error", type(e).__name__, sep="\t")
)";

std::vector<std::string> Fields(const std::string& line)
{
    std::vector<std::string> fields;
    std::stringstream in(line);
    std::string field;
    while (std::getline(in, field, '\t'))
        fields.push_back(field);
    return fields;
}

std::map<std::string, std::string> LinesByFile(const std::string& out)
{
    std::map<std::string, std::string> byFile;
    for (const std::string& line : Lines(out)) {
        size_t colon = line.find(": ");
        if (colon != std::string::npos)
            byFile[line.substr(0, colon)] = line.substr(colon + 2);
    }
    return byFile;
}

}

TEST(ProbeCommand, ClassifiesTheCorpusLikePydicom)
{
    std::string root = parsefix::PydicomDataDir();
    if (root.empty())
        GTEST_SKIP() << "pydicom's sample data is not installed";
    std::vector<std::string> files = CorpusFiles(root);
    ASSERT_GT(files.size(), 50u);

    std::string script = TempPath("classify.py");
    WriteBytes(script, std::vector<unsigned char>(kClassifier, kClassifier + std::strlen(kClassifier)));
    std::vector<std::string> args = {script};
    args.insert(args.end(), files.begin(), files.end());
    CliResult pydicom = RunCli(args, "/usr/bin/python3");
    std::remove(script.c_str());
    ASSERT_EQ(pydicom.status, 0) << pydicom.err;

    std::vector<std::string> probeArgs = {"probe"};
    probeArgs.insert(probeArgs.end(), files.begin(), files.end());
    CliResult probe = RunCli(probeArgs);
    // The corpus holds text files and a directory: not all of it is DICOM.
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(Lines(probe.out).size(), files.size()) << probe.out;
    std::map<std::string, std::string> lines = LinesByFile(probe.out);

    int withMeta = 0, withoutMeta = 0, bigEndian = 0, notDicom = 0;
    for (const std::string& row : Lines(pydicom.out)) {
        std::vector<std::string> f = Fields(row);
        ASSERT_GE(f.size(), 3u) << row;
        const std::string& path = f[0];
        SCOPED_TRACE(path);
        ASSERT_EQ(lines.count(path), 1u) << probe.out;
        const std::string& line = lines[path];
        if (f[1] == "meta") {
            ++withMeta;
            // Without (0002,0010) the file's transfer syntax is the default one.
            std::string syntax = f[2] == "-" ? "1.2.840.10008.1.2" : f[2];
            EXPECT_EQ(line.rfind("DICOM, meta information " + f[3] + " bytes, transfer syntax " + syntax + " (", 0), 0u)
                << line;
            if (f[2] == "1.2.840.10008.1.2.2") {
                ++bigEndian;
                EXPECT_NE(line.find("(Explicit VR Big Endian)"), std::string::npos) << line;
            }
        } else if (f[1] == "nometa" && std::stoi(f[4]) > 1) {
            // pydicom finds a real data set without meta information.
            ++withoutMeta;
            std::string syntax = f[2] == "be" ? "1.2.840.10008.1.2.2"
                                 : f[3] == "implicit" ? "1.2.840.10008.1.2"
                                                      : "1.2.840.10008.1.2.1";
            EXPECT_EQ(line.rfind("DICOM, no meta information", 0), 0u) << line;
            EXPECT_NE(line.find("transfer syntax " + syntax + " ("), std::string::npos) << line;
            if (f[2] == "be") {
                ++bigEndian;
                EXPECT_NE(line.find("big endian"), std::string::npos) << line;
            }
        } else {
            // Text, archives, damaged data sets and directories.
            ++notDicom;
            EXPECT_TRUE(line == "not DICOM" || line.rfind("unreadable", 0) == 0) << line;
        }
    }
    EXPECT_GT(withMeta, 40);
    EXPECT_GE(withoutMeta, 3);
    EXPECT_GE(bigEndian, 4);
    EXPECT_GE(notDicom, 3);
    // Compression types of a few well-known samples.
    EXPECT_NE(lines[root + "/test_files/MR_small_RLE.dcm"].find("(RLE Lossless), compression 3"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/JPEG2000.dcm"].find("compression 5"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/SC_rgb_jpeg_gdcm.dcm"].find("compression 2"), std::string::npos);
    EXPECT_NE(lines[root + "/test_files/JPEG-lossy.dcm"].find("compression 1"), std::string::npos);
}

TEST(ProbeCommand, ArgumentsAndExitStatus)
{
    using parsefix::cat;
    using parsefix::elem;
    std::string dataSet = TempPath("probe-raw.dcm");
    WriteBytes(dataSet, cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0010, 0x0010, "PN", "Doe^John")}));
    std::string notes = TempPath("probe-notes.txt");
    WriteBytes(notes, parsefix::text("no pixels here\n"));

    CliResult good = RunCli({"probe", dataSet});
    EXPECT_EQ(good.status, 0) << good.err;
    EXPECT_EQ(good.out, dataSet +
                            ": DICOM, no meta information, transfer syntax 1.2.840.10008.1.2.1 (Explicit VR Little "
                            "Endian), compression 0\n");

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
