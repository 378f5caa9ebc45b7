// The PDU codec on named byte fixtures: what it reads from well-formed
// answers, and that every length running past its container is refused.
#include <gtest/gtest.h>

#include "network/pdu_fixtures.h"
#include "trace/pdu.h"

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
