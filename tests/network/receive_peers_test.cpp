// `zeldicom receive` as the storage SCP of DCMTK's storescu and of
// `zeldicom store`: what arrives reads back equal in pydicom, several
// clients at once all arrive, and faults (a client killed mid-object, a file
// size limit, an idle connection) leave no file or temporary behind and the
// receiver serving.
#include <gtest/gtest.h>

#include <thread>

#include "network/peer_process.h"
#include "network/scripted_peer.h"
#include "support/dicomwriter.h"

namespace fs = std::filesystem;
using namespace testsupport;

namespace {

constexpr char kStorescu[] = "/usr/bin/storescu";
constexpr char kExplicit[] = "1.2.840.10008.1.2.1";

std::string Sample(const std::string& name) { return PydicomDataDir() + "/test_files/" + name; }

// A CT object in explicit VR little endian with its meta information and
// pixelBytes of pixel data.
Bytes CtObject(const std::string& instance, size_t pixelBytes)
{
    const Bytes ct = pdufix::uid("1.2.840.10008.5.1.4.1.1.2"), sop = pdufix::uid(instance);
    const Bytes meta = cat({elem(0x0002, 0x0001, "OB", Bytes{0, 1}), elem(0x0002, 0x0002, "UI", ct),
                            elem(0x0002, 0x0003, "UI", sop), elem(0x0002, 0x0010, "UI", pdufix::uid(kExplicit))});
    const Bytes dataSet = cat({elem(0x0008, 0x0016, "UI", ct), elem(0x0008, 0x0018, "UI", sop),
                               elem(0x0010, 0x0010, "PN", text("Doe^Jane")), elem(0x0028, 0x0100, "US", us(16)),
                               elem(0x7FE0, 0x0010, "OW", Bytes(pixelBytes, 0x5A))});
    return cat({Bytes(128, 0), text("DICM"), elem(0x0002, 0x0000, "UL", Bytes{uint8_t(meta.size()), 0, 0, 0}), meta,
                dataSet});
}

CliResult Storescu(const std::string& option, uint16_t port, const std::vector<std::string>& files)
{
    std::vector<std::string> args{"-aec", "ANY-SCP"};
    if (!option.empty())
        args.push_back(option);
    args.insert(args.end(), {"127.0.0.1", std::to_string(port)});
    args.insert(args.end(), files.begin(), files.end());
    return RunCli(args, kStorescu);
}

}  // namespace

// The store tests' files, each sent by storescu in the transfer syntax it
// proposes it in and by `zeldicom store` (several share a SOP instance, so
// one at a time): every value arrives equal, in the file's transfer syntax
// (both senders propose it in a context of its own).
TEST(ReceivePeers, StorescuAndStoreDeliverEveryValue)
{
    setenv("TCP_NODELAY", "1", 1);
    Receiver receiver("receive-sweep");
    ASSERT_TRUE(receiver.ready) << receiver.Log();
    ScratchFolder scratch("receive-sweep-files");
    const std::string deflated = scratch.path + "/deflated.dcm";
    ASSERT_EQ(RunCli({"convert", "--deflated", Sample("CT_small.dcm"), deflated}).status, 0);
    const struct {
        std::string file, option;
    } sent[] = {
        {Sample("CT_small.dcm"), ""},
        {Sample("MR_small.dcm"), ""},
        {Sample("rtplan.dcm"), ""},
        {Sample("rtdose.dcm"), ""},
        {Sample("waveform_ecg.dcm"), ""},
        {PydicomDataDir() + "/charset_files/chrJapMulti.dcm", ""},
        {Sample("SC_rgb_jpeg_dcmtk.dcm"), "-xy"},
        {Sample("JPEG2000.dcm"), "-xw"},
        {Sample("MR_small_RLE.dcm"), "-xr"},
        {Sample("MR_small_jpeg_ls_lossless.dcm"), "-xt"},
        {deflated, "-xd"},
        {Sample("MR_small_bigendian.dcm"), "-xb"},
    };
    const std::string received = receiver.folder + "/in";
    for (const auto& file : sent) {
        SCOPED_TRACE(file.file);
        for (bool storescu : {true, false}) {
            CliResult run = storescu ? Storescu(file.option, receiver.port, {file.file})
                                     : RunCli({"store", "127.0.0.1", std::to_string(receiver.port), file.file});
            EXPECT_EQ(run.status, 0) << run.err;
            EXPECT_EQ(CompareReceived(scratch.path, received, "same", {file.file}), Same(1)) << storescu;
            for (const std::string& name : receiver.Entries())
                fs::remove(received + "/" + name);
        }
    }
    EXPECT_TRUE(receiver.AwaitLog(".dcm: RT Plan Storage from STORESCU, ")) << receiver.Log();
    EXPECT_TRUE(receiver.AwaitLog(".dcm: RT Plan Storage from ZELDICOM, ")) << receiver.Log();
}

// Four storescu clients at once, 25 files each: all 100 arrive equal.
TEST(ReceivePeers, SeveralClientsAtOnceAllArrive)
{
    setenv("TCP_NODELAY", "1", 1);
    Receiver receiver("receive-load");
    ASSERT_TRUE(receiver.ready) << receiver.Log();
    ScratchFolder scratch("receive-load-files");
    std::vector<std::string> files;
    for (int client = 0; client < 4; ++client) {
        fs::create_directories(scratch.path + "/" + std::to_string(client));
        for (int i = 0; i < 25; ++i) {
            files.push_back(scratch.path + "/" + std::to_string(client) + "/" + std::to_string(i) + ".dcm");
            ASSERT_TRUE(WriteFile(files.back(), CtObject("1.2.3." + std::to_string(client) + "." + std::to_string(i), 4096)));
        }
    }
    {
        std::vector<std::unique_ptr<PeerProcess>> clients;
        for (int client = 0; client < 4; ++client) {
            const std::string log = scratch.path + "/log" + std::to_string(client);
            fs::create_directories(log);
            clients.push_back(std::make_unique<PeerProcess>(
                std::vector<std::string>{kStorescu, "+sd", "127.0.0.1", std::to_string(receiver.port),
                                         scratch.path + "/" + std::to_string(client)},
                log));
        }
        for (const auto& client : clients)
            for (int wait = 0; wait < 600 && client->Running(); ++wait)
                usleep(100000);
    }
    EXPECT_EQ(receiver.Entries().size(), files.size());
    EXPECT_EQ(CompareReceived(scratch.path, receiver.folder + "/in", "same", files), Same(files.size()));
}

// Under a file size limit of 4 MiB, a 64 MiB object is answered Out of
// Resources and leaves nothing, while a small one is stored after it. (A
// client gone in the middle of an object is one of the hostile callers.)
TEST(ReceivePeers, FullDiskIsAnsweredAndTheReceiverServes)
{
    ScratchFolder scratch("receive-faults");
    const std::string big = scratch.path + "/big.dcm";
    ASSERT_TRUE(WriteFile(big, CtObject("1.2.3.99", 64u << 20)));
    Receiver limited("receive-limited", {}, "ulimit -f 4096");
    ASSERT_TRUE(limited.ready) << limited.Log();
    CliResult run = RunCli({"store", "127.0.0.1", std::to_string(limited.port), big, Sample("CT_small.dcm")});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.err.find("big.dcm: not stored: refused 0xA700"), std::string::npos) << run.err;
    EXPECT_NE(run.out.find("stored 1 of 2 files"), std::string::npos) << run.out;
    EXPECT_TRUE(limited.AwaitLog("1.2.3.99 not stored: refused 0xA700: out of resources")) << limited.Log();
    EXPECT_EQ(limited.Entries(), std::vector<std::string>{"1.3.6.1.4.1.5962.1.1.1.1.1.20040119072730.12322.dcm"});
}

// A connection that sends nothing is closed after the time-out (ARTIM);
// while one association is open, a second one over the limit of one is
// rejected (transient, local limit exceeded).
TEST(ReceivePeers, IdleConnectionsTimeOutAndTheLimitRejects)
{
    Receiver receiver("receive-idle", {"--timeout", "3", "--max-associations", "1", "-v"});
    ASSERT_TRUE(receiver.ready) << receiver.Log();
    pdufix::ScriptedClient silent(receiver.port, {pdufix::ExpectClose(10000)});
    EXPECT_EQ(silent.Problem(), "");
    EXPECT_TRUE(receiver.AwaitLog("no data for 3000 ms")) << receiver.Log();

    auto accepted = [&receiver] {
        size_t count = 0;
        for (const std::string& line : Lines(receiver.Log()))
            count += line.find(": accepted (") != std::string::npos;
        return count;
    };
    const size_t before = accepted();
    std::thread holder([&receiver] {
        pdufix::ScriptedClient client(
            receiver.port, {pdufix::Send(pdufix::associateRq(pdufix::contextRq(1, "1.2.840.10008.1.1", {kExplicit}))),
                            pdufix::Expect(0x02), pdufix::Stall(5000)});
    });
    for (int wait = 0; wait < 100 && accepted() == before; ++wait)
        usleep(50000);
    CliResult refused = receiver.Echo();
    holder.join();  // the receiver aborts the idle association after 3 s
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("local limit exceeded"), std::string::npos) << refused.err;
    EXPECT_EQ(receiver.Echo().status, 0);
}
