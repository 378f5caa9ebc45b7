// How an association ends with peers that end it their own way: a release
// collision, an A-ABORT or a close answering A-RELEASE-RQ after the last
// response, a storage commitment report on the same association, a report
// that never comes, and a C-FIND cancelled after its first match.
#include <gtest/gtest.h>

#include <filesystem>

#include "network/peer_process.h"
#include "network/scripted_peer.h"
#include "support/cli.h"
#include "support/dicomwriter.h"
#include "support/files.h"

using namespace pdufix;

namespace {

constexpr char kCommitment[] = "1.2.840.10008.1.20.1";
const Bytes kReleaseRq = pdu(0x05, {0, 0, 0, 0});

Bytes Command(uint16_t field, uint16_t messageId, uint16_t dataSetType, uint16_t status, bool request = false)
{
    return commandSet({cmd(0x0002, uid(kCommitment)), cmd(0x0100, le(field, 2)),
                       cmd(request ? 0x0110 : 0x0120, le(messageId, 2)), cmd(0x0800, le(dataSetType, 2)),
                       cmd(request ? 0x1002 : 0x0900, le(request ? 1 : status, 2)),
                       cmd(0x1000, uid("1.2.840.10008.1.20.1.1"))});
}

// An N-EVENT-REPORT-RQ (event 1, all committed) for one CT instance, implicit VR.
Bytes EventReport()
{
    using testsupport::ielem;
    using testsupport::text;
    Bytes reference = cat({ielem(0x0008, 0x1150, text("1.2.840.10008.5.1.4.1.1.2")),
                           ielem(0x0008, 0x1155, text("1.2.3.4.5.6"))});
    Bytes data = cat({ielem(0x0008, 0x1195, text("1.2.3.4")), ielem(0x0008, 0x1199, testsupport::item(reference))});
    return cat({pdu(0x04, pdv(1, 0x03, Command(0x0100, 7, 0x0000, 0, true))), pdu(0x04, pdv(1, 0x02, data))});
}

struct EndingCase {
    const char* name;
    std::vector<std::string> command;  // behind the CLI, before host and port
    std::vector<Step> script;
    int status;
    const char* words;  // expected in standard output or error
    const char* traced = nullptr;  // expected in the protocol trace, when given
};

}

TEST(AssociationEnd, PeersEndingTheirOwnWay)
{
    const Bytes echoStart[] = {kAssociateAcOneContext, kEchoResponseSuccess};
    const Bytes commitAc = associateAc(contextAc(1, 0, "1.2.840.10008.1.2"));
    const Bytes actionRsp = pdu(0x04, pdv(1, 0x03, Command(0x8130, 1, 0x0101, 0x0000)));
    const Bytes match = pdu(0x04, cat({pdv(1, 0x03, commandSet({cmd(0x0100, le(0x8020, 2)), cmd(0x0120, le(1, 2)),
                                                                 cmd(0x0800, le(0x0000, 2)), cmd(0x0900, le(0xFF00, 2))})),
                                        pdv(1, 0x02, testsupport::ielem(0x0010, 0x0010, testsupport::text("DOE^JOHN")))}));
    const Bytes cancelled = pdu(0x04, pdv(1, 0x03, commandSet({cmd(0x0100, le(0x8020, 2)), cmd(0x0120, le(1, 2)),
                                                                cmd(0x0800, le(0x0101, 2)), cmd(0x0900, le(0xFE00, 2))})));
    const std::string file = std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm";
    const EndingCase cases[] = {
        {"release collision", {"echo"},
         {Expect(0x01), Send(echoStart[0]), Expect(0x04), Send(echoStart[1]), Expect(0x05), Send(kReleaseRq),
          Expect(0x06), Send(kReleaseRp)},
         0, ""},
        {"A-ABORT answering A-RELEASE-RQ", {"echo"},
         {Expect(0x01), Send(echoStart[0]), Expect(0x04), Send(echoStart[1]), Expect(0x05), Send(kAbortFromProvider)},
         0, ""},
        {"close answering A-RELEASE-RQ", {"echo"},
         {Expect(0x01), Send(echoStart[0]), Expect(0x04), Send(echoStart[1]), Expect(0x05), Close()}, 0, ""},
        {"report on the same association", {"commit", "--listen", "0"},
         {Expect(0x01), Send(commitAc), Expect(0x04), Expect(0x04), Send(actionRsp), Send(EventReport()), Expect(0x04),
          Expect(0x05), Send(kReleaseRp)},
         1, "committed 1.2.3.4.5.6 CT Image Storage"},
        {"N-ACTION answered, never reported", {"commit", "--timeout", "30", "-td", "2", "--listen", "0"},
         {Expect(0x01), Send(commitAc), Expect(0x04), Expect(0x04), Send(actionRsp), Stall(8000)},
         1, "N-EVENT-REPORT: the peer never reported: no N-EVENT-REPORT within 2 s"},
        {"C-FIND cancelled after one match", {"find", "--cancel", "1", "-k", "PatientName"},
         {Expect(0x01), Send(kAssociateAcOneContext), Expect(0x04), Expect(0x04), Send(match), Expect(0x04),
          Send(cancelled), Expect(0x05), Send(kReleaseRp)},
         1, "1 match, final status 0xFE00: Cancel", "(0010, 0010) Patient's Name"},
    };
    for (const EndingCase& ending : cases) {
        SCOPED_TRACE(ending.name);
        ScriptedPeer peer(ending.script);
        std::vector<std::string> args = ending.command;
        if (args[0] == "commit")
            args.back() = std::to_string(FreePort());  // a listener that no report reaches
        args.insert(args.end(), {"127.0.0.1", std::to_string(peer.Port())});
        if (args[0] == "commit")
            args.push_back(file);
        const std::string traceDir = testsupport::ScratchPath("association-end-trace");
        if (ending.traced) {
            std::filesystem::create_directories(traceDir);
            args.insert(args.begin() + 1, {"--trace", traceDir});
        }
        CliResult run = RunCli(args);
        if (ending.traced) {
            // The received identifier, element by element.
            std::string trace;
            for (const auto& entry : std::filesystem::directory_iterator(traceDir)) {
                testsupport::Bytes bytes = testsupport::ReadFile(entry.path().string());
                trace.append(bytes.begin(), bytes.end());
            }
            const size_t line = trace.find(ending.traced);
            ASSERT_NE(line, std::string::npos) << trace;
            EXPECT_NE(trace.find("DOE^JOHN", line), std::string::npos);
        }
        EXPECT_EQ(run.status, ending.status) << run.out << run.err;
        EXPECT_NE((run.out + run.err).find(ending.words), std::string::npos) << run.out << run.err;
        // Bounded by the time-out, not the 30 s default.
        EXPECT_LT(run.seconds, 6.0);
        EXPECT_EQ(peer.Problem(), "");
    }
}
