// `zeldicom echo` against a scripted peer that misbehaves in every way a
// peer can: each case must end with a non-zero status and one line naming
// the failure, within the time-out plus a second and in bounded memory.
#include <gtest/gtest.h>

#include "network/scripted_peer.h"
#include "support/dicomwriter.h"
#include "support/cli.h"

using namespace pdufix;

namespace {

struct HostileCase {
    const char* name;
    std::vector<Step> script;
    const char* words;  // expected in the error line
};

std::vector<HostileCase> Cases()
{
    Bytes pastEnd = kAssociateAcOneContext;
    // The presentation context item claims 200 bytes more than the PDU holds.
    pastEnd[6 + 68 + 4 + 21 + 2] = 0x01;
    return {
        {"never answers", {Expect(0x01), Stall()}, "association answer: timed out"},
        {"closes at once", {Close()}, "the peer closed the connection"},
        {"garbage instead of A-ASSOCIATE-AC", {Expect(0x01), Send(Bytes{'H', 'T', 'T', 'P', '/', '1', '.', '1', ' ', '4', '0', '0', '\r', '\n'}), Stall()},
         "malformed PDU"},
        {"A-ASSOCIATE-RJ", {Expect(0x01), Send(kAssociateRjCalledTitle), Stall()},
         "association rejected (permanent) by the called application (service user): called AE title not recognised"},
        {"A-ABORT", {Expect(0x01), Send(kAbortFromProvider), Stall()}, "aborted: the peer aborted the association (A-ABORT, source 2, reason 6)"},
        {"PDU header claiming 4 GiB", {Expect(0x01), Send(Bytes{0x02, 0, 0xFF, 0xFF, 0xFF, 0xF0}), Stall()},
         "malformed PDU: the peer announced a PDU (type 0x02) of 4294967280 bytes"},
        {"item length past the PDU", {Expect(0x01), Send(pastEnd), Stall()}, "malformed PDU: malformed A-ASSOCIATE-AC"},
        {"PDV length past the PDU",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(pdu(0x04, {0, 0, 1, 0, 1, 3, 0, 0})), Stall()},
         "C-ECHO response: malformed PDU: a PDV item length runs past"},
        {"P-DATA-TF claiming 2 GiB then quiet",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(Bytes{0x04, 0, 0x80, 0, 0, 0}), Stall()},
         "malformed PDU: the peer announced a PDU (type 0x04) of 2147483648 bytes"},
        {"P-DATA-TF header then quiet",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(Bytes{0x04, 0, 0, 0, 0x10, 0}), Stall()},
         "C-ECHO response: timed out"},
        {"no A-RELEASE-RP",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(kEchoResponseSuccess), Expect(0x05), Stall()},
         "release not answered: no A-RELEASE-RP within 1 s"},
        {"A-ASSOCIATE-AC in place of A-RELEASE-RP",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(kEchoResponseSuccess), Expect(0x05),
          Send(kAssociateAcOneContext), Stall()},
         "release not answered: a PDU of type 0x02 (A-ASSOCIATE-AC) came instead of A-RELEASE-RP"},
        {"C-ECHO failure status",
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Send(pdu(0x04, pdv(1, 3, echoResponse(1, 0xC000)))), Stall()},
         "status 0xC000 (FAILED: UNABLE TO PROCESS)"},
    };
}

}

TEST(EchoHostilePeer, EveryMisbehaviourEndsWithOneClearLine)
{
    for (const HostileCase& hostile : Cases()) {
        SCOPED_TRACE(hostile.name);
        ScriptedPeer peer(hostile.script);
        CliResult run = RunCli({"echo", "--timeout", "1", "127.0.0.1", std::to_string(peer.Port())});
        EXPECT_EQ(run.status, 1);
        std::vector<std::string> lines = Lines(run.err);
        ASSERT_EQ(lines.size(), 1u) << run.err;
        EXPECT_NE(lines[0].find(hostile.words), std::string::npos) << lines[0];
        EXPECT_LT(run.seconds, 2.0);
#if !defined(__SANITIZE_ADDRESS__)
        EXPECT_LT(run.maxResidentKiB, 64 * 1024);
#endif
    }
}

TEST(EchoHostilePeer, DribbledAnswersStillSucceed)
{
    // Every answer arrives a byte at a time: each byte restarts the time-out.
    ScriptedPeer peer({Expect(0x01), Dribble(kAssociateAcOneContext, 2), Expect(0x04), Dribble(kEchoResponseSuccess, 2),
                       Expect(0x05), Dribble(kReleaseRp, 2)});
    CliResult run = RunCli({"echo", "--timeout", "1", "127.0.0.1", std::to_string(peer.Port())});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(peer.Problem(), "");
}

TEST(EchoHostilePeer, NamesRefusedConnectionsAndBadArguments)
{
    uint16_t closedPort;
    {
        ScriptedPeer peer({Close()});
        closedPort = peer.Port();
        RunCli({"echo", "--timeout", "1", "127.0.0.1", std::to_string(closedPort)});
    }
    CliResult refused = RunCli({"echo", "127.0.0.1", std::to_string(closedPort)});
    EXPECT_EQ(refused.status, 1);
    EXPECT_NE(refused.err.find("connect: connection refused"), std::string::npos) << refused.err;
    EXPECT_EQ(RunCli({"echo", "127.0.0.1"}).status, 2);
    EXPECT_EQ(RunCli({"echo", "-aet", "SEVENTEEN_LETTERS", "127.0.0.1", "104"}).status, 2);
}
