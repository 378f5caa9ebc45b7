// Orthanc, started here with its own configuration on free loopback ports,
// against store, find, move (also to `move --receive`, the command itself
// as destination), get and storage commitment: the report arrives on
// the association Orthanc opens to `commit --listen`, with the stored
// instance committed and the one Orthanc never received failed; and the
// whole sample folder stored, at least as many instances as storescu stores.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/dicomwriter.h"
#include "network/peer_process.h"
#include "support/cli.h"

namespace fs = std::filesystem;

namespace {

// Orthanc's configuration in folder: DICOM only, on port, storing below folder.
void WriteOrthancConfig(const std::string& folder, uint16_t port, uint16_t listen, uint16_t movePort)
{
    std::ofstream(folder + "/orthanc.json") << R"({
  "Name": "ZELDICOM-TEST", "StorageDirectory": ")" << folder << R"(/storage",
  "IndexDirectory": ")" << folder << R"(/index", "HttpServerEnabled": false,
  "RemoteAccessAllowed": false, "AuthenticationEnabled": false, "DicomServerEnabled": true,
  "DicomAet": "ORTHANC", "DicomPort": )" << port << R"(, "DicomCheckCalledAet": true,
  "DicomAlwaysAllowEcho": true, "DicomAlwaysAllowStore": true, "DicomAlwaysAllowFind": true,
  "DicomAlwaysAllowMove": true, "DicomAlwaysAllowGet": true, "SaveJobs": false, "Plugins": [],
  "DicomModalities": { "scu": ["ZELDICOM", "127.0.0.1", )" << listen << R"(],
                       "movedest": ["MOVEDEST", "127.0.0.1", )" << movePort << R"(] }
})";
}

}

TEST(OrthancDimse, StoreFindMoveGetAndCommit)
{
    const std::string folder = testsupport::ScratchPath("orthanc-dimse");
    const uint16_t port = FreePort(), listen = FreePort(), movePort = FreePort();
    fs::create_directories(folder + "/moved");
    fs::create_directories(folder + "/destrun");
    WriteOrthancConfig(folder, port, listen, movePort);
    PeerProcess orthanc({"Orthanc", folder + "/orthanc.json"}, folder);
    PeerProcess dest({"storescp", "-aet", "MOVEDEST", "+xa", "-od", folder + "/moved", std::to_string(movePort)},
                     folder + "/destrun");
    const std::string ct = testsupport::PydicomDataDir() + "/test_files/CT_small.dcm";
    const std::string mr = testsupport::PydicomDataDir() + "/test_files/MR_small.dcm";
    const std::string p = std::to_string(port);
    CliResult stored;
    for (int attempt = 0; attempt < 100 && orthanc.Running(); ++attempt) {
        stored = RunCli({"store", "-aec", "ORTHANC", "--timeout", "5", "127.0.0.1", p, ct});
        if (stored.status == 0)
            break;
        usleep(100000);
    }
    ASSERT_EQ(stored.status, 0) << stored.err;

    for (const char* syntax : {"-xi", "-xb"}) {
        CliResult find = RunCli({"find", "-aec", "ORTHANC", syntax, "--level", "SERIES", "-k", "Modality", "-k",
                                 "SeriesInstanceUID", "-k", "PatientName=Compressed*", "127.0.0.1", p});
        EXPECT_EQ(find.status, 0) << find.err;
        EXPECT_NE(find.out.find("(0008,0060) CS [CT]"), std::string::npos) << find.out;
        EXPECT_NE(find.out.find("1 match, final status 0x0000: Success"), std::string::npos) << find.out;
    }

    // A patient named in Latin-1, found with a key given as UTF-8: declared
    // ISO_IR 192 when no character set is given, encoded in ISO_IR 100 when
    // that one is.
    const std::string aeneas = folder + "/aeneas.dcm";
    ASSERT_EQ(RunCli({"edit", ct, aeneas, "--set", "SpecificCharacterSet=ISO_IR 100", "--set",
                      "PatientName=\xc3\x84neas^Test", "--set", "PatientID=AEN1", "--set",
                      "StudyInstanceUID=1.2.826.0.1.3680043.10.1", "--set", "SeriesInstanceUID=1.2.826.0.1.3680043.10.2",
                      "--new-instance"})
                  .status,
              0);
    ASSERT_EQ(RunCli({"store", "-aec", "ORTHANC", "127.0.0.1", p, aeneas}).status, 0);
    for (const char* declared : {"", "SpecificCharacterSet=ISO_IR 100"}) {
        std::vector<std::string> args{"find", "-aec", "ORTHANC", "-k", "PatientName=\xc3\x84neas*", "-k", "PatientID"};
        if (*declared)
            args.insert(args.end(), {"-k", declared});
        args.insert(args.end(), {"127.0.0.1", p});
        CliResult find = RunCli(args);
        EXPECT_EQ(find.status, 0) << find.err;
        EXPECT_NE(find.out.find("[AEN1]"), std::string::npos) << declared << find.out;
        EXPECT_NE(find.out.find("1 match, final status 0x0000"), std::string::npos) << declared << find.out;
    }

    // Two studies now: cancelled after the first match, the query ends with
    // Cancel, unless Orthanc had sent every response before the C-CANCEL-RQ
    // reached it (the second match then arrives after the cancel left).
    CliResult cancelled = RunCli({"find", "-d", "-aec", "ORTHANC", "--cancel", "1", "-k", "StudyInstanceUID", "127.0.0.1", p});
    EXPECT_NE(cancelled.out.find("# match 1\n"), std::string::npos) << cancelled.out;
    EXPECT_EQ(cancelled.out.find("# match 2\n"), std::string::npos) << cancelled.out;
    if (cancelled.out.find("1 match, final status 0xFE00: Cancel") != std::string::npos) {
        EXPECT_EQ(cancelled.status, 1);
    } else {
        EXPECT_NE(cancelled.out.find("1 match, final status 0x0000: Success"), std::string::npos) << cancelled.out;
        EXPECT_NE(cancelled.err.find("Match after C-CANCEL-RQ: not reported"), std::string::npos) << cancelled.err;
    }
    EXPECT_NE(cancelled.err.find("C-CANCEL-RQ for message 1"), std::string::npos);

    CliResult move = RunCli({"move", "-aec", "ORTHANC", "--dest", "MOVEDEST", "-k",
                             "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322", "127.0.0.1", p});
    EXPECT_EQ(move.status, 0) << move.err;
    EXPECT_NE(move.out.find("1 completed, 0 failed"), std::string::npos) << move.out;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder + "/moved"), fs::directory_iterator()), 1);
    // C-GET of the same study: the instance comes back on the association, as pydicom reads what was stored.
    fs::create_directories(folder + "/got");
    CliResult get = RunCli({"get", "-aec", "ORTHANC", "-k", "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322",
                            "--dir", folder + "/got", "127.0.0.1", p});
    EXPECT_EQ(get.status, 0) << get.err;
    EXPECT_NE(get.out.find("final: 0 remaining, 1 completed, 0 failed, 0 warning"), std::string::npos) << get.out;
    auto [compared, same] = testsupport::RunShell("/usr/bin/python3 " ZELDICOM_SOURCE_DIR
                                                  "/tests/network/same_instances.py " + folder + "/got " + ct);
    EXPECT_EQ(same, "1 same\n");
    EXPECT_EQ(compared, 0);
    CliResult unknown = RunCli({"move", "-aec", "ORTHANC", "--dest", "NOWHERE", "-k",
                                "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322", "127.0.0.1", p});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.out.find("final status 0xC000: Failed: Unable to Process"), std::string::npos) << unknown.out;
    fs::create_directories(folder + "/received");
    CliResult self = RunCli({"move", "-aec", "ORTHANC", "--dest", "ZELDICOM", "--receive", folder + "/received", "--port",
                             std::to_string(listen), "-k", "StudyInstanceUID=1.3.6.1.4.1.5962.1.2.1.20040119072730.12322",
                             "127.0.0.1", p});
    EXPECT_EQ(self.status, 0) << self.err;
    EXPECT_NE(self.out.find("1 completed, 0 failed"), std::string::npos) << self.out;
    EXPECT_EQ(CompareReceived(folder, folder + "/received", "same", {ct}), Same(1));

    CliResult commit = RunCli({"commit", "-aec", "ORTHANC", "--listen", std::to_string(listen), "--timeout", "10",
                               "127.0.0.1", p, ct, mr});
    EXPECT_EQ(commit.status, 1) << commit.err;
    EXPECT_NE(commit.out.find("committed 1.3.6.1.4.1.5962.1.1.1.1.1.20040119072730.12322 CT Image Storage"),
              std::string::npos)
        << commit.out;
    EXPECT_NE(commit.out.find("failed 1.3.6.1.4.1.5962.1.1.4.1.1.20040826185059.5457 MR Image Storage SOP Class: "
                              "reason 0x0112"),
              std::string::npos)
        << commit.out;
    EXPECT_EQ(commit.err, "");
    CliResult allCommitted = RunCli({"commit", "-aec", "ORTHANC", "--listen", std::to_string(listen), "--timeout",
                                     "10", "127.0.0.1", p, ct});
    EXPECT_EQ(allCommitted.status, 0) << allCommitted.err;
    EXPECT_NE(allCommitted.out.find("1 committed, 0 failed"), std::string::npos) << allCommitted.out;
}

TEST(OrthancDimse, SampleFolderStoresAtLeastWhatStorescuStores)
{
    const std::string folder = testsupport::ScratchPath("orthanc-store");
    const uint16_t port = FreePort();
    fs::create_directories(folder);
    WriteOrthancConfig(folder, port, FreePort(), FreePort());
    PeerProcess orthanc({"Orthanc", folder + "/orthanc.json"}, folder);
    const std::string p = std::to_string(port);
    for (int attempt = 0; attempt < 100 && orthanc.Running(); ++attempt) {
        if (RunCli({"echo", "-aec", "ORTHANC", "--timeout", "5", "127.0.0.1", p}).status == 0)
            break;
        usleep(100000);
    }
    const std::string samples = testsupport::PydicomDataDir() + "/test_files";
    auto [status, output] =
        testsupport::RunShell("TCP_NODELAY=1 storescu -v -nh +sd +r -aec ORTHANC 127.0.0.1 " + p + " " + samples);
    size_t storescu = 0;
    for (const std::string& line : Lines(output))
        storescu += line.find("Received Store Response (Success)") != std::string::npos;
    ASSERT_GT(storescu, 50u) << output;

    // A deflated file (PS3.5 A.5) beside the samples.
    const std::string deflated = folder + "/deflated.dcm";
    ASSERT_EQ(RunCli({"convert", samples + "/rtplan.dcm", deflated, "--deflated"}).status, 0);
    CliResult run = RunCli({"store", "-aec", "ORTHANC", "127.0.0.1", p, samples, deflated});
    int stored = 0, total = 0, refused = 0, failed = 0, skipped = 0;
    ASSERT_EQ(std::sscanf(run.out.c_str(),
                          "stored %d of %d files (%*d bytes) to %*s at %*s in %*f s: %d refused, %d failed, %d skipped",
                          &stored, &total, &refused, &failed, &skipped),
              5)
        << run.out;
    EXPECT_GE(static_cast<size_t>(stored), storescu + 1);
    EXPECT_EQ(Lines(run.err).size(), static_cast<size_t>(refused + failed + skipped)) << run.err;
    // Files whose meta information names another instance than their data set.
    for (const char* name : {"rtplan.dcm", "rtdose.dcm", "badVR.dcm", "deflated.dcm"})
        EXPECT_EQ(run.err.find(std::string(name) + ": not stored"), std::string::npos) << run.err;
}
