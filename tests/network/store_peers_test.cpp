// `zeldicom store` against DCMTK's storescp, started here on a free loopback
// port in a temporary folder: sample files sent from a folder tree arrive
// with every value equal as pydicom reads them, and a file whose transfer
// syntax the peer refuses gets its line and a failing exit status.
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
        std::vector<std::string> argv{"storescp", "-aet", "STORESCP", "-od", folder + "/out"};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.push_back(std::to_string(port));
        return argv;
    }
    CliResult Store(const std::vector<std::string>& paths) const
    {
        std::vector<std::string> args{"store", "-aec", "STORESCP", "127.0.0.1", std::to_string(port)};
        args.insert(args.end(), paths.begin(), paths.end());
        return RunCli(args);
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

    // Each received file holds every element of the sent one with the same
    // value; only the trailing padding, which storescp drops, is left out.
    std::ofstream(storescp.folder + "/compare.py") << R"(import sys, glob, pydicom
received = {}
for path in glob.glob(sys.argv[1] + '/out/*'):
    d = pydicom.dcmread(path)
    received[d.SOPInstanceUID] = d
for path in sys.argv[2:]:
    sent = pydicom.dcmread(path)
    got = received.get(sent.SOPInstanceUID)
    if got is None:
        print('missing', path); continue
    if got.file_meta.TransferSyntaxUID != sent.file_meta.TransferSyntaxUID:
        print('transfer syntax differs', path)
    for d in (sent, got):
        if (0xFFFC, 0xFFFC) in d:
            del d[0xFFFC, 0xFFFC]
    differing = [str(e.tag) for e in sent if e.tag not in got or got[e.tag].value != e.value]
    print('same' if not differing and len(sent) == len(got) else 'differs %s %s' % (path, differing))
)";
    std::string command = "/usr/bin/python3 " + storescp.folder + "/compare.py " + storescp.folder;
    for (const char* name : samples)
        command += " " + Sample(name);
    auto [status, output] = testsupport::RunShell(command);
    EXPECT_EQ(status, 0) << output;
    EXPECT_EQ(output, "same\nsame\nsame\n");
}

TEST(StorePeers, RefusedTransferSyntaxIsReportedAndFailsTheRun)
{
    Storescp storescp("store-refused", {});  // uncompressed transfer syntaxes only
    CliResult run = storescp.Store({Sample("SC_rgb_jpeg_dcmtk.dcm"), Sample("CT_small.dcm"), "/nonexistent.dcm"});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("stored 1 of 3 files"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("SC_rgb_jpeg_dcmtk.dcm: not stored: the peer refused the presentation context for "
                           "SC Image Storage SOP Class (1.2.840.10008.5.1.4.1.1.7) in JPEG Baseline"),
              std::string::npos)
        << run.err;
    EXPECT_NE(run.err.find("Transfer Syntax Not Supported"), std::string::npos) << run.err;
    EXPECT_NE(run.err.find("/nonexistent.dcm: not stored: no such file or folder"), std::string::npos) << run.err;
    EXPECT_EQ(std::distance(fs::directory_iterator(storescp.folder + "/out"), fs::directory_iterator()), 1);
}
