// `zeldicom store` against a scripted peer that accepts the association and
// then answers the C-STORE request wrongly: each answer leaves one line
// naming it and a failing exit status.
#include <gtest/gtest.h>

#include "network/scripted_peer.h"
#include "support/cli.h"

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
