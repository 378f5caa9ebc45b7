#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "dicomdata/parse_fixtures.h"
#include "tools/dump_run.h"

using namespace parsefix;

namespace {
std::string Scratch(const std::string& name)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/zeldicom-h2-cli-" + std::to_string(getpid()) + "-" + name;
}

Bytes ReadBytes(const std::string& path)
{
    std::string text = ReadText(path);
    return Bytes(text.begin(), text.end());
}

bool Exists(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0;
}

bool Mentions(const CliResult& result, const std::string& what)
{
    return result.err.find(what) != std::string::npos;
}

const std::string kImplicit = "1.2.840.10008.1.2";
const std::string kExplicit = "1.2.840.10008.1.2.1";

// The same data set in both encodings, written out by hand.
Bytes ImplicitImage()
{
    return fileImage(kImplicit, cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0009, 0x0010, text("ACME")),
                                     ielem(0x0010, 0x0010, text("DOE^JOHN")), ielem(0x0028, 0x0100, us(16)),
                                     ielem(0x7FE0, 0x0010, Bytes{1, 2, 3, 4})}));
}
Bytes ExplicitImage()
{
    return fileImage(kExplicit,
                     cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x0009, 0x0010, "UN", "ACME"),
                          elem(0x0010, 0x0010, "PN", "DOE^JOHN"), elem(0x0028, 0x0100, "US", us(16)),
                          elem(0x7FE0, 0x0010, "OW", Bytes{1, 2, 3, 4})}));
}
// JPEG baseline: encapsulated pixel data with an empty offset table.
Bytes EncapsulatedImage()
{
    Bytes fragments = cat({item({}), item(Bytes{0xFF, 0xD8, 0xFF, 0xD9}), sequenceEnd()});
    return fileImage("1.2.840.10008.1.2.4.50", cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x0028, 0x0100, "US", us(8)),
                                                    elem(0x7FE0, 0x0010, "OB", fragments, kUndefined)}));
}
}

TEST(ConvertCli, WrongArgumentsAndUnreadableFilesGiveClearErrors)
{
    std::string input = Scratch("in.dcm"), output = Scratch("out.dcm");
    ASSERT_TRUE(WriteBytes(input, ImplicitImage()));

    CliResult none = RunCli({"convert"});
    EXPECT_EQ(none.status, 2);
    EXPECT_TRUE(Mentions(none, "Usage: zeldicom convert"));
    EXPECT_EQ(RunCli({"convert", input}).status, 2);
    EXPECT_EQ(RunCli({"convert", input, output, "extra"}).status, 2);
    CliResult both = RunCli({"convert", "--implicit", "--explicit", input, output});
    EXPECT_EQ(both.status, 2);
    EXPECT_TRUE(Mentions(both, "exclude each other"));
    CliResult unknown = RunCli({"convert", "--big-endian", input, output});
    EXPECT_EQ(unknown.status, 2);
    EXPECT_TRUE(Mentions(unknown, "unknown option '--big-endian'"));
    EXPECT_FALSE(Exists(output));

    std::string missing = Scratch("missing.dcm");
    CliResult absent = RunCli({"convert", missing, output});
    EXPECT_EQ(absent.status, 1);
    EXPECT_TRUE(Mentions(absent, missing));
    EXPECT_FALSE(Exists(output));

    std::string notDicom = Scratch("text.txt");
    ASSERT_TRUE(WriteBytes(notDicom, text(std::string(200, 'x'))));
    CliResult refused = RunCli({"convert", notDicom, output});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(Mentions(refused, "DICM"));
    EXPECT_FALSE(Exists(output));

    CliResult unwritable = RunCli({"convert", input, Scratch("no-such-dir/out.dcm")});
    EXPECT_EQ(unwritable.status, 1);
    EXPECT_TRUE(Mentions(unwritable, "cannot write"));
    unlink(input.c_str());
    unlink(notDicom.c_str());
}

TEST(ConvertCli, SwitchesEncodingsBothWaysAndRefusesToSwitchEncapsulatedData)
{
    std::string implicitPath = Scratch("implicit.dcm"), explicitPath = Scratch("explicit.dcm"),
                back = Scratch("back.dcm");
    ASSERT_TRUE(WriteBytes(implicitPath, ImplicitImage()));
    EXPECT_EQ(RunCli({"convert", "--explicit", implicitPath, explicitPath}).status, 0);
    // The private element without a known VR goes out as UN; the transfer
    // syntax follows the data set.
    EXPECT_EQ(ReadBytes(explicitPath), ExplicitImage());
    EXPECT_EQ(RunCli({"convert", explicitPath, back, "--implicit"}).status, 0);
    EXPECT_EQ(ReadBytes(back), ImplicitImage());
    // Asking for the encoding a file already has changes nothing.
    EXPECT_EQ(RunCli({"convert", "--implicit", implicitPath, back}).status, 0);
    EXPECT_EQ(ReadBytes(back), ImplicitImage());

    std::string jpeg = Scratch("jpeg.dcm"), out = Scratch("jpeg-out.dcm");
    ASSERT_TRUE(WriteBytes(jpeg, EncapsulatedImage()));
    for (const char* option : {"--implicit", "--explicit"}) {
        CliResult refused = RunCli({"convert", option, jpeg, out});
        EXPECT_EQ(refused.status, 1) << option;
        EXPECT_TRUE(Mentions(refused, "1.2.840.10008.1.2.4.50")) << refused.err;
        EXPECT_TRUE(Mentions(refused, "encapsulated")) << refused.err;
        EXPECT_FALSE(Exists(out));
    }
    // Kept in its own syntax, the compressed file is copied as it is.
    EXPECT_EQ(RunCli({"convert", jpeg, out}).status, 0);
    EXPECT_EQ(ReadBytes(out), EncapsulatedImage());
    for (const std::string& path : {implicitPath, explicitPath, back, jpeg, out})
        unlink(path.c_str());
}

TEST(ConvertCli, OutputNamingTheInputGoesThroughTheSafeRewrite)
{
    std::string path = Scratch("same.dcm");
    ASSERT_TRUE(WriteBytes(path, ImplicitImage()));
    EXPECT_EQ(RunCli({"convert", "--explicit", path, path}).status, 0);
    EXPECT_EQ(ReadBytes(path), ExplicitImage());
    EXPECT_FALSE(Exists(path + ".tmp"));

    // Another spelling of the same file is recognised as well.
    std::string directory = path.substr(0, path.find_last_of('/'));
    std::string spelled = directory + "/./" + path.substr(path.find_last_of('/') + 1);
    EXPECT_EQ(RunCli({"convert", "--implicit", path, spelled}).status, 0);
    EXPECT_EQ(ReadBytes(path), ImplicitImage());

    // When the temporary copy cannot be made, the file stays as it was.
    ASSERT_EQ(mkdir((path + ".tmp").c_str(), 0700), 0);
    CliResult blocked = RunCli({"convert", "--explicit", path, path});
    EXPECT_EQ(blocked.status, 1);
    EXPECT_TRUE(Mentions(blocked, "in place")) << blocked.err;
    EXPECT_EQ(ReadBytes(path), ImplicitImage());
    rmdir((path + ".tmp").c_str());
    unlink(path.c_str());
}
