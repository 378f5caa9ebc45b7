// Hostile callers of `zeldicom receive`: each is refused or aborted, the
// receiver answers C-ECHO after every one, nothing is left in its folder,
// and its memory stays bounded.
#include <gtest/gtest.h>

#include "network/peer_process.h"
#include "network/scripted_peer.h"

using namespace pdufix;

namespace {

constexpr char kCt[] = "1.2.840.10008.5.1.4.1.1.2";
constexpr char kExplicit[] = "1.2.840.10008.1.2.1";

Bytes StoreRequest(const std::string& instance)
{
    return pdu(0x04, pdv(1, 0x03,
                         commandSet({cmd(0x0002, uid(kCt)), cmd(0x0100, le(0x0001, 2)), cmd(0x0110, le(1, 2)),
                                     cmd(0x0700, le(0, 2)), cmd(0x0800, le(0x0000, 2)), cmd(0x1000, uid(instance))})));
}

}  // namespace

TEST(ReceiveHostile, EachCallerIsRefusedAndTheReceiverStaysUp)
{
    Receiver receiver("receive-hostile");
    ASSERT_TRUE(receiver.ready) << receiver.Log();
    const Bytes release = pdu(0x05, {0, 0, 0, 0});
    Bytes manyContexts;
    for (int i = 0; i < 10000; ++i)
        manyContexts = cat({manyContexts, contextRq(uint8_t(2 * (i % 128) + 1), kCt, {kExplicit})});
    // Sub-items of the largest length a 16-bit field holds.
    const Bytes hugeItems = cat({contextRq(1, std::string(65000, '1'), {kExplicit}),
                                 contextRq(3, kCt, {std::string(65000, '2'), kExplicit})});
    // A data set whose last element announces 100 bytes and carries 4.
    const Bytes truncated = cat({testsupport::elem(0x0008, 0x0016, "UI", uid(kCt)),
                                 testsupport::elem(0x0008, 0x0018, "UI", uid("1.2.3.4")),
                                 Bytes{0x10, 0x00, 0x10, 0x00, 'P', 'N', 100, 0, 'D', 'o', 'e', '^'}});
    // A client gone in the middle of an object: the data set's start, then
    // the connection closes before its last fragment.
    const Bytes started = cat({testsupport::elem(0x0008, 0x0016, "UI", uid(kCt)),
                               testsupport::elem(0x0008, 0x0018, "UI", uid("1.2.3.99")),
                               Bytes{0xE0, 0x7F, 0x10, 0x00, 'O', 'W', 0, 0, 0, 0, 0, 0x04}, Bytes(100000, 0)});
    const struct {
        const char* what;
        std::vector<Step> script;
    } callers[] = {
        {"garbage", {Send(testsupport::text("GET / HTTP/1.1\r\nHost: x\r\n\r\n")), ExpectClose()}},
        {"PDU length near 4 GiB", {Send({0x01, 0, 0xFF, 0xFF, 0xFF, 0xF0}), Send(Bytes(1000, 0)), ExpectClose()}},
        {"10,000 presentation contexts", {Send(associateRq(manyContexts)), Expect(0x03), ExpectClose()}},
        {"64 KiB items", {Send(associateRq(hugeItems)), Expect(0x02), Send(release), Expect(0x06)}},
        {"P-DATA before association", {Send(kEchoResponseSuccess), ExpectClose()}},
        {"data set ending mid-element",
         {Send(associateRq(contextRq(1, kCt, {kExplicit}))), Expect(0x02), Send(StoreRequest("1.2.3.4")),
          Send(pdu(0x04, pdv(1, 0x02, truncated))), Expect(0x04), Send(release), Expect(0x06)}},
        {"client gone in the middle of an object",
         {Send(associateRq(contextRq(1, kCt, {kExplicit}))), Expect(0x02), Send(StoreRequest("1.2.3.99")),
          Send(pdu(0x04, pdv(1, 0x00, started))), Close()}},
        {"A-ASSOCIATE-RQ shorter than its fixed fields", {Send(Bytes{0x01, 0, 0, 0, 0, 4, 0, 1, 0, 0}), ExpectClose()}},
    };
    for (const auto& caller : callers) {
        SCOPED_TRACE(caller.what);
        ScriptedClient client(receiver.port, caller.script);
        EXPECT_EQ(client.Problem(), "");
        EXPECT_EQ(receiver.Echo().status, 0) << receiver.Log();
        // The caller's own association may still be ending on its thread.
        for (int wait = 0; wait < 100 && !receiver.Entries().empty(); ++wait)
            usleep(20000);
        EXPECT_TRUE(receiver.Entries().empty());
    }
    EXPECT_TRUE(receiver.AwaitLog("1.2.3.4 not stored: failed 0xC000")) << receiver.Log();
    EXPECT_NE(receiver.Log().find("rejected (result 1, source 2, reason 1)"), std::string::npos) << receiver.Log();
    EXPECT_NE(receiver.Log().find("announced a PDU (type 0x01) of 4294967280 bytes"), std::string::npos) << receiver.Log();
    EXPECT_LT(receiver.PeakKiB(), 64 * 1024);
}
