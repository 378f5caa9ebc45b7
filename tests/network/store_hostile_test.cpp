// `zeldicom store` against a scripted peer that accepts the association and
// then answers the C-STORE request wrongly: each answer leaves one line
// naming it and a failing exit status.
#include <gtest/gtest.h>

#include "network/scripted_peer.h"
#include "support/cli.h"
#include "support/dicomwriter.h"
#include "support/files.h"

using namespace pdufix;

namespace {

Bytes StoreResponse(uint16_t commandField, uint16_t messageId, uint16_t status)
{
    return pdu(0x04, pdv(1, 0x03,
                         commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.4.1.1.4")), cmd(0x0100, le(commandField, 2)),
                                     cmd(0x0120, le(messageId, 2)), cmd(0x0800, le(0x0101, 2)),
                                     cmd(0x0900, le(status, 2))})));
}

}

TEST(StoreHostilePeer, WrongAnswersToCStoreAreNamed)
{
    // MR_small: MR Image Storage in explicit VR little endian, a data set
    // that fits one P-DATA-TF of the 16 KiB the peer announces.
    const std::string file = testsupport::PydicomDataDir() + "/test_files/MR_small.dcm";
    const Bytes accept = associateAc(contextAc(1, 0, "1.2.840.10008.1.2.1"));
    const struct {
        Bytes response;
        const char* words;
    } cases[] = {
        {StoreResponse(0x8001, 1, 0xA700), "MR_small.dcm: not stored: refused 0xA700: out of resources"},
        {StoreResponse(0x8001, 1, 0xC123), "MR_small.dcm: not stored: failed 0xC123: cannot understand"},
        {StoreResponse(0x8001, 9, 0x0000), "MR_small.dcm: not stored: C-STORE: the C-STORE response answers message 9, not 1"},
        {StoreResponse(0x8030, 1, 0x0000), "the peer answered C-STORE-RQ with command 0x8030"},
    };
    for (const auto& hostile : cases) {
        SCOPED_TRACE(hostile.words);
        ScriptedPeer peer({Expect(0x01), Send(accept), Expect(0x04), Expect(0x04), Send(hostile.response),
                           Expect(0x05), Send(kReleaseRp)});
        CliResult run = RunCli({"store", "--timeout", "2", "127.0.0.1", std::to_string(peer.Port()), file});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find(hostile.words), std::string::npos) << run.err;
        EXPECT_NE(run.out.find("stored 0 of 1 files"), std::string::npos) << run.out;
    }
}

// A peer that closes the connection while a data set of several MiB goes
// out from its file, as it lies or converted to implicit VR: the file is
// reported as not stored, and the process lives on to say so.
TEST(StoreHostilePeer, ConnectionClosedWhileALargeDataSetGoesOut)
{
    using testsupport::cat, testsupport::elem;
    testsupport::ScratchFolder folder("store-closed");
    const std::string file = folder.path + "/large.dcm";
    ASSERT_TRUE(testsupport::WriteFile(
        file, testsupport::fileImage("1.2.840.10008.1.2.1",
                                     cat({elem(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.7"),
                                          elem(0x0008, 0x0018, "UI", "1.2.3.4"),
                                          elem(0x7FE0, 0x0010, "OB", testsupport::Bytes(6 << 20, 0x5A))}))));
    const Bytes accepts[] = {associateAc(contextAc(1, 0, "1.2.840.10008.1.2.1")),
                             associateAc(cat({contextAc(1, 4, "1.2.840.10008.1.2.1"),
                                              contextAc(3, 0, "1.2.840.10008.1.2")}))};
    for (const Bytes& accept : accepts) {
        ScriptedPeer peer({Expect(0x01), Send(accept), Expect(0x04), Close()});
        CliResult run = RunCli({"store", "--timeout", "5", "127.0.0.1", std::to_string(peer.Port()), file});
        EXPECT_EQ(run.status, 1) << run.err;
        EXPECT_NE(run.err.find("large.dcm: not stored"), std::string::npos) << run.err;
        EXPECT_NE(run.out.find("stored 0 of 1 files"), std::string::npos) << run.out;
    }
}
