// The print clients against a scripted printer: the notifications and
// results of a job whose printer fails, refuses the image box, warns,
// answers another message or reports a failure after the job.
#include <gtest/gtest.h>

#include <thread>

#include "network/scripted_peer.h"
#include "platform/text.h"
#include "print/printsocket.h"
#include "support/cli.h"

using namespace pdufix;
using testsupport::ielem;
using testsupport::item;
using testsupport::text;

namespace {

Bytes Response(uint16_t command, uint16_t messageId, uint16_t status, bool dataFollows = false)
{
    return pdu(0x04, pdv(1, 0x03,
                         commandSet({cmd(0x0100, le(command, 2)), cmd(0x0120, le(messageId, 2)),
                                     cmd(0x0800, le(dataFollows ? 0 : 0x0101, 2)), cmd(0x0900, le(status, 2))})));
}
Bytes Data(const Bytes& dataSet) { return pdu(0x04, pdv(1, 0x02, dataSet)); }
Bytes PrinterStatus(const std::string& status, const std::string& info)
{
    auto padded = [](std::string s) { return text(s.size() % 2 ? s + " " : s); };
    return Data(cat({ielem(0x2110, 0x0010, padded(status)), ielem(0x2110, 0x0020, padded(info))}));
}
const Bytes kImageBoxes = Data(ielem(0x2010, 0x0510, item(cat({ielem(0x0008, 0x1150, uid("1.2.840.10008.5.1.1.4")),
                                                                ielem(0x0008, 0x1155, uid("1.2.3.4.1.1"))}))));
const Bytes kEventReportFailure =
    cat({pdu(0x04, pdv(1, 0x03,
                       commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.1.16")), cmd(0x0100, le(0x0100, 2)),
                                   cmd(0x0110, le(77, 2)), cmd(0x0800, le(0, 2)),
                                   cmd(0x1000, uid("1.2.840.10008.5.1.1.17")), cmd(0x1002, le(3, 2))}))),
         PrinterStatus("FAILURE", "FILM JAM")});

// Association and the printer's status; the film session's N-CREATE and the film box's.
std::vector<Step> UpToTheImageBox(uint16_t sessionStatus = 0x0000, uint16_t sessionAnswers = 2)
{
    return {Expect(0x01), Send(associateAc(contextAc(1, 0, "1.2.840.10008.1.2"))),
            Expect(0x04), Send(Response(0x8110, 1, 0x0000, true)), Send(PrinterStatus("NORMAL", "NORMAL")),
            Expect(0x04), Expect(0x04), Send(Response(0x8140, sessionAnswers, sessionStatus)),
            Expect(0x04), Expect(0x04), Send(Response(0x8140, 3, 0x0000, true)), Send(kImageBoxes),
            Expect(0x04), Expect(0x04), Expect(0x04)};  // N-SET: command, attributes, pixels
}
std::vector<Step> Join(std::vector<Step> steps, std::initializer_list<Step> more)
{
    steps.insert(steps.end(), more);
    return steps;
}
const std::vector<Step> kPrintedAndDeleted = {Expect(0x04), Send(Response(0x8130, 5, 0x0000)), Expect(0x04),
                                              Send(Response(0x8150, 6, 0x0000))};
const std::vector<Step> kReleased = {Expect(0x05), Send(kReleaseRp)};

}

TEST(PrintHostilePeer, NotificationsAndResultsTellWhatThePrinterDid)
{
    const std::string pixels = testsupport::ScratchPath("hostile-pixels");
    const struct {
        const char* name;
        std::vector<Step> script;
        bool waitReport;
        std::vector<std::pair<uint32_t, uint32_t>> messages;
        const char* words;  // in the warnings or the error words of the job
    } cases[] = {
        {"printer FAILURE: nothing created, released",
         {Expect(0x01), Send(associateAc(contextAc(1, 0, "1.2.840.10008.1.2"))), Expect(0x04),
          Send(Response(0x8110, 1, 0x0000, true)), Send(PrinterStatus("FAILURE", "FILM JAM")), Expect(0x05),
          Send(kReleaseRp)},
         false, {{kPrintJobDone, kErrorPrinterFailure}}, "FILM JAM"},
        {"image box refused: the session is still deleted and released",
         Join(UpToTheImageBox(), {Send(Response(0x8120, 4, 0xC603)), Expect(0x04), Send(Response(0x8150, 5, 0x0000)),
                                  Expect(0x05), Send(kReleaseRp)}),
         false, {{kPrintImageBoxFailed, 0}, {kPrintJobDone, 0}}, "0xC603"},
        {"a warning is reported, the job goes on",
         Join(Join(UpToTheImageBox(), {Send(Response(0x8120, 4, 0xB604))}),
              {Expect(0x04), Send(Response(0x8130, 5, 0x0000)), Expect(0x04), Send(Response(0x8150, 6, 0x0000)),
               Expect(0x05), Send(kReleaseRp)}),
         false, {{kPrintJobDone, 0}}, "N-SET-RSP warning 0xB604: image larger than the image box, demagnified"},
        {"an answer to another message",
         {Expect(0x01), Send(associateAc(contextAc(1, 0, "1.2.840.10008.1.2"))), Expect(0x04),
          Send(Response(0x8110, 1, 0x0000, true)), Send(PrinterStatus("NORMAL", "NORMAL")), Expect(0x04), Expect(0x04),
          Send(Response(0x8140, 9, 0x0000))},
         false, {{kPrintJobDone, kErrorUnexpectedCommand}}, "answers message 9, not 2"},
        {"an event report of FAILURE after the job",
         Join(Join(Join(UpToTheImageBox(), {Send(Response(0x8120, 4, 0x0000))}),
                   {Expect(0x04), Send(Response(0x8130, 5, 0x0000)), Expect(0x04), Send(Response(0x8150, 6, 0x0000))}),
              {Send(kEventReportFailure), Expect(0x04), Expect(0x05), Send(kReleaseRp)}),
         true, {{kPrintJobDone, kErrorPrinterFailure}}, "FILM JAM"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ScriptedPeer peer(c.script);
        ASSERT_TRUE(testsupport::WriteFile(pixels, {0, 64, 128, 255}));
        auto* param = new DICOM_PRINT_PARAM;
        std::snprintf(param->szHost, sizeof param->szHost, "127.0.0.1");
        param->nPort = peer.Port();
        std::snprintf(param->szCalledAETitle, sizeof param->szCalledAETitle, "PRINTER");
        std::snprintf(param->szCallingAETitle, sizeof param->szCallingAETitle, "HOST");
        std::snprintf(param->szFilmSessionUID, sizeof param->szFilmSessionUID, "1.2.3.4");
        param->ImageBox.wRows = param->ImageBox.wColumns = 2;
        param->ImageBox.sPixelFile = zeldicom::Utf8ToUtf16(pixels);
        param->bWaitForEventReport = c.waitReport;
        std::vector<std::pair<uint32_t, uint32_t>> messages;
        std::string words;
        param->notify = [&](uint32_t, uint32_t first, uint32_t second, const CDicomPrintSocket& socket) {
            messages.emplace_back(first, second);
            for (const std::string& warning : socket.GetWarnings())
                words += warning + "\n";
            words += socket.GetErrorText();
        };
        std::thread worker(CDicomPrintSocket::ThreadProc, param);
        worker.join();
        EXPECT_EQ(messages, c.messages);
        EXPECT_NE(words.find(c.words), std::string::npos) << words;
        EXPECT_EQ(peer.Problem(), "");
    }
}

TEST(PrintHostilePeer, CommandNamesAFailedPrinterAndExitsNonZero)
{
    const std::string image = testsupport::PydicomDataDir() + "/test_files/CT_small.dcm";
    if (testsupport::PydicomDataDir().empty())
        GTEST_SKIP() << "pydicom's sample files are not installed";
    ScriptedPeer peer({Expect(0x01), Send(associateAc(contextAc(1, 0, "1.2.840.10008.1.2"))), Expect(0x04),
                       Send(Response(0x8110, 1, 0x0000, true)), Send(PrinterStatus("FAILURE", "FILM JAM")),
                       Expect(0x05), Send(kReleaseRp)});
    CliResult run = RunCli({"print", "--aec", "PRINTER", "127.0.0.1", std::to_string(peer.Port()), image});
    EXPECT_EQ(run.status, 1);
    EXPECT_NE(run.out.find("printer status: FAILURE (FILM JAM)"), std::string::npos) << run.out;
    EXPECT_NE(run.err.find("printer status: the printer reports FAILURE (FILM JAM)"), std::string::npos) << run.err;
    EXPECT_EQ(run.out.find("film 1/1"), std::string::npos) << run.out;
    EXPECT_EQ(peer.Problem(), "");

    // A colour image is refused before anything is sent, with the reason.
    CliResult colour = RunCli({"print", "127.0.0.1", "1", testsupport::PydicomDataDir() + "/test_files/SC_rgb_small_odd.dcm"});
    EXPECT_EQ(colour.status, 1);
    EXPECT_NE(colour.err.find("a colour image (RGB, 3 samples) cannot go on a grayscale film"), std::string::npos) << colour.err;
}
