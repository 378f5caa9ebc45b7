// The protocol trace: the vocabulary words, the levels, and the analysed
// lines of PDUs and data sets as they land in the day's file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/dicomwriter.h"
#include "network/pdu_fixtures.h"
#include "platform/apppath.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"
#include "trace/vocabulary.h"

using namespace pdufix;

namespace {

// Points the temp folder at a fresh scratch folder and reads the day's file back without time stamps.
class TraceFile : public ::testing::Test {
protected:
    void SetUp() override
    {
        folder = testsupport::ScratchPath("trace");
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        CAppPath::GetAppPathInstance().SetPath(u"temp", zeldicom::Utf8ToUtf16(folder));
    }
    void TearDown() override
    {
        CDicomTraceSettings::SetTrace(0);
        CAppPath::GetAppPathInstance().SetPath(u"temp", u"");
        std::filesystem::remove_all(folder);
    }
    bool Exists() const { return std::filesystem::exists(zeldicom::Utf16ToUtf8(CDicomTraceSettings::GetTraceFile())); }
    std::vector<std::string> Lines() const
    {
        std::ifstream in(zeldicom::Utf16ToUtf8(CDicomTraceSettings::GetTraceFile()));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) {
            EXPECT_EQ(line[0], '[');
            EXPECT_EQ(line.find("] "), 20u) << line;  // [yyyy/mm/dd-hh:mm:ss]
            lines.push_back(line.substr(22));
        }
        return lines;
    }
    std::string All() const
    {
        std::string all;
        for (const std::string& line : Lines())
            all += line + "\n";
        return all;
    }
    std::string folder;
};

Bytes AssociateRq()
{
    return pdu(0x01, cat({fixedFields(), item(0x10, "1.2.840.10008.3.1.1.1"),
                          item(0x20, cat({Bytes{1, 0, 0, 0}, item(0x30, "1.2.840.10008.1.1"), item(0x40, "1.2.840.10008.1.2")})),
                          item(0x50, cat({maxLength(32768), item(0x53, Bytes{0, 1, 0, 1}),
                                          item(0x54, cat({Bytes{0, 20}, Bytes{'1', '.', '2', '.', '8', '4', '0', '.', '1', '0', '0', '0', '8', '.', '1', '.', '2', '0', '.', '1'}, Bytes{0, 1}}))}))}));
}

}

TEST(TraceVocabulary, WordsForCodes)
{
    A_ASSOCIATE_RJ rejection{3, 0, {0, 0, 0, 4}, 0, 1, 1, 2};
    struct Case {
        std::string got, expected;
    } cases[] = {
        {GetClearPduType(7), "A-ABORT-RQ"},
        {GetClearPduType(9), "UNKNOWN"},
        {GetClearPduItemType(0x53), "ASYNCHRONOUS OPERATION UID SUBITEM"},
        {GetClearContextAck(2), "Rejection: No Reason Given"},
        {GetClearContextAck(5), "Rejection: No Reason Given"},
        {GetClearRejection(rejection), "REJECTION: Bad Application Context Name"},
        {GetClearMessage(0x0010), "UNKNOWN MESSAGE"},
        {GetClearMessage(0x8030), "C-ECHO-RSP"},
        {GetClearStatus(0x0116), "UNKNOWN STATUS"},
        {GetClearStatus(0xFF01), "PENDING: MATCHES ARE CONTINUING"},
        {GetClearPriority(2), "LOW PRIORITY"},
        {GetClearSocketError(10046), "Unknown Error"},
        {GetClearSocketError(10061), "The attempt to connect was forcefully rejected"},
        {GetClearUID("1.2.840.10008.1.1 "), "Unknown SOP Class"},
        {GetClearUID(std::string("1.2.840.10008.1.2.1") + '\0'), "Explicit VR, Little Endian"},
        {GetClearUID("1.2.840.10008.5.1.4.1.1.12.1"), "XA Image Storage SOP CLass"},
        // Behind the trace's own names, the UID registry.
        {GetClearUID("1.2.840.10008.1.20.1"), "Storage Commitment Push Model SOP Class"},
        {GetClearUID("1.2.840.10008.5.1.4.1.2.1.1"), "Patient Root Query/Retrieve Information Model - FIND"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.got, c.expected);
}

TEST_F(TraceFile, LevelsDecideWhatIsWritten)
{
    Bytes rq = AssociateRq();
    CDicomTraceSettings::SetTrace(0);
    DicomTraceSend("S", rq.data(), int(rq.size()), 1);
    EXPECT_FALSE(Exists());

    CDicomTraceSettings::SetTrace(3);
    DicomTraceSend("S", rq.data(), int(rq.size()), 1);
    EXPECT_TRUE(Exists());
    EXPECT_TRUE(Lines().empty());

    CDicomTraceSettings::SetTrace(1);
    DicomTraceSend("S", rq.data(), int(rq.size()), 1);
    EXPECT_EQ(Lines(), (std::vector<std::string>{"<S> PREPARING BLOCK TO SEND: " + std::to_string(rq.size()) + " bytes",
                                                 "<S>\t PDU Type: 0x0001 (A-ASSOCIATE-RQ)"}));
    DicomTraceReceive("S", kAbortFromProvider.data(), 10, 1, 0);
    EXPECT_EQ(Lines().back(), "<S>\t Abort code: 6");
}

TEST_F(TraceFile, AnalysesAssociationPdus)
{
    CDicomTraceSettings::SetTrace(2);
    Bytes rq = AssociateRq();
    AnalyzeBlock("S", rq.data(), int(rq.size()));
    AnalyzeBlock("S", kAssociateAcOneContext.data(), int(kAssociateAcOneContext.size()));
    AnalyzeBlock("S", kAssociateRjCalledTitle.data(), 10);
    std::string all = All();
    for (const char* expected : {
             "<S>\t PDU Length: 0x000000BF (191)\n", "<S>\t Called App Title : ANY-SCP         \n",
             "<S>\t\t\t\t Abstract Syntax: 1.2.840.10008.1.1\n<S>\t\t\t\t (Verification SOP Class)\n",
             "<S>\t\t\t\t Max Async Oper Invoked = 0x01\n",
             "<S>\t\t\t\t Role Neotiation: SCU = 0x00, SCP = 0x01, SOP Class = 1.2.840.10008.1.20.1\n",
             "<S>\t\t\t Result: 0x0000 (No Rejection)\n", "<S>\t\t\t\t Maximum Length = 0x4000 (16384)\n",
             "<S>\t\t Result: 0x0007 (REJECTION: Called AppTitle Unknown)\n"})
        EXPECT_NE(all.find(expected), std::string::npos) << expected;
    // A P-DATA-TF gives its type and length only.
    size_t before = Lines().size();
    AnalyzeBlock("S", kEchoResponseSuccess.data(), int(kEchoResponseSuccess.size()));
    EXPECT_EQ(Lines().size(), before + 2);
}

TEST_F(TraceFile, DumpsDataSetsElementByElement)
{
    CDicomTraceSettings::SetTrace(2);
    Bytes set = cat({testsupport::ielem(0x0008, 0x0005, testsupport::text("ISO_IR 100")),
                     testsupport::ielem(0x0008, 0x1140, {}, 0xFFFFFFFF), testsupport::ielem(0xFFFE, 0xE000, {}, 0xFFFFFFFF),
                     testsupport::ielem(0x0008, 0x1150, testsupport::text(std::string(200, '1'))),
                     testsupport::ielem(0x0002, 0x0102, Bytes{0x80, 0x01, 0xFF}),
                     testsupport::ielem(0x0020, 0x1209, testsupport::text("12"))});
    DicomTraceAnalyzeBlock("S", set.data(), uint32_t(set.size()), 0);
    Bytes status = echoResponse(1, 0xA700);
    DicomTraceAnalyzeBlock("S", status.data(), uint32_t(status.size()), 0);
    // Rows = 512 in explicit VR big endian, read as the data set reader reads it.
    Bytes bigEndian = {0x00, 0x28, 0x00, 0x10, 'U', 'S', 0x00, 0x02, 0x02, 0x00};
    DicomTraceAnalyzeBlock("S", bigEndian.data(), uint32_t(bigEndian.size()), 1);
    std::string all = All();
    for (std::string expected : {
             std::string("<S>\t GROUP  FIELD DESCRIPTION                      VR SIZE   VALUE\n"),
             std::string(" 0xFFFFFFFF (UNDEFINED LENGTH)\n"), "0x00C8 " + std::string(128, '1') + "\n",
             std::string(" 0x80 0x01 0xFF \n"), std::string(" (REFUSED: OUT OF RESOURCES)\n"),
             std::string(" US 0x0002 0x0200 (512)\n"),
             // A description longer than its column is cut to 32 characters.
             std::string("(0020, 1209) Number of Series Related Instanc IS 0x0002 12\n")})
        EXPECT_NE(all.find(expected), std::string::npos) << expected;

    size_t before = Lines().size();
    Bytes zeros(4096, 0);
    DicomTraceAnalyzeBlock("S", zeros.data(), uint32_t(zeros.size()), 0);
    Bytes unknown = testsupport::ielem(0x0006, 0x0002, {1, 2});
    DicomTraceAnalyzeBlock("S", unknown.data(), uint32_t(unknown.size()), 0);
    EXPECT_EQ(Lines().size(), before);

    CDicomTraceSettings::SetTrace(1);
    Bytes echo = echoResponse(1, 0);
    DicomTraceAnalyzeBlock("S", echo.data(), uint32_t(echo.size()), 0);
    EXPECT_EQ(Lines().back(), "<S>\t Command: 0x8030 (32816) (C-ECHO-RSP)");
}
