#include <gtest/gtest.h>

#include <set>

#include "dicomdata/tagheader.h"
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

TEST(TagTable, HoldsNineHundredNinetySortedUniqueEntries)
{
    CTagTable table;
    ASSERT_EQ(table.GetTagCount(), 990);
    std::set<std::pair<int, int>> seen;
    for (int i = 0; i < table.GetTagCount(); ++i) {
        EXPECT_TRUE(seen.emplace(table.GetTagGroup(i), table.GetTagField(i)).second) << "duplicate at " << i;
        if (i > 0) {
            auto previous = std::make_pair(table.GetTagGroup(i - 1), table.GetTagField(i - 1));
            EXPECT_LT(previous, std::make_pair(table.GetTagGroup(i), table.GetTagField(i))) << "order at " << i;
        }
        // The VR text and the VR code name the same VR.
        EXPECT_EQ(CTagTable::Table[i].szVR[2], 0);
        EXPECT_EQ(CTagTable::Table[i].szVR[3], 0);
    }
    EXPECT_EQ(table.GetTagGroup(989), 0xFFFF);
    EXPECT_EQ(table.GetTagField(989), 0xFFFF);
}

TEST(TagTable, LookupAgreesWithLinearScanForEveryEntryAndForAbsentTags)
{
    CTagTable table;
    for (int i = 0; i < table.GetTagCount(); ++i) {
        int group = table.GetTagGroup(i), element = table.GetTagField(i);
        std::u16string vr;
        ASSERT_EQ(CTagTable::GetVR(group, element, vr), 1);
        EXPECT_EQ(vr, table.GetTagVRString(i));
        EXPECT_EQ(LinearFind(group, element), i);
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

TEST(TagTable, KnownEntriesCarryTheirFixedVRs)
{
    std::u16string vr;
    EXPECT_EQ(CTagTable::GetVR(0x0008, 0x0005, vr), 1);
    EXPECT_EQ(vr, u"CS");
    EXPECT_EQ(CTagTable::GetVR(0x6002, 0x3000, vr), 1);
    EXPECT_EQ(vr, u"OW");
    EXPECT_EQ(CTagTable::GetVR(0xFFFE, 0xE000, vr), 1);
    EXPECT_EQ(vr, u"xx");
    EXPECT_EQ(CTagTable::GetVR(0xFFFF, 0xFFFF, vr), 1);
    EXPECT_EQ(vr, u"US");
    EXPECT_EQ(CTagTable::GetVR(0x7FE0, 0x0010, vr), 1);
    EXPECT_EQ(vr, u"OW");
    EXPECT_EQ(CTagTable::GetVR(0x0028, 0x1201, vr), 1);
    EXPECT_EQ(vr, u"US");

    CTagTable table;
    EXPECT_EQ(table.GetTagVR(0), VR_UL);
    EXPECT_EQ(table.GetTagVR(0), 23);
    EXPECT_EQ(TAGINFO::GetExplicitVR("UL"), 22);
    EXPECT_EQ(TAGINFO::GetExplicitVR("UT"), 24);
    EXPECT_EQ(TAGINFO::GetExplicitVR("xx"), 26);
    EXPECT_EQ(TAGINFO::GetExplicitVR("ul"), -1);
    EXPECT_EQ(TAGINFO::GetExplicitVR("ULX"), -1);
    EXPECT_EQ(TAGINFO::GetExplicitVR(""), -1);
}

TEST(TagTable, DescriptionsComeFromTheStandardNames)
{
    std::u16string vr, description;
    TAG_HEADER header{0x0010, 0x0010, 8};
    ASSERT_TRUE(CTagTable::GetTagInfo(header, vr, description));
    EXPECT_EQ(vr, u"PN");
    EXPECT_EQ(description, u"Patient's Name");
    // The overlay groups share one description per element.
    std::u16string first, last;
    ASSERT_TRUE(CTagTable::GetTagInfo(0x6000, 0x0010, vr, first));
    ASSERT_TRUE(CTagTable::GetTagInfo(0x601E, 0x0010, vr, last));
    EXPECT_EQ(first, last);
    EXPECT_FALSE(first.empty());
    CTagTable table;
    for (int i = 0; i < table.GetTagCount(); ++i)
        EXPECT_FALSE(table.GetTagDescString(i).empty()) << "entry " << i << " has no name";
}

TEST(TagTable, TextVRsAndPaddingBytes)
{
    for (const char16_t* vr : {u"AE", u"AS", u"CS", u"DA", u"DS", u"DT", u"IS", u"LO", u"LT", u"PN", u"SH", u"ST",
                               u"TM", u"UI", u"UT"})
        EXPECT_TRUE(CTagTable::IsString(vr)) << "text VR";
    for (const char16_t* vr : {u"SQ", u"OB", u"US", u"ut", u"", u"AE AS", u"A", u"UTX", u" AE"})
        EXPECT_FALSE(CTagTable::IsString(vr));

    EXPECT_EQ(CTagTable::GetTrailingByte(u"DA"), 0x00);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"da"), 0x00);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"PN"), 0x20);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"pn"), 0x20);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"LT"), 0x00);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"UI"), 0x00);
    EXPECT_EQ(CTagTable::GetTrailingByte(u"CS"), 0x20);
    EXPECT_EQ(CTagTable::GetTrailingByte(u""), 0x00);
}
