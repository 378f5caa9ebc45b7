// The worklist client against a scripted peer: matches are kept per
// pending response, the final status decides the result, the completion
// callback and the audit trail report every query, and wrong answers end
// the run within the time-out with one line.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <thread>

#include "network/scripted_peer.h"
#include "network/worklistsocket.h"
#include "platform/audit.h"
#include "platform/profile.h"
#include "support/cli.h"

using namespace pdufix;

namespace {

Bytes Response(uint16_t messageId, uint16_t status, bool identifierFollows, uint8_t control = 0x03)
{
    return pdu(0x04, pdv(1, control,
                         commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.4.31")), cmd(0x0100, le(0x8020, 2)),
                                     cmd(0x0120, le(messageId, 2)), cmd(0x0800, le(identifierFollows ? 0 : 0x0101, 2)),
                                     cmd(0x0900, le(status, 2))})));
}
// An identifier in implicit VR little endian: Patient's Name (six bytes).
Bytes Match(const std::string& name)
{
    return pdu(0x04, pdv(1, 0x02, cat({le(0x0010, 2), le(0x0010, 2), le(6, 4), Bytes(name.begin(), name.end())})));
}
const Bytes kAccept = associateAc(contextAc(1, 0, "1.2.840.10008.1.2"));

std::vector<Step> Script(std::initializer_list<Step> answer)
{
    std::vector<Step> script{Expect(0x01), Send(kAccept), Expect(0x04), Expect(0x04)};
    script.insert(script.end(), answer);
    return script;
}

struct TestUser : CSecurityFrameworkForDLL {
    std::u16string GetCurrentUserName() const override { return u"nurse"; }
};

}

TEST(WorklistHostilePeer, PendingMatchesAreKeptAndTheCallbackAndAuditTellTheOutcome)
{
    const std::string audit = testsupport::ScratchPath("audit");
    std::remove(audit.c_str());  // a trail left by an earlier process of the same pid
    CAuditTrailManager::GetUniqueInstance().SetLogFile(audit);
    TestUser user;
    CSecurityFrameworkForDLL::Install(&user);
    zeldicom::HostProfile::SetProfileInt("Worklist", "TimeOut", 2000);
    const struct {
        std::vector<Step> script;
        size_t matches;
        uint32_t error;
        uint16_t finalStatus;
    } cases[] = {
        // Three pending responses with identifiers, then Success.
        {Script({Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")), Send(Response(1, 0xFF01, true)),
                 Send(Match("BBB^B ")), Send(Response(1, 0xFF00, true)), Send(Match("CCC^C ")),
                 Send(Response(1, 0x0000, false)), Expect(0x05), Send(kReleaseRp)}),
         3, 0, 0x0000},
        // A pending response without identifier is no match.
        {Script({Send(Response(1, 0xFF00, false)), Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")),
                 Send(Response(1, 0x0000, false)), Expect(0x05), Send(kReleaseRp)}),
         1, 0, 0x0000},
        // A failure after two matches: they stay, the query failed.
        {Script({Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")), Send(Response(1, 0xFF00, true)),
                 Send(Match("BBB^B ")), Send(Response(1, 0xC001, false)), Expect(0x05), Send(kReleaseRp)}),
         2, kErrorFailureStatus, 0xC001},
        // An answer to another message.
        {Script({Send(Response(7, 0xFF00, true)), Send(Match("AAA^A "))}), 0, kErrorUnexpectedCommand, 0xFFFF},
    };
    int notified = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "matches " << c.matches << ", status " << c.finalStatus);
        ScriptedPeer peer(c.script);
        WL_FIND record;
        record.Set("127.0.0.1", peer.Port(), "WLSCP", "MODALITY1");
        ASSERT_TRUE(CWorklistSocket::CreateFindRequest(&record));
        record.nMessage = 0x0401;
        record.notify = [&](uint32_t message, uint32_t first, WL_FIND* done) {
            EXPECT_EQ(message, 0x0401u);
            EXPECT_EQ(first, 99u);
            EXPECT_EQ(done, &record);
            ++notified;
        };
        // On a worker thread, as a host runs it.
        unsigned result = 1;
        std::thread worker([&] { result = CWorklistSocket::FindThreadProc(&record); });
        worker.join();
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(record.aMatches.size(), c.matches);
        EXPECT_EQ(record.nError, c.error) << record.sErrorText;
        EXPECT_EQ(record.wFinalStatus, c.finalStatus);
        if (!record.aMatches.empty()) {
            std::u16string name;
            EXPECT_TRUE(record.aMatches[0]->tree.GetTagValue(0x0010, 0x0010, name));
            EXPECT_EQ(name, u"AAA^A");
        }
        EXPECT_EQ(peer.Problem(), "");
    }
    EXPECT_EQ(notified, 4);
    CSecurityFrameworkForDLL::Install(nullptr);
    CAuditTrailManager::GetUniqueInstance().SetLogFile("");
    zeldicom::HostProfile::Clear();

    std::stringstream lines;
    lines << std::ifstream(audit).rdbuf();
    const std::string trail = lines.str();
    size_t successes = 0, failures = 0;
    for (size_t at = trail.find("WORKLIST-QUERY SUCCESS | MODALITY1 | WLSCP | nurse\n"); at != std::string::npos;
         at = trail.find("WORKLIST-QUERY SUCCESS | MODALITY1 | WLSCP | nurse\n", at + 1))
        ++successes;
    for (size_t at = trail.find("WORKLIST-QUERY FAILURE | MODALITY1 | WLSCP | nurse\n"); at != std::string::npos;
         at = trail.find("WORKLIST-QUERY FAILURE | MODALITY1 | WLSCP | nurse\n", at + 1))
        ++failures;
    EXPECT_EQ(successes, 2u) << trail;
    EXPECT_EQ(failures, 2u) << trail;
}

TEST(WorklistHostilePeer, WrongAnswersEndWithinTheTimeOutInOneLine)
{
    const struct {
        std::vector<Step> answer;
        const char* words;
        bool matchShown;
    } cases[] = {
        {{Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")), Send(Response(1, 0xFF00, true)),
          Send(Match("BBB^B ")), Send(Response(1, 0xC001, false)), Expect(0x05), Send(kReleaseRp)},
         "2 matches, final status 0xC001: Failed: Unable to Process", true},
        {{Send(Response(1, 0xFF00, true)), Send(Response(1, 0x0000, false))},
         "C-FIND response: a command PDV arrived inside a data set", false},
        {{Send(Response(9, 0xFF00, true)), Send(Match("AAA^A "))},
         "C-FIND response: the C-FIND response answers message 9, not 1", false},
        {{Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")), Stall(5000)}, "C-FIND response: timed out", true},
        {{Send(Response(1, 0xFF00, true)), Send(Match("AAA^A ")), Close()},
         "C-FIND response: the peer closed the connection", true},
    };
    for (const auto& hostile : cases) {
        SCOPED_TRACE(hostile.words);
        std::vector<Step> script{Expect(0x01), Send(kAccept), Expect(0x04), Expect(0x04)};
        script.insert(script.end(), hostile.answer.begin(), hostile.answer.end());
        ScriptedPeer peer(script);
        CliResult run = RunCli({"worklist", "--timeout", "1", "127.0.0.1", std::to_string(peer.Port())});
        EXPECT_EQ(run.status, 1);
        EXPECT_LT(run.seconds, 2 + 1);
        const std::string& line = hostile.matchShown && run.err.empty() ? run.out : run.err;
        EXPECT_NE(line.find(hostile.words), std::string::npos) << run.out << run.err;
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), run.err.empty() ? 0 : 1) << run.err;
        EXPECT_EQ(run.out.find("AAA^A |") != std::string::npos, hostile.matchShown) << run.out;
        EXPECT_EQ(peer.Problem(), "");
    }
}
