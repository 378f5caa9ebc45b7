// One C-STORE-RQ answered over a socketpair: the test plays the requester,
// the library receives the data set into a file and sends the response.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "network/pdu_fixtures.h"
#include "network/storeresponder.h"
#include "network/usersocket.h"
#include "support/files.h"

using namespace pdufix;

namespace {

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kExplicit[] = "1.2.840.10008.1.2.1";

Bytes StoreRequest(uint8_t context, const std::string& instance, uint16_t messageId)
{
    return pdu(0x04, pdv(context, 0x03,
                         commandSet({cmd(0x0002, uid(kCt)), cmd(0x0100, le(0x0001, 2)), cmd(0x0110, le(messageId, 2)),
                                     cmd(0x0700, le(0, 2)), cmd(0x0800, le(0x0000, 2)), cmd(0x1000, uid(instance))})));
}

Bytes DataSet(const std::string& instance)
{
    return cat({testsupport::elem(0x0008, 0x0016, "UI", uid(kCt)), testsupport::elem(0x0008, 0x0018, "UI", uid(instance)),
                testsupport::elem(0x0010, 0x0010, "PN", testsupport::text("Doe^Jane")), testsupport::elem(0x7FE0, 0x0010, "OW", Bytes(3000, 0x5A))});
}

// The accepting end of a socketpair with context 1 (CT, explicit VR little
// endian) accepted and context 3 refused; returns the requester's end.
int OpenAssociation(CUserSocket& scp)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0)
        return -1;
    scp.Adopt(ends[0]);
    scp.SetTimeout(2000);
    std::strcpy(scp.m_AssociateData.m_szCallingAETitle, "STORESCU        ");
    for (uint8_t id : {1, 3}) {
        auto* context = new CPresentationContext;
        context->m_ucPresContextID = id;
        context->m_sAbstractSyntax = kCt;
        context->m_ucResult = id == 1 ? 0 : 4;
        context->m_sAcceptedTransferSyntax = kExplicit;
        scp.m_AssociateData.AddPresContext(context);
    }
    return ends[1];
}

}  // namespace

TEST(StoreResponder, AnswersEachRequestWithTheFatesStatus)
{
    const struct {
        const char* what;
        uint8_t context;
        std::string dataSetInstance;
        uint16_t status;
    } cases[] = {
        {"stored", 1, "1.2.3.4", 0x0000},
        {"data set names another instance", 1, "1.2.3.5", 0xA900},
        {"context not accepted", 3, "1.2.3.4", 0x0122},
    };
    testsupport::ScratchFolder folder("storeresponder");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        CUserSocket scp;
        const int peer = OpenAssociation(scp);
        ASSERT_GE(peer, 0);
        // The data set in two PDUs, the second ending the message.
        const Bytes dataSet = DataSet(c.dataSetInstance);
        const Bytes head(dataSet.begin(), dataSet.begin() + 100), rest(dataSet.begin() + 100, dataSet.end());
        const Bytes sent = cat({StoreRequest(c.context, "1.2.3.4", 7), pdu(0x04, pdv(c.context, 0x00, head)),
                                pdu(0x04, pdv(c.context, 0x02, rest))});
        ASSERT_EQ(write(peer, sent.data(), sent.size()), ssize_t(sent.size()));

        DICOM_CMND_MSG request;
        ASSERT_EQ(scp.ReceiveCommand(request), 1);
        CStoreResponder responder(folder.path);
        STORED_INSTANCE outcome;
        ASSERT_EQ(responder.Answer(scp, request, outcome), 1);
        EXPECT_EQ(outcome.status, c.status) << outcome.error;
        EXPECT_EQ(outcome.bytes, dataSet.size());

        Bytes response(256);
        ssize_t got = recv(peer, response.data(), response.size(), 0);
        ASSERT_GT(got, 12);
        DICOM_CMND_MSG answer;
        CDicomSocket::DecodeCommandSet(response.data() + 12, int(got) - 12, answer);
        EXPECT_EQ(answer.wCommandField, 0x8001);
        EXPECT_EQ(answer.wMessageIDBeingRespondedTo, 7);
        EXPECT_EQ(answer.wStatus, c.status);
        EXPECT_STREQ(answer.szAffectedSOPInstanceUID, "1.2.3.4");

        const std::string file = folder.path + "/1.2.3.4.dcm";
        EXPECT_EQ(outcome.path, c.status == 0 ? file : "");
        EXPECT_EQ(std::filesystem::exists(file), c.status == 0);
        if (c.status == 0) {
            const Bytes stored = testsupport::ReadFile(file);
            ASSERT_GT(stored.size(), dataSet.size());
            EXPECT_TRUE(std::equal(dataSet.begin(), dataSet.end(), stored.end() - long(dataSet.size())));
            EXPECT_NE(std::string(stored.begin(), stored.end() - long(dataSet.size())).find("STORESCU"), std::string::npos);
            std::filesystem::remove(file);
        }
        close(peer);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder.path));
}

TEST(StoreResponder, AConnectionLostMidDataSetLeavesNoFile)
{
    testsupport::ScratchFolder folder("storeresponder-lost");
    CUserSocket scp;
    const int peer = OpenAssociation(scp);
    ASSERT_GE(peer, 0);
    const Bytes dataSet = DataSet("1.2.3.4");
    const Bytes sent = cat({StoreRequest(1, "1.2.3.4", 1), pdu(0x04, pdv(1, 0x00, Bytes(dataSet.begin(), dataSet.begin() + 100)))});
    ASSERT_EQ(write(peer, sent.data(), sent.size()), ssize_t(sent.size()));
    close(peer);

    DICOM_CMND_MSG request;
    ASSERT_EQ(scp.ReceiveCommand(request), 1);
    STORED_INSTANCE outcome;
    EXPECT_EQ(CStoreResponder(folder.path).Answer(scp, request, outcome), 0);
    EXPECT_EQ(outcome.bytes, 100u);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path));
}
