// Each network command waits for the connection, for the association
// control answers and for DIMSE messages with the time-out of that wait
// alone: a peer that stalls at one stage ends the command with the step and
// the time-out of that stage, while the two others stay long. A command
// that used a longer time-out would outlive the stall (10 s), and its
// failure would name the peer closing the connection instead.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "network/peer_process.h"
#include "network/usersocket.h"
#include "network/scripted_peer.h"
#include "support/cli.h"

using namespace pdufix;

namespace {

struct StallCase {
    const char* name;
    std::vector<std::string> command;  // with its own options, before host and port
    const char* timeout;               // the option of the wait that must give up after 1 s
    std::vector<Step> script;          // empty: nobody accepts the connection
    const char* words;                 // expected in the error line
};

std::vector<StallCase> Cases()
{
    const std::vector<Step> accepted = {Expect(0x01), Send(kAssociateAcOneContext)};
    auto then = [&accepted](std::vector<Step> rest) {
        std::vector<Step> script = accepted;
        script.insert(script.end(), rest.begin(), rest.end());
        return script;
    };
    const Bytes findFinal = pdu(0x04, pdv(1, 0x03, commandSet({cmd(0x0100, le(0x8020, 2)), cmd(0x0120, le(1, 2)),
                                                                cmd(0x0800, le(0x0101, 2)), cmd(0x0900, le(0, 2))})));
    const std::vector<std::string> find = {"find", "-k", "PatientName"};
    return {
        {"echo: connection", {"echo"}, "-to", {}, "connect: timed out after 1 s"},
        {"find: connection", find, "-to", {}, "connect: timed out after 1 s"},
        {"worklist: connection", {"worklist"}, "-to", {}, "connect: timed out after 1 s"},
        {"echo: association answer", {"echo"}, "-ta", {Expect(0x01), Stall()}, "association answer: timed out: no answer from the peer within 1 s"},
        {"move: association answer", {"move", "--dest", "DEST", "-k", "PatientID=1"}, "-ta", {Expect(0x01), Stall()},
         "association: timed out: no answer from the peer within 1 s"},
        {"worklist: association answer", {"worklist"}, "-ta", {Expect(0x01), Stall()},
         "association: timed out: no answer from the peer within 1 s"},
        {"echo: response", {"echo"}, "-td", then({Stall()}), "C-ECHO response: timed out: no answer from the peer within 1 s"},
        {"find: pending responses", find, "-td", then({Stall()}), "C-FIND response: timed out"},
        {"move: responses", {"move", "--dest", "DEST", "-k", "PatientID=1"}, "-td", then({Stall()}), "C-MOVE response: timed out"},
        {"store: response", {"store"}, "-td", then({Stall()}), "timed out"},
        {"worklist: responses", {"worklist"}, "-td", then({Stall()}), "C-FIND response: timed out"},
        {"print: association answer", {"print"}, "-ta", {Expect(0x01), Stall()},
         "association: timed out: no answer from the peer within 1 s"},
        {"print: printer status", {"print"}, "-td", then({Stall()}), "printer status: timed out: no answer from the peer within 1 s"},
        {"commit: N-ACTION response", {"commit", "--listen", "0"}, "-td", then({Stall()}), "N-ACTION response: timed out"},
        {"echo: release answer", {"echo"}, "-ta", then({Expect(0x04), Send(kEchoResponseSuccess), Expect(0x05), Stall()}),
         "release not answered: no A-RELEASE-RP within 1 s"},
        {"find: release answer", find, "-ta",
         then({Expect(0x04), Expect(0x04), Send(findFinal), Expect(0x05), Stall()}),
         "release not answered: no A-RELEASE-RP within 1 s"},
    };
}

}

TEST(Timeouts, EachWaitEndsWithItsOwnTimeout)
{
    const std::string ct = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";
    for (const StallCase& stall : Cases()) {
        SCOPED_TRACE(stall.name);
        std::unique_ptr<UnansweredListener> unanswered;
        std::unique_ptr<ScriptedPeer> peer;
        uint16_t port;
        if (stall.script.empty()) {
            unanswered = std::make_unique<UnansweredListener>();
            port = unanswered->Port();
        } else {
            peer = std::make_unique<ScriptedPeer>(stall.script);
            port = peer->Port();
        }
        std::vector<std::string> args = stall.command;
        if (args[0] == "commit")
            args.back() = std::to_string(FreePort());
        args.insert(args.begin() + 1, {"--timeout", "30", stall.timeout, "1"});
        args.insert(args.end(), {"127.0.0.1", std::to_string(port)});
        if (args[0] == "store" || args[0] == "commit" || args[0] == "print")
            args.push_back(ct);
        CliResult run = RunCli(args);
        EXPECT_EQ(run.status, 1);
        EXPECT_NE((run.out + run.err).find(stall.words), std::string::npos) << run.out << run.err;
        // Generous: the right time-out ends it after about 1 s, any other after 10 s or more.
        EXPECT_LT(run.seconds, 8.0);
    }
}

TEST(Timeouts, AnInterruptionStopsAPendingConnection)
{
    // A user's first Ctrl-C during find or move: the connection stops at once,
    // not after its time-out.
    UnansweredListener unanswered;
    HOST_INFO host;
    host.Set("127.0.0.1", unanswered.Port(), "ANY-SCP", "ZELDICOM");
    CUserSocket socket;
    socket.SetTimeout(20000);
    socket.SetCancellation(0, [] { return 1; });
    QR_REQUEST request;
    uint16_t finalStatus = 0;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(socket.Do_CFIND_Request(host, request, nullptr, finalStatus), static_cast<int>(kErrorInterrupted));
    EXPECT_EQ(socket.GetErrorText(), "connect: interrupted");
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 5.0);
}
