// `zeldicom store` against DCMTK's storescp, started here on a free loopback
// port in a temporary folder: sample files sent from a folder tree arrive
// with every value equal as pydicom reads them, converted for a peer that
// takes implicit VR only; files that cannot be stored (refused syntax,
// truncated, DICOMDIR, aborted by the peer) get their line while the rest
// of the batch is stored.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/dicomwriter.h"
#include "network/peer_process.h"
#include "support/cli.h"

namespace fs = std::filesystem;

namespace {

// A storescp writing what it receives into folder/out, answering C-ECHO once it listens.
struct Storescp {
    Storescp(const std::string& name, const std::vector<std::string>& options)
        : folder(testsupport::ScratchPath(name)), port(FreePort()),
          peer(Arguments(options), (fs::create_directories(folder + "/out"), folder))
    {
        for (int attempt = 0; attempt < 200 && peer.Running(); ++attempt) {
            if (RunCli({"echo", "-aec", "STORESCP", "--timeout", "5", "127.0.0.1", std::to_string(port)}).status == 0)
                break;
            usleep(100000);
        }
    }
    std::vector<std::string> Arguments(const std::vector<std::string>& options) const
    {
        std::vector<std::string> argv{"storescp", "-aet", "STORESCP", "+uf", "-od", folder + "/out"};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.push_back(std::to_string(port));
        return argv;
    }
    CliResult Store(const std::vector<std::string>& paths, const std::vector<std::string>& options = {}) const
    {
        std::vector<std::string> args{"store", "-aec", "STORESCP"};
        args.insert(args.end(), options.begin(), options.end());
        args.insert(args.end(), {"127.0.0.1", std::to_string(port)});
        args.insert(args.end(), paths.begin(), paths.end());
        return RunCli(args);
    }
    size_t Received() const
    {
        return static_cast<size_t>(std::distance(fs::directory_iterator(folder + "/out"), fs::directory_iterator()));
    }
    std::string Compare(const std::string& syntax, const std::vector<std::string>& sent) const
    {
        return CompareReceived(folder, folder + "/out", syntax, sent);
    }
    std::string folder;
    uint16_t port;
    PeerProcess peer;
};

std::string Sample(const char* name) { return testsupport::PydicomDataDir() + "/test_files/" + name; }

}

TEST(StorePeers, FilesFromAFolderTreeArriveIntact)
{
    Storescp storescp("store-all", {"+xa"});
    std::string tree = storescp.folder + "/in";
    fs::create_directories(tree + "/series");
    const char* const samples[] = {"CT_small.dcm", "MR_small.dcm", "SC_rgb_jpeg_dcmtk.dcm"};
    for (const char* name : samples)
        fs::copy_file(Sample(name), tree + (name[0] == 'M' ? "/series/" : "/") + name);
    std::ofstream(tree + "/notes.txt") << "not DICOM";

    CliResult run = storescp.Store({tree});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("stored 3 of 3 files"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("notes.txt: skipped: not a DICOM file"), std::string::npos) << run.err;

    std::vector<std::string> sent;
    for (const char* name : samples)
        sent.push_back(Sample(name));
    EXPECT_EQ(storescp.Compare("same", sent), Same(3));
}

TEST(StorePeers, RefusedTransferSyntaxIsReportedAndFailsTheRun)
{
    Storescp storescp("store-refused", {});  // uncompressed transfer syntaxes only
    // Traced: the data set sent from the file is read for the trace too.
    testsupport::ScratchFolder trace("store-refused-trace");
    CliResult run = storescp.Store({Sample("SC_rgb_jpeg_dcmtk.dcm"), Sample("CT_small.dcm"), "/nonexistent.dcm"},
                                   {"--trace", trace.path});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("stored 1 of 3 files"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("SC_rgb_jpeg_dcmtk.dcm: not stored: the peer refused the presentation context for "
                           "SC Image Storage SOP Class (1.2.840.10008.5.1.4.1.1.7) in JPEG Baseline"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("Transfer Syntax Not Supported"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("/nonexistent.dcm: not stored: no such file or folder"), std::string::npos) << run.err;
    EXPECT_EQ(storescp.Received(), 1u);
    EXPECT_EQ(storescp.Compare("same", {Sample("CT_small.dcm")}), Same(1));
    auto [status, traced] = testsupport::RunShell("cat " + trace.path + "/DICOM*.LOG");
    EXPECT_NE(traced.find("P-DATA-TF"), std::string::npos) << status;
}

// PS3.5 10.1: every SCP accepts implicit VR little endian, and this one
// nothing else. Explicit VR files are converted on the way; files whose meta
// information names another SOP instance than their data set (rtplan,
// badVR, chrJapMulti) go under the data set's; a bare data set (rtstruct)
// goes as it is read; a DICOMDIR is skipped without failing the run.
TEST(StorePeers, ImplicitOnlyPeerReceivesEveryFileConverted)
{
    Storescp storescp("store-implicit", {"+xi"});
    const std::string data = testsupport::PydicomDataDir();
    const std::vector<std::string> sent = {Sample("CT_small.dcm"), Sample("MR_small.dcm"),
                                           Sample("rtplan.dcm"),   Sample("rtstruct.dcm"),
                                           Sample("badVR.dcm"),    data + "/charset_files/chrJapMulti.dcm"};
    std::vector<std::string> args = sent;
    args.push_back(Sample("dicomdirtests/DICOMDIR"));
    CliResult run = storescp.Store(args);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("stored 6 of 6 files"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("0 refused, 0 failed, 1 skipped"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("DICOMDIR: skipped: a DICOMDIR"), std::string::npos) << run.err;
    EXPECT_EQ(Lines(run.err).size(), 1u) << run.err;
    EXPECT_EQ(storescp.Compare("1.2.840.10008.1.2", sent), Same(sent.size()));
}

// A deflated file (PS3.5 A.5) goes deflated to a peer that takes it and
// inflated to implicit VR to one that does not; both read back equal.
TEST(StorePeers, DeflatedFileGoesDeflatedOrInflated)
{
    testsupport::ScratchFolder scratch("store-deflated");
    const std::string deflated = scratch.path + "/deflated.dcm";
    ASSERT_EQ(RunCli({"convert", Sample("CT_small.dcm"), deflated, "--deflated"}).status, 0);
    const struct {
        const char* option;
        const char* received;
    } peers[] = {{"+xa", "1.2.840.10008.1.2.1.99"}, {"+xi", "1.2.840.10008.1.2"}};
    for (const auto& peer : peers) {
        SCOPED_TRACE(peer.option);
        Storescp storescp(std::string("store-deflated") + peer.option, {peer.option});
        CliResult run = storescp.Store({deflated});
        EXPECT_EQ(run.status, 0) << run.err;
        EXPECT_NE(run.out.find("stored 1 of 1 files"), std::string::npos) << run.out;
        EXPECT_EQ(storescp.Compare(peer.received, {deflated}), Same(1));
    }
}

// One bad file does not end the batch: a truncated file is found before
// anything of it is sent, and a file the peer aborts the association over
// (a data set of odd length: "Odd Fragment Length") is followed by a new
// association for the next file.
TEST(StorePeers, BatchGoesOnPastTruncatedAndAbortedFiles)
{
    Storescp storescp("store-batch", {"+xa"});
    std::string tree = storescp.folder + "/in";
    fs::create_directories(tree);
    fs::copy_file(Sample("CT_small.dcm"), tree + "/1.dcm");
    fs::copy_file(Sample("MR_truncated.dcm"), tree + "/2.dcm");
    testsupport::Bytes odd = testsupport::ReadFile(Sample("MR_small.dcm"));
    const unsigned char element[] = {0x09, 0x00, 0x10, 0x00, 'L', 'O', 3, 0, 'a', 'b', 'c'};
    odd.insert(odd.end(), element, element + sizeof element);
    ASSERT_TRUE(testsupport::WriteFile(tree + "/3.dcm", odd));
    fs::copy_file(Sample("rtplan.dcm"), tree + "/4.dcm");
    fs::copy_file(Sample("rtdose.dcm"), tree + "/5.dcm");

    CliResult run = storescp.Store({tree});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("stored 3 of 5 files"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("0 refused, 2 failed"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("2.dcm: not stored: the data set is malformed or truncated"), std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("3.dcm: not stored: C-STORE: aborted"), std::string::npos) << run.err;
    EXPECT_EQ(Lines(run.err).size(), 2u) << run.err;
    EXPECT_EQ(storescp.Compare("same", {Sample("CT_small.dcm"), Sample("rtplan.dcm"), Sample("rtdose.dcm")}),
              Same(3));
}

// pydicom's whole sample folder: at least as many instances stored as
// storescu stores, and one line for every file that was not.
TEST(StorePeers, SampleFolderStoresAtLeastWhatStorescuStores)
{
    Storescp storescp("store-folder", {"+xa", "-pm"});
    const std::string folder = testsupport::PydicomDataDir() + "/test_files";
    auto [status, output] = testsupport::RunShell("TCP_NODELAY=1 storescu -v -nh +sd +r -aec STORESCP 127.0.0.1 " +
                                                  std::to_string(storescp.port) + " " + folder);
    size_t storescu = 0;
    for (const std::string& line : Lines(output))
        storescu += line.find("Received Store Response (Success)") != std::string::npos;
    ASSERT_GT(storescu, 50u) << output;

    CliResult run = storescp.Store({folder});
    int stored = 0, total = 0, refused = 0, failed = 0, skipped = 0;
    ASSERT_EQ(std::sscanf(run.out.c_str(), "stored %d of %d files (%*d bytes) to %*s at %*s in %*f s: %d refused, %d failed, %d skipped",
                          &stored, &total, &refused, &failed, &skipped),
              5)
        << run.out;
    EXPECT_GE(static_cast<size_t>(stored), storescu);
    EXPECT_EQ(Lines(run.err).size(), static_cast<size_t>(refused + failed + skipped)) << run.err;
    EXPECT_EQ(run.err.find("the association ended"), std::string::npos) << run.err;
}

// More SOP classes than the 128 contexts of one association hold (two each:
// explicit and implicit VR): the batch goes on in a second association.
TEST(StorePeers, ManySopClassesGoOverSeveralAssociations)
{
    using namespace testsupport;
    Storescp storescp("store-many", {"+xa", "-pm"});
    auto uidValue = [](std::string uid) { return uid.size() % 2 ? uid + '\0' : uid; };
    std::vector<std::string> paths;
    for (int i = 1; i <= 70; ++i) {
        const std::string sopClass = "1.2.826.0.1.3680043.2.1143.9." + std::to_string(i);
        const Bytes dataSet = cat({elem(0x0008, 0x0016, "UI", uidValue(sopClass)),
                                   elem(0x0008, 0x0018, "UI", uidValue(sopClass + ".1")),
                                   elem(0x0010, 0x0010, "PN", "Many^Classes")});
        paths.push_back(storescp.folder + "/" + std::to_string(i) + ".dcm");
        ASSERT_TRUE(WriteFile(paths.back(), fileImage("1.2.840.10008.1.2.1", dataSet)));
    }
    CliResult run = storescp.Store(paths);
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("stored 70 of 70 files"), std::string::npos) << run.out;
    EXPECT_EQ(storescp.Received(), 70u);
}
