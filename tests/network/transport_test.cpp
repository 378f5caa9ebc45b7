// The transport and association over a socketpair: the client socket adopts
// one end, the test plays the peer on the other.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>

#include "network/pdu_fixtures.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "pdu/pdu.h"

using namespace pdufix;

namespace {

struct TestSocket : CUserSocket {
    using CDicomSocket::ReceivePdu;
    int BufferSize() const { return m_nReceiveBufferSize; }
    uint32_t MaxFragment() const { return m_nMaxSendFragment; }
    void SetMaxFragment(uint32_t bytes) { m_nMaxSendFragment = bytes; }
};

class Transport : public ::testing::Test {
protected:
    void SetUp() override
    {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        client.Adopt(ends[0]);
        peer = ends[1];
        client.SetTimeout(2000);
    }
    void TearDown() override { close(peer); }
    void PeerSends(const Bytes& bytes) { ASSERT_EQ(write(peer, bytes.data(), bytes.size()), ssize_t(bytes.size())); }
    // Reads one whole PDU the client sent.
    Bytes PeerReads()
    {
        Bytes header(6);
        EXPECT_EQ(recv(peer, header.data(), 6, MSG_WAITALL), 6);
        size_t length = (size_t(header[2]) << 24) | (header[3] << 16) | (header[4] << 8) | header[5];
        Bytes body(length);
        EXPECT_EQ(recv(peer, body.data(), length, MSG_WAITALL), ssize_t(length));
        return cat({header, body});
    }
    TestSocket client;
    int peer = -1;
};

}

TEST_F(Transport, ReassemblesAMessageFromSeveralPdvsAndPdus)
{
    Bytes command = commandSet({cmd(0x0002, uid("1.2.840.10008.5.1.4.1.2.2.1")), cmd(0x0100, le(0x8020, 2)),
                                cmd(0x0120, le(7, 2)), cmd(0x0800, le(0x0000, 2)), cmd(0x0900, le(0xFF00, 2)),
                                cmd(0xFAFA, Bytes{'h', 'i', ' ', ' '})});
    Bytes first(command.begin(), command.begin() + 10), rest(command.begin() + 10, command.end());
    PeerSends(pdu(0x04, cat({pdv(1, 0x01, first), pdv(1, 0x03, rest), pdv(1, 0x00, {1, 2, 3})})));
    PeerSends(pdu(0x04, cat({pdv(3, 0x00, {4}), pdv(1, 0x02, {})})));
    DICOM_CMND_MSG message;
    CDynBuffer data;
    ASSERT_EQ(client.ReceiveMessage(message, data), 1);
    EXPECT_STREQ(message.szAffectedSOPClassUID, "1.2.840.10008.5.1.4.1.2.2.1");
    EXPECT_EQ(message.wCommandField, 0x8020);
    EXPECT_EQ(message.wMessageIDBeingRespondedTo, 7);
    EXPECT_EQ(message.wStatus, 0xFF00);
    EXPECT_STREQ(message.szExtraText, "hi");
    EXPECT_EQ(Bytes(data.GetData(), data.GetData() + data.m_nSize), (Bytes{1, 2, 3, 4}));
}

TEST_F(Transport, RefusesWhatDoesNotBelongInAMessage)
{
    struct Case {
        Bytes pdu;
        uint32_t error;
    } cases[] = {
        {kAbortFromProvider, kErrorAbort},
        {pdu(0x05, {0, 0, 0, 0}), kErrorReleaseRequested},
        {kAssociateAcOneContext, kErrorUnexpectedPdu},
        {pdu(0x04, pdv(1, 0x02, {1, 2})), kErrorPdvKind},
        {pdu(0x04, {0, 0, 0, 8, 1, 3, 0, 0}), kErrorMalformedPdu},
        {Bytes{0x04, 0, 0x7F, 0xFF, 0xFF, 0xFF}, kErrorPduTooLarge},
    };
    for (const Case& c : cases) {
        PeerSends(c.pdu);
        DICOM_CMND_MSG message;
        CDynBuffer data;
        EXPECT_EQ(client.ReceiveMessage(message, data), 0);
        EXPECT_EQ(client.GetLocalError(), c.error);
        // Drop what a refused PDU left unread so the next case starts clean.
        char sink[256];
        while (recv(client, sink, sizeof sink, MSG_DONTWAIT) > 0) {
        }
    }
}

TEST_F(Transport, GrowsTheBufferToTheLongestPduAndTimesOut)
{
    PeerSends(pdu(0x04, pdv(1, 0x03, Bytes(40000, 7))));
    ASSERT_EQ(client.ReceivePdu(), 1);
    EXPECT_EQ(client.BufferSize(), 40006 + 7);  // PDU length + 7

    client.SetTimeout(300);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.ReceivePdu(), 0);
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_EQ(client.GetLocalError(), kErrorReceive);
    EXPECT_EQ(client.GetSystemError(), 0u);
    EXPECT_GE(seconds, 0.29);
    EXPECT_LT(seconds, 1.0);
}

TEST_F(Transport, DefaultTimeOutOnAClockThatJumps)
{
    // Each reading of the clock moves it 40 s on: the default 30 s time-out
    // passes at once, without waiting for it.
    static uint64_t now = 0;
    SetTickSource([] { return now += 40000; });
    CUserSocket fresh;
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    fresh.Adopt(ends[0]);
    auto start = std::chrono::steady_clock::now();
    DICOM_CMND_MSG message;
    CDynBuffer data;
    EXPECT_EQ(fresh.ReceiveMessage(message, data), 0);
    SetTickSource(nullptr);
    close(ends[1]);
    EXPECT_EQ(fresh.GetTimeout(), 30000);
    EXPECT_EQ(fresh.GetLocalError(), kErrorReceive);
    EXPECT_EQ(fresh.GetSystemError(), 0u);
    EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 1.0);
}

TEST_F(Transport, AssociatesSendsCommandsAndSplitsData)
{
    client.SetConnectionData("host", 104, "CALLED", "CALLING8");
    client.AddPresentationContext("1.2.840.10008.1.1", 1, "1.2.840.10008.1.2");
    client.AddPresentationContext("1.2.840.10008.5.1.4.1.1.2", 2, "1.2.840.10008.1.2.1", "1.2.840.10008.1.2");
    client.AddPresentationContext("1.2.840.10008.5.1.4.1.1.4", 1, "1.2.840.10008.1.2");
    ASSERT_EQ(client.SendAssociateReq(false), 1);
    Bytes rq = PeerReads();
    EXPECT_EQ(std::string(rq.begin() + 26, rq.begin() + 42), "CALLING8        ");
    std::vector<int> ids;
    zeldicom::pdu::ItemWalker items(rq.data() + 74, rq.size() - 74);
    zeldicom::pdu::Item item;
    while (items.Next(item))
        if (item.type == 0x20)
            ids.push_back(item.value[0]);
    EXPECT_EQ(ids, (std::vector<int>{1, 3, 5}));

    PeerSends(associateAc(cat({contextAc(1, 0, "1.2.840.10008.1.2"), contextAc(3, 0, "1.2.840.10008.1.2.1"),
                               contextAc(5, 3, "")})));
    ASSERT_EQ(client.ReceiveAssociateRsp(), 1);
    EXPECT_EQ(client.m_AssociateData.GetPresContextByID(3)->m_sAcceptedTransferSyntax, "1.2.840.10008.1.2.1");
    EXPECT_EQ(client.m_AssociateData.GetPresContextByID(5)->m_ucResult, 3);
    EXPECT_EQ(client.MaxFragment(), 16372u);

    // Message IDs count up from 1; the C-ECHO-RQ command set is 68 bytes.
    for (uint16_t id : {1, 2}) {
        ASSERT_EQ(client.SendEchoReq(), 1);
        Bytes sent = PeerReads();
        ASSERT_EQ(sent.size(), 12u + 68u);
        EXPECT_EQ(sent[11], 0x03);
        EXPECT_EQ(Bytes(sent.begin() + 12, sent.begin() + 24), cat({cmd(0x0000, le(56, 4))}));
        EXPECT_EQ(Bytes(sent.end() - 20, sent.end() - 10), cmd(0x0110, le(id, 2)));
    }

    // Two full fragments: two PDUs, only the second marked last.
    Bytes data(2 * 16372, 9);
    ASSERT_EQ(client.SendData(data.data(), static_cast<int>(data.size())), 1);
    for (uint8_t control : {0x00, 0x02}) {
        Bytes sent = PeerReads();
        EXPECT_EQ(sent.size(), 12u + 16372u);
        EXPECT_EQ(sent[11], control);
    }

    // A data set of many PDUs sent from the caller's bytes: 130 PDUs of 100
    // bytes and a short last one, each whole, in order, only the last marked last.
    client.SetMaxFragment(100);
    Bytes many(13037);
    for (size_t i = 0; i < many.size(); ++i)
        many[i] = static_cast<uint8_t>(i * 7 + i / 251);
    ASSERT_EQ(client.SendData(many.data(), static_cast<int>(many.size())), 1);
    Bytes received;
    for (size_t pdus = 0; received.size() < many.size(); ++pdus) {
        SCOPED_TRACE(pdus);
        Bytes sent = PeerReads();
        ASSERT_GT(sent.size(), 12u);
        const bool last = received.size() + (sent.size() - 12) == many.size();
        EXPECT_EQ(sent.size(), 12u + (last ? 37u : 100u));
        EXPECT_EQ(sent[11], last ? 0x02 : 0x00);
        received.insert(received.end(), sent.begin() + 12, sent.end());
    }
    EXPECT_EQ(received, many);
}
