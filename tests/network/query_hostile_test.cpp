// `zeldicom find` and `move` against a scripted peer that accepts the
// association and then answers wrongly: another message ID, another
// command, a data PDV inside a command, failure statuses, a peer that
// closes or falls silent in the middle of the responses. Each run ends in
// time with its words and a failing exit status.
#include <gtest/gtest.h>

#include "network/scripted_peer.h"
#include "support/cli.h"
#include "support/dicomwriter.h"

using namespace pdufix;

namespace {

Bytes Response(uint16_t command, uint16_t messageId, uint16_t status, bool dataFollows, uint8_t control = 0x03)
{
    return pdu(0x04, pdv(1, control,
                         commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.4.1.2.2.1")), cmd(0x0100, le(command, 2)),
                                     cmd(0x0120, le(messageId, 2)), cmd(0x0800, le(dataFollows ? 0 : 0x0101, 2)),
                                     cmd(0x0900, le(status, 2)), cmd(0x1021, le(2, 2))})));
}
// An identifier in implicit VR little endian: Patient's Name "Doe^J".
const Bytes kMatch = pdu(0x04, pdv(1, 0x02, cat({le(0x0010, 2), le(0x0010, 2), le(6, 4), Bytes{'D', 'o', 'e', '^', 'J', ' '}})));

}

TEST(QueryHostilePeer, WrongAnswersEndTheRunInWords)
{
    const Bytes accept = associateAc(contextAc(1, 0, "1.2.840.10008.1.2"));
    const Bytes pending = Response(0x8020, 1, 0xFF00, true);
    const struct {
        const char* command;  // find or move
        std::vector<Step> answer;
        const char* words;
        bool matchShown;
    } cases[] = {
        {"find", {Send(Response(0x8020, 9, 0xFF00, true)), Send(kMatch)}, "C-FIND response: the C-FIND response answers message 9, not 1", false},
        {"find", {Send(Response(0x8030, 1, 0x0000, false))}, "the peer answered C-FIND-RQ with command 0x8030", false},
        {"find", {Send(Response(0x8020, 1, 0xFF00, true, 0x02))}, "a data PDV arrived inside a command set", false},
        {"find", {Send(pending), Send(kMatch), Close()}, "C-FIND response: the peer closed the connection", true},
        {"find", {Send(pending), Send(kMatch), Stall(5000)}, "C-FIND response: timed out", true},
        {"find", {Send(pending), Send(pdu(0x04, pdv(1, 0x02, Bytes{0x10, 0x00, 0x10, 0x00, 0xFF, 0x00, 0x00, 0x00})))},
         "a C-FIND response carries a malformed identifier", false},
        {"move", {Send(Response(0x8021, 1, 0xFF00, false)), Close()}, "C-MOVE response: the peer closed the connection", false},
        {"move", {Send(Response(0x8021, 4, 0x0000, false))}, "the C-MOVE response answers message 4, not 1", false},
    };
    for (const auto& hostile : cases) {
        SCOPED_TRACE(hostile.words);
        std::vector<Step> script{Expect(0x01), Send(accept), Expect(0x04), Expect(0x04)};
        script.insert(script.end(), hostile.answer.begin(), hostile.answer.end());
        ScriptedPeer peer(script);
        std::vector<std::string> args{hostile.command, "--timeout", "1", "-k", "PatientName"};
        if (std::string(hostile.command) == "move")
            args = {"move", "--timeout", "1", "--dest", "DEST", "-k", "PatientID=1"};
        args.insert(args.end(), {"127.0.0.1", std::to_string(peer.Port())});
        CliResult run = RunCli(args);
        EXPECT_EQ(run.status, 1);
        EXPECT_LT(run.seconds, 5);
        EXPECT_NE(run.err.find(hostile.words), std::string::npos) << run.err;
        EXPECT_EQ(run.out.find("(0010,0010) PN [Doe^J]") != std::string::npos, hostile.matchShown) << run.out;
        EXPECT_EQ(peer.Problem(), "");
    }
}

TEST(QueryHostilePeer, FailureStatusesAreFinalAndWorded)
{
    const Bytes accept = associateAc(contextAc(1, 0, "1.2.840.10008.1.2"));
    const struct {
        uint16_t status;
        const char* words;
    } cases[] = {{0xA700, "0 matches, final status 0xA700: Refused: Out of Resources"},
                 {0xC123, "0 matches, final status 0xC123: Failed: Unable to Process"},
                 {0xFE00, "0 matches, final status 0xFE00: Cancel: Matching terminated due to Cancel request"}};
    for (const auto& failure : cases) {
        ScriptedPeer peer({Expect(0x01), Send(accept), Expect(0x04), Expect(0x04),
                           Send(Response(0x8020, 1, failure.status, false)), Expect(0x05), Send(kReleaseRp)});
        CliResult run = RunCli({"find", "--timeout", "2", "-k", "PatientName", "127.0.0.1", std::to_string(peer.Port())});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.out.find(failure.words), std::string::npos) << run.out << run.err;
        EXPECT_EQ(peer.Problem(), "");
    }
}

TEST(QueryHostilePeer, EachMatchIsDecodedByItsOwnCharacterSet)
{
    using testsupport::ielem;
    using testsupport::text;
    // PS3.5 H.3.1: a Japanese name in ISO 2022 IR 87 (JIS X 0208 behind escape sequences).
    const std::string jis = "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B";
    const Bytes latin1 = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), ielem(0x0010, 0x0010, text("\xC4neas "))});
    const Bytes japanese = cat({ielem(0x0008, 0x0005, text("\\ISO 2022 IR 87 ")), ielem(0x0010, 0x0010, text(jis))});
    ScriptedPeer peer({Expect(0x01), Send(associateAc(contextAc(1, 0, "1.2.840.10008.1.2"))), Expect(0x04),
                       Expect(0x04), Send(Response(0x8020, 1, 0xFF00, true)), Send(pdu(0x04, pdv(1, 0x02, latin1))),
                       Send(Response(0x8020, 1, 0xFF00, true)), Send(pdu(0x04, pdv(1, 0x02, japanese))),
                       Send(Response(0x8020, 1, 0x0000, false)), Expect(0x05), Send(kReleaseRp)});
    CliResult run = RunCli({"find", "--timeout", "2", "-k", "PatientName", "127.0.0.1", std::to_string(peer.Port())});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_NE(run.out.find("[\xC3\x84neas]"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("[Yamada^Tarou=\xE5\xB1\xB1\xE7\x94\xB0^\xE5\xA4\xAA\xE9\x83\x8E="
                           "\xE3\x82\x84\xE3\x81\xBE\xE3\x81\xA0^\xE3\x81\x9F\xE3\x82\x8D\xE3\x81\x86]"),
              std::string::npos)
        << run.out;
    EXPECT_EQ(peer.Problem(), "");
}
