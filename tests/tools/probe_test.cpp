// zeldicom probe: one line per file, checked on small files (against
// pydicom's reading of the corpus: tests/corpus); exit status by the worst file.
#include <gtest/gtest.h>

#include <map>
#include <sstream>

#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace testsupport;

// Arguments, a line per file and the exit status; "DICM" without whole meta
// information is not DICOM; compressed syntaxes without a type code are not
// called uncompressed.
TEST(ProbeCommand, LinesPerFileAndExitStatusByTheWorst)
{
    ScratchFolder folder("probe");
    std::string dataSet = folder.path + "/probe.dcm", notes = folder.path + "/probe.txt";
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
    EXPECT_EQ(none.err, "zeldicom probe: FILE missing (try zeldicom probe --help)\n");

    std::string preamble = folder.path + "/preamble.dcm", cut = folder.path + "/cut.dcm";
    WriteFile(preamble, cat({Bytes(128, 0), text("DICM")}));
    Bytes whole = fileImage("1.2.840.10008.1.2", ielem(0x0010, 0x0010, text("DOE^JOHN")));
    // Cut inside the transfer syntax value of the meta information.
    WriteFile(cut, Bytes(whole.begin(), whole.begin() + 132 + 14 + 8 + 5));
    CliResult probe = RunCli({"probe", preamble, cut});
    EXPECT_EQ(probe.status, 1);
    EXPECT_EQ(probe.out, preamble + ": not DICOM (file meta information missing or cut short)\n" + cut +
                             ": not DICOM (file meta information missing or cut short)\n");

    std::string jpegLs = folder.path + "/jpegls.dcm";
    WriteFile(jpegLs, fileImage("1.2.840.10008.1.2.4.80", elem(0x0010, 0x0010, "PN", "DOE^JOHN")));
    CliResult jpegLsProbe = RunCli({"probe", jpegLs});
    EXPECT_EQ(jpegLsProbe.status, 0);
    EXPECT_NE(jpegLsProbe.out.find("(JPEG-LS Lossless), compression other\n"), std::string::npos) << jpegLsProbe.out;
}

TEST(ProbeCommand, OutputThatCannotBeWrittenFailsTheCommand)
{
    ScratchFolder folder("probe-full");
    std::string dataSet = folder.path + "/full.dcm";
    WriteFile(dataSet, elem(0x0008, 0x0005, "CS", "ISO_IR 100"));
    for (const std::string& command : {"probe " + dataSet, std::string("lookup 0010,0010")}) {
        CliResult full = RunCli({"-c", "exec \"$0\" " + command + " >/dev/full", ZELDICOM_CLI}, "/bin/sh");
        EXPECT_EQ(full.status, 1) << command;
        EXPECT_NE(full.err.find("standard output: No space left on device"), std::string::npos) << full.err;
    }
}

