// `zeldicom find`, `move` and `get` against a scripted peer that accepts the
// association and then answers wrongly: another message ID, another
// command, a data PDV inside a command, failure statuses, a peer that
// closes or falls silent in the middle of the responses, C-GET
// sub-operations that cannot be stored. Each run ends in time with its
// words and a failing exit status.
#include <gtest/gtest.h>

#include <filesystem>

#include "network/scripted_peer.h"
#include "network/storeresponder.h"
#include "network/usersocket.h"
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

namespace {

// Of the contexts a C-GET proposes (1 the C-GET, then the storage classes
// from 3 on; CT Image is the sixth), the C-GET and CT Image are accepted.
constexpr uint8_t kCtContext = 13;
const std::string kCtClass = "1.2.840.10008.5.1.4.1.1.2";
const Bytes kGetAccept =
    associateAc(cat({contextAc(1, 0, "1.2.840.10008.1.2"), contextAc(kCtContext, 0, "1.2.840.10008.1.2")}));

// A C-STORE-RQ for CT instance 1.2.3.4 and a data set naming dataSetInstance.
Bytes StoreRequest(uint8_t context, const std::string& dataSetInstance)
{
    const Bytes command = commandSet({cmd(0x0002, uid(kCtClass)), cmd(0x0100, le(0x0001, 2)), cmd(0x0110, le(7, 2)),
                                      cmd(0x0700, le(0, 2)), cmd(0x0800, le(0, 2)), cmd(0x1000, uid("1.2.3.4"))});
    const Bytes dataSet = cat({le(0x0008, 2), le(0x0016, 2), le(uid(kCtClass).size(), 4), uid(kCtClass), le(0x0008, 2),
                               le(0x0018, 2), le(uid(dataSetInstance).size(), 4), uid(dataSetInstance)});
    return cat({pdu(0x04, pdv(context, 0x03, command)), pdu(0x04, pdv(context, 0x02, dataSet))});
}

Bytes GetResponse(uint16_t status, uint16_t completed, uint16_t failed)
{
    return pdu(0x04, pdv(1, 0x03, commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.4.1.2.2.3")), cmd(0x0100, le(0x8010, 2)),
                                              cmd(0x0120, le(1, 2)), cmd(0x0800, le(0x0101, 2)), cmd(0x0900, le(status, 2)),
                                              cmd(0x1020, le(0, 2)), cmd(0x1021, le(completed, 2)),
                                              cmd(0x1022, le(failed, 2)), cmd(0x1023, le(0, 2))})));
}

}

TEST(QueryHostilePeer, GetSubOperationsThatCannotBeStoredAreRefusedAndLeaveNoFile)
{
    const struct {
        uint8_t context;
        const char* dataSetInstance;
        const char* words;
    } cases[] = {
        {3, "1.2.3.4", "1.2.3.4 (1.2.840.10008.5.1.4.1.1.2) answered 0x0122"},  // a context not accepted
        {kCtContext, "1.2.3.5", "1.2.3.4 (1.2.840.10008.5.1.4.1.1.2) answered 0xA900"},
    };
    for (const auto& refused : cases) {
        SCOPED_TRACE(refused.words);
        ScriptedPeer peer({Expect(0x01), Send(kGetAccept), Expect(0x04), Expect(0x04),
                           Send(StoreRequest(refused.context, refused.dataSetInstance)), ExpectOnContext(refused.context),
                           Send(GetResponse(0xB000, 0, 1)), Expect(0x05), Send(kReleaseRp)});
        const std::string folder = testsupport::ScratchPath("get-refused");
        std::filesystem::create_directories(folder);
        CliResult run = RunCli({"get", "--timeout", "2", "-k", "StudyInstanceUID=1.2.3", "--dir", folder, "127.0.0.1",
                                std::to_string(peer.Port())});
        EXPECT_EQ(run.status, 1);
        EXPECT_NE(run.err.find(refused.words), std::string::npos) << run.err;
        EXPECT_NE(run.out.find("final: 0 remaining, 0 completed, 1 failed, 0 warning\n"
                               "final status 0xB000: Warning: sub-operations complete, one or more failures\n"
                               "0 files written"),
                  std::string::npos)
            << run.out;
        EXPECT_TRUE(std::filesystem::is_empty(folder));
        EXPECT_EQ(peer.Problem(), "");
        std::filesystem::remove_all(folder);
    }
}

TEST(QueryHostilePeer, GetCancelGoesOnTheGetContextAfterASubOperation)
{
    // The interruption asks for C-CANCEL once the first instance is stored:
    // the C-STORE-RSP goes on the CT context, the C-CANCEL-RQ on the C-GET's.
    ScriptedPeer peer({Expect(0x01), Send(kGetAccept), Expect(0x04), Expect(0x04), Send(StoreRequest(kCtContext, "1.2.3.4")),
                       ExpectOnContext(kCtContext), ExpectOnContext(1), Send(GetResponse(0xFE00, 1, 0)), Expect(0x05),
                       Send(kReleaseRp)});
    const std::string folder = testsupport::ScratchPath("get-cancel");
    std::filesystem::create_directories(folder);
    HOST_INFO host;
    host.Set("127.0.0.1", peer.Port(), "ANY-SCP", "ZELDICOM");
    QR_REQUEST request;
    request.keys.push_back({0x0020, 0x000D, "1.2.3"});
    CUserSocket socket;
    socket.SetTimeout(2000);
    int stored = 0;
    socket.SetCancellation(0, [&stored] { return stored > 0 ? 1 : 0; });
    DICOM_CMND_MSG final;
    EXPECT_EQ(socket.Do_CGET_Request(host, request, folder, nullptr,
                                     [&stored](const STORED_INSTANCE& instance) { stored += instance.status == 0; }, final),
              0)
        << socket.GetErrorText();
    EXPECT_EQ(stored, 1);
    EXPECT_EQ(final.wStatus, 0xFE00);
    EXPECT_TRUE(std::filesystem::exists(folder + "/1.2.3.4.dcm"));
    EXPECT_EQ(peer.Problem(), "");
    std::filesystem::remove_all(folder);
}
