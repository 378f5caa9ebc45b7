// The PDU codec on named byte fixtures: what it reads from well-formed
// answers, and that every length running past its container is refused.
#include <gtest/gtest.h>

#include "network/pdu_fixtures.h"
#include "pdu/pdu.h"

using namespace pdufix;
namespace codec = zeldicom::pdu;

TEST(PduCodec, ReadsAssociateAc)
{
    Bytes ac = associateAc(cat({contextAc(1, 0, "1.2.840.10008.1.2"), contextAc(3, 3, "1.2.840.10008.1.2.1"),
                                contextAc(5, 0, std::string("1.2.840.10008.1.2.1") + '\0')}));
    codec::AssociateAc answer;
    ASSERT_TRUE(codec::ReadAssociateAc(ac.data(), ac.size(), answer));
    EXPECT_EQ(answer.protocolVersion, 1);
    EXPECT_EQ(answer.calledTitle, "ANY-SCP         ");
    ASSERT_EQ(answer.contexts.size(), 3u);
    EXPECT_EQ(answer.contexts[0].transferSyntax, "1.2.840.10008.1.2");
    EXPECT_EQ(answer.contexts[1].result, 3);
    EXPECT_EQ(answer.contexts[1].transferSyntax, "");  // refused: no syntax kept
    EXPECT_EQ(answer.contexts[2].transferSyntax, "1.2.840.10008.1.2.1");  // padding byte dropped
    EXPECT_TRUE(answer.hasMaxLength);
    EXPECT_EQ(answer.maxLength, 16384u);
    EXPECT_EQ(answer.implementationVersion, "PEER_1");
}

TEST(PduCodec, RefusesLengthsPastTheirContainer)
{
    Bytes fixed = fixedFields();
    struct Case {
        const char* name;
        Bytes pdu;
        size_t size;  // bytes handed to the reader
    };
    Bytes ac = kAssociateAcOneContext;
    std::vector<Case> cases = {
        {"fixed part cut short", pdu(0x02, Bytes(fixed.begin(), fixed.begin() + 40)), 46},
        {"PDU length past the bytes", ac, ac.size() - 1},
        {"item past the PDU", pdu(0x02, cat({fixed, item(0x21, Bytes{1, 0, 0, 0}, 300)})), 0},
        {"sub-item past its item", pdu(0x02, cat({fixed, item(0x21, cat({Bytes{1, 0, 0, 0}, item(0x40, Bytes{'1'}, 9)}))})), 0},
        {"maximum length of 2 bytes", pdu(0x02, cat({fixed, item(0x50, item(0x51, Bytes{0, 1}))})), 0},
        {"not an A-ASSOCIATE-AC", kAssociateRjCalledTitle, 0},
    };
    for (const Case& c : cases) {
        codec::AssociateAc answer;
        std::string problem;
        EXPECT_FALSE(codec::ReadAssociateAc(c.pdu.data(), c.size ? c.size : c.pdu.size(), answer, &problem)) << c.name;
        EXPECT_FALSE(problem.empty()) << c.name;
    }
}

TEST(PduCodec, WalksPdvsAndRefusesBadLengths)
{
    Bytes body = cat({pdv(1, 0x01, {1, 2, 3}), pdv(1, 0x03, {4}), pdv(3, 0x02, {})});
    codec::PdvWalker walker(body.data(), body.size());
    codec::Pdv pdv;
    std::vector<uint32_t> lengths;
    std::vector<bool> last;
    while (walker.Next(pdv)) {
        lengths.push_back(pdv.fragmentLength);
        last.push_back(pdv.IsLast());
    }
    EXPECT_FALSE(walker.Malformed());
    EXPECT_EQ(lengths, (std::vector<uint32_t>{3, 1, 0}));  // an empty last fragment is still a PDV
    EXPECT_EQ(last, (std::vector<bool>{false, true, true}));

    for (Bytes bad : {Bytes{0, 0, 0, 1, 1}, Bytes{0, 0, 0, 9, 1, 3, 0}, Bytes{0, 0, 0}}) {
        codec::PdvWalker broken(bad.data(), bad.size());
        EXPECT_FALSE(broken.Next(pdv));
        EXPECT_TRUE(broken.Malformed());
    }
}

TEST(PduCodec, ReadsRejectionAndAbort)
{
    codec::AssociateRj rejection;
    ASSERT_TRUE(codec::ReadAssociateRj(kAssociateRjCalledTitle.data(), kAssociateRjCalledTitle.size(), rejection));
    EXPECT_EQ(rejection.result, 1);
    EXPECT_EQ(rejection.source, 1);
    EXPECT_EQ(rejection.reason, 7);
    codec::Abort abort;
    ASSERT_TRUE(codec::ReadAbort(kAbortFromProvider.data(), kAbortFromProvider.size(), abort));
    EXPECT_EQ(abort.source, 2);
    EXPECT_EQ(abort.reason, 6);
    EXPECT_FALSE(codec::ReadAbort(kAbortFromProvider.data(), 9, abort));
}

// Each writer reproduces, byte for byte, the fixtures written out by hand
// from PS3.8 9.3 (fuzz_pduroundtrip runs the same round trip on any input),
// and a field too long for its length field is refused, not cut.
TEST(PduCodec, WritersReproduceTheFixtures)
{
    const std::string commitment = "1.2.840.10008.1.20.1";
    const Bytes role = cat({Bytes{0, 20}, Bytes(commitment.begin(), commitment.end()), Bytes{0, 1}});
    const Bytes rq = pdu(0x01, cat({fixedFields(), item(0x10, "1.2.840.10008.3.1.1.1"),
                                    item(0x20, cat({Bytes{1, 0, 0, 0}, item(0x30, "1.2.840.10008.1.1"),
                                                    item(0x40, "1.2.840.10008.1.2")})),
                                    item(0x50, cat({maxLength(32768), item(0x52, "1.2.3.4"),
                                                    item(0x54, role),
                                                    item(0x55, "ZD_1")}))}));
    const Bytes ac = associateAc(cat({contextAc(1, 0, "1.2.840.10008.1.2"), contextAc(3, 3, "1.2.840.10008.1.2")}));
    codec::Bytes out;
    codec::AssociateRq request;
    ASSERT_TRUE(codec::ReadAssociateRq(rq.data(), rq.size(), request));
    ASSERT_EQ(request.roles.size(), 1u);
    ASSERT_TRUE(codec::WriteAssociateRq(request, out));
    EXPECT_EQ(out, rq);
    codec::AssociateAc answer;
    ASSERT_TRUE(codec::ReadAssociateAc(ac.data(), ac.size(), answer));
    ASSERT_TRUE(codec::WriteAssociateAc(answer, out));
    EXPECT_EQ(out, ac);
    codec::AssociateRj rejection;
    ASSERT_TRUE(codec::ReadAssociateRj(kAssociateRjCalledTitle.data(), kAssociateRjCalledTitle.size(), rejection));
    EXPECT_EQ(codec::WriteAssociateRj(rejection), kAssociateRjCalledTitle);
    codec::Abort abort;
    ASSERT_TRUE(codec::ReadAbort(kAbortFromProvider.data(), kAbortFromProvider.size(), abort));
    EXPECT_EQ(codec::WriteAbort(abort), kAbortFromProvider);
    EXPECT_EQ(codec::WriteReleaseRp(), kReleaseRp);
    std::vector<codec::Pdv> pdvs;
    ASSERT_TRUE(codec::ReadDataTf(kEchoResponseSuccess.data(), kEchoResponseSuccess.size(), pdvs));
    ASSERT_TRUE(codec::WriteDataTf(pdvs, out));
    EXPECT_EQ(out, kEchoResponseSuccess);

    // 65535 value bytes fit an item; one more is refused and nothing is appended.
    codec::Bytes items;
    EXPECT_TRUE(codec::PutItem(items, 0x52, std::string(0xFFFF, '1')));
    EXPECT_FALSE(codec::PutItem(items, 0x52, std::string(0x10000, '1')));
    EXPECT_EQ(items.size(), 4u + 0xFFFF);
    request.implementationClass.assign(0x10000, '1');
    EXPECT_FALSE(codec::WriteAssociateRq(request, out));
}
