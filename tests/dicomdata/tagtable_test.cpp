#include <gtest/gtest.h>

#include <tuple>

#include "dicomdata/tagheader.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"

namespace {
// The reference behaviour: the first entry, scanning from the start, whose
// group and element both match.
int LinearFind(int group, int element)
{
    for (int i = 0; i < CTagTable::kTagCount; ++i)
        if (CTagTable::Table[i].nGroup == group && CTagTable::Table[i].nElement == element)
            return i;
    return -1;
}
}

// 990 entries in strictly ascending tag order, ending at (FFFF,FFFF); the
// binary lookup finds each one where a linear scan does.
TEST(TagTable, NineHundredNinetySortedUniqueEntriesAndLookupAgreesWithLinearScan)
{
    CTagTable table;
    ASSERT_EQ(table.GetTagCount(), 990);
    EXPECT_EQ(std::make_pair(table.GetTagGroup(989), table.GetTagField(989)), std::make_pair(0xFFFF, 0xFFFF));
    for (int i = 0; i < table.GetTagCount(); ++i) {
        int group = table.GetTagGroup(i), element = table.GetTagField(i);
        if (i > 0) {
            EXPECT_LT(std::make_pair(table.GetTagGroup(i - 1), table.GetTagField(i - 1)), std::make_pair(group, element))
                << "order or duplicate at " << i;
        }
        std::u16string vr;
        ASSERT_EQ(CTagTable::GetVR(group, element, vr), 1);
        EXPECT_EQ(vr, table.GetTagVRString(i));
        EXPECT_EQ(LinearFind(group, element), i);
        EXPECT_FALSE(table.GetTagDescString(i).empty()) << "entry " << i << " has no name";
    }
    // Neighbours of real entries, private tags, out-of-range numbers.
    const int absent[][2] = {{0x0009, 0x0010}, {0x0004, 0x0000}, {0x6020, 0x3000}, {0x6001, 0x3000},
                             {0x0008, 0x0001}, {0x7FE0, 0x0011}, {0x0000, 0x0001}, {0x10000, 0x0000},
                             {-1, 0x0010}, {0x0010, 0x10010}};
    for (const auto& tag : absent) {
        std::u16string vr = u"junk", description = u"junk";
        EXPECT_EQ(CTagTable::GetVR(tag[0], tag[1], vr), 0);
        EXPECT_TRUE(vr.empty());
        EXPECT_FALSE(CTagTable::GetTagInfo(tag[0], tag[1], vr, description));
        EXPECT_TRUE(description.empty());
        EXPECT_EQ(LinearFind(tag[0], tag[1]), -1);
    }
}

TEST(TagTable, FixedVRsNamesTextVRsAndPaddingBytes)
{
    for (auto [group, element, expected] : {std::tuple{0x0008, 0x0005, u"CS"}, {0x6002, 0x3000, u"OW"},
                                            {0xFFFE, 0xE000, u"xx"}, {0x7FE0, 0x0010, u"OW"}, {0x0028, 0x1201, u"US"}}) {
        std::u16string vr;
        EXPECT_EQ(CTagTable::GetVR(group, element, vr), 1);
        EXPECT_EQ(vr, expected);
    }
    for (const char* bad : {"ul", "ULX", ""})
        EXPECT_EQ(TAGINFO::GetExplicitVR(bad), -1) << bad;

    std::u16string vr, description;
    ASSERT_TRUE(CTagTable::GetTagInfo(TAG_HEADER{0x0010, 0x0010, 8}, vr, description));
    EXPECT_EQ(vr + u" " + description, u"PN Patient's Name");
    // The overlay groups share one description per element.
    std::u16string first, last;
    ASSERT_TRUE(CTagTable::GetTagInfo(0x6000, 0x0010, vr, first));
    ASSERT_TRUE(CTagTable::GetTagInfo(0x601E, 0x0010, vr, last));
    EXPECT_EQ(first, last);

    for (const char16_t* text : {u"AE", u"AS", u"CS", u"DA", u"DS", u"DT", u"IS", u"LO", u"LT", u"PN", u"SH", u"ST",
                                 u"TM", u"UI", u"UT"})
        EXPECT_TRUE(CTagTable::IsString(text));
    for (const char16_t* other : {u"SQ", u"OB", u"US", u"ut", u"", u"AE AS", u"A", u"UTX", u" AE"})
        EXPECT_FALSE(CTagTable::IsString(other));
    for (const char16_t* blank : {u"PN", u"pn", u"CS"})
        EXPECT_EQ(CTagTable::GetTrailingByte(blank), 0x20);
    for (const char16_t* zero : {u"DA", u"da", u"LT", u"UI", u""})
        EXPECT_EQ(CTagTable::GetTrailingByte(zero), 0x00);
}

// The full registry answers outside the fixed table: keywords, VMs,
// ambiguous VRs, the repeating groups and UID names.
TEST(Registry, AttributesRepeatingGroupsAndUids)
{
    const zeldicom::AttributeEntry* plan = zeldicom::FindAttribute(0x300A, 0x00B0);
    ASSERT_NE(plan, nullptr);
    EXPECT_STREQ(plan->keyword(), "BeamSequence");
    EXPECT_STREQ(plan->vr(), "SQ");
    EXPECT_EQ(zeldicom::FindAttributeByKeyword("PatientName"), zeldicom::FindAttribute(0x0010, 0x0010));
    EXPECT_STREQ(zeldicom::FindAttribute(0x0028, 0x0106)->vr(), "US or SS");
    EXPECT_STREQ(zeldicom::FindAttribute(0x0020, 0x0037)->vm(), "6");
    const zeldicom::AttributeEntry* overlay = zeldicom::FindAttribute(0x601E, 0x3000);
    ASSERT_NE(overlay, nullptr);
    EXPECT_STREQ(overlay->keyword(), "OverlayData");
    EXPECT_EQ(zeldicom::FindAttribute(0x6001, 0x3000), nullptr);  // odd: private
    EXPECT_STREQ(zeldicom::FindAttribute(0x5002, 0x3000)->keyword(), "CurveData");
    EXPECT_EQ(zeldicom::FindAttribute(0x0009, 0x1010), nullptr);
    EXPECT_EQ(zeldicom::FindAttributeByKeyword("NoSuchKeyword"), nullptr);
    std::string ct("1.2.840.10008.5.1.4.1.1.2\0", 26);
    ASSERT_NE(zeldicom::FindUid(ct), nullptr);
    EXPECT_STREQ(zeldicom::FindUid(ct)->keyword(), "CTImageStorage");
    EXPECT_STREQ(zeldicom::FindUid("1.2.840.10008.1.2.1.99")->keyword(), "DeflatedExplicitVRLittleEndian");
    EXPECT_EQ(zeldicom::FindUid("1.2.840.10008.5.1.4.1.1"), nullptr);
}
