#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace testsupport;

namespace {
// The same data set in both encodings, written out by hand: the private
// creator is LO, implicit VR pixel data is OW (PS3.5 A.1).
const Bytes kImplicit = fileImage("1.2.840.10008.1.2", cat({ielem(0x0009, 0x0010, text("ACME")),
                                                           ielem(0x0010, 0x0010, text("DOE^JOHN")),
                                                           ielem(0x7FE0, 0x0010, Bytes{1, 2, 3, 4})}));
const Bytes kExplicit =
    fileImage("1.2.840.10008.1.2.1", cat({elem(0x0009, 0x0010, "LO", "ACME"), elem(0x0010, 0x0010, "PN", "DOE^JOHN"),
                                          elem(0x7FE0, 0x0010, "OW", Bytes{1, 2, 3, 4})}));
const Bytes kJpeg = fileImage("1.2.840.10008.1.2.4.50",
                              elem(0x7FE0, 0x0010, "OB", cat({item({}), item(Bytes{0xFF, 0xD8}), sequenceEnd()}),
                                   kUndefined));
}

TEST(ConvertCli, ArgumentsAndFailuresGiveAnErrorLineAndNoOutput)
{
    ScratchFolder folder("convert-faults");
    std::string in = folder.path + "/in.dcm", out = folder.path + "/out.dcm", jpeg = folder.path + "/jpeg.dcm";
    ASSERT_TRUE(WriteFile(in, kImplicit) && WriteFile(jpeg, kJpeg));
    EXPECT_EQ(RunCli({"convert", in}).status, 2);
    EXPECT_EQ(RunCli({"convert", "--implicit", "--explicit", in, out}).status, 2);
    CliResult unknown = RunCli({"convert", "--big-endian", in, out});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_NE(unknown.err.find("unknown option '--big-endian'"), std::string::npos);
    CliResult missing = RunCli({"convert", folder.path + "/missing.dcm", out});
    EXPECT_EQ(missing.status, 1);
    EXPECT_NE(missing.err.find(folder.path + "/missing.dcm"), std::string::npos);
    // One line: the file and the system's reason.
    CliResult noFolder = RunCli({"convert", in, folder.path + "/no-dir/out.dcm"});
    EXPECT_EQ(noFolder.status, 1);
    EXPECT_EQ(noFolder.err, "zeldicom convert: " + folder.path + "/no-dir/out.dcm: No such file or directory\n");
    // A failed write removes nothing that was there before.
    EXPECT_EQ(RunCli({"convert", in, "/dev/full"}).status, 1);
    EXPECT_EQ(access("/dev/full", F_OK), 0);
    // Compressed data cannot change encoding, but is copied as it stands.
    for (const char* option : {"--implicit", "--explicit"}) {
        CliResult refused = RunCli({"convert", option, jpeg, out});
        EXPECT_EQ(refused.status, 1);
        EXPECT_NE(refused.err.find("1.2.840.10008.1.2.4.50 is encapsulated"), std::string::npos) << refused.err;
    }
    EXPECT_NE(access(out.c_str(), F_OK), 0);
    EXPECT_EQ(RunCli({"convert", jpeg, out}).status, 0);
    EXPECT_EQ(ReadFile(out), kJpeg);
    // A write that stops half-way (here at a 256 KiB file size limit) leaves
    // the existing OUT as it was.
    std::string big = folder.path + "/big.dcm";
    ASSERT_TRUE(WriteFile(big, fileImage("1.2.840.10008.1.2", ielem(0x7FE0, 0x0010, Bytes(1 << 20, 7)))));
    CliResult limited = RunCli(
        {"-c", "trap '' XFSZ; ulimit -f 512; exec \"$0\" convert \"$1\" \"$2\"", ZELDICOM_CLI, big, out}, "/bin/sh");
    EXPECT_EQ(limited.status, 1);
    EXPECT_EQ(limited.err, "zeldicom convert: " + out + ": File too large\n");
    EXPECT_EQ(ReadFile(out), kJpeg);
}

TEST(ConvertCli, SwitchesEncodingsAndRewritesInPlaceOnlyThroughACompleteCopy)
{
    ScratchFolder folder("convert-switch");
    std::string path = folder.path + "/same.dcm", out = folder.path + "/explicit.dcm";
    ASSERT_TRUE(WriteFile(path, kImplicit));
    EXPECT_EQ(RunCli({"convert", "--explicit", path, out}).status, 0);
    EXPECT_EQ(ReadFile(out), kExplicit);
    EXPECT_EQ(RunCli({"convert", "--explicit", out, out}).status, 0);
    EXPECT_EQ(ReadFile(out), kExplicit);
    // In place, named once plainly and once through "/./".
    std::string spelled = folder.path + "/./same.dcm";
    EXPECT_EQ(RunCli({"convert", "--explicit", path, spelled}).status, 0);
    EXPECT_EQ(ReadFile(path), kExplicit);
    EXPECT_EQ(RunCli({"convert", "--implicit", path, path}).status, 0);
    EXPECT_EQ(ReadFile(path), kImplicit);
}
