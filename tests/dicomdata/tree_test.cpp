#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "platform/profile.h"
#include "support/tree.h"

using namespace zeldicom;
using testsupport::AttributeOf;

namespace {
std::vector<std::u16string> ChildNames(const CXmlItem* node)
{
    std::vector<std::u16string> names;
    for (const CXmlItem* child : node->m_children)
        names.push_back(child->m_sName);
    return names;
}
}

TEST(ElementTree, GroupsAndElementsKeepNameOrderOnInsertAndStreamOrderOnAdd)
{
    CDicomItem data(u"Data");
    data.AddTag(0x0010, 0x0010, u"DOE^JOHN", u"");
    data.AddTag(0x0028, 0x0010, static_cast<uint16_t>(512));
    data.AddTag(0x0008, 0x0060, u"CT", u"");
    // A new group lands in front of the greater ones.
    EXPECT_EQ(ChildNames(&data), (std::vector<std::u16string>{u"g0008", u"g0010", u"g0028"}));

    // AddGroup never merges: a second g0010 stands after the first.
    CDicomItem* second = data.AddGroup(0x0010);
    EXPECT_EQ(ChildNames(&data), (std::vector<std::u16string>{u"g0008", u"g0010", u"g0010", u"g0028"}));
    EXPECT_EQ(data.GetGroupItem(0x0010), data.GetChildItem(1));
    EXPECT_NE(data.GetGroupItem(0x0010), second);

    // InsertTag keeps element order; AddTag appends whatever the number.
    data.AddTag(0x0010, 0x0030, u"19700101", u"");
    data.InsertTag(0x0010, 0x0020, u"ID1", u"");
    data.AddTag(0x0010, 0x0005, nullptr, 0, u"");
    std::vector<std::u16string> expected{u"e0010", u"e0020", u"e0030", u"e0005"};
    EXPECT_EQ(ChildNames(data.GetGroupItem(0x0010)), expected);
}

TEST(ElementTree, DuplicatesAreCountedFoundByOccurrenceAndRemovedFirstFirst)
{
    CDicomItem data(u"Data");
    CDicomItem* first = data.AddTag(0x0008, 0x0060, u"CT", u"");
    CDicomItem* second = data.AddTag(0x0008, 0x0060, u"MR", u"");
    ASSERT_NE(first, second);
    EXPECT_EQ(data.GetTagItemCount(0x0008, 0x0060), 2);
    EXPECT_EQ(data.GetTagItem(0x0008, 0x0060, 1), second);
    EXPECT_EQ(data.GetTagItem(0x0008, 0x0060, 2), nullptr);
    EXPECT_TRUE(data.RemoveTag(0x0008, 0x0060));
    EXPECT_EQ(data.GetTagItem(0x0008, 0x0060), second);
    EXPECT_TRUE(data.RemoveTag(0x0008, 0x0060));
    // The emptied group stays; a further removal reports absence.
    EXPECT_NE(data.GetGroupItem(0x0008), nullptr);
    EXPECT_FALSE(data.RemoveTag(0x0008, 0x0060));
    EXPECT_FALSE(data.RemoveTag(0x0009, 0x0060));
    EXPECT_TRUE(data.RemoveGroup(0x0008));
    EXPECT_FALSE(data.RemoveGroup(0x0008));
}

TEST(ElementTree, ReplaceAndInsertDicomItemKeepOrder)
{
    CDicomItem data(u"Data");
    data.AddTag(0x0020, 0x000D, u"1.2.3", u"");
    data.AddTag(0x0020, 0x0013, u"5", u"");
    data.ReplaceTag(0x0020, 0x000D, u"1.2.4", u"");
    EXPECT_EQ(ChildNames(data.GetGroupItem(0x0020)), (std::vector<std::u16string>{u"e000D", u"e0013"}));
    std::u16string uid;
    data.GetTagValue(0x0020, 0x000D, uid);
    EXPECT_EQ(uid, u"1.2.4");

    auto* moved = new CDicomItem(u"e0011");
    EXPECT_EQ(data.InsertDicomItem(moved, 0x0020), 1);
    EXPECT_EQ(moved->GetParentItem(), data.GetGroupItem(0x0020));
    EXPECT_EQ(data.InsertDicomItem(new CDicomItem(u"e0010"), 0x0018), 0);
    EXPECT_EQ(ChildNames(&data), (std::vector<std::u16string>{u"g0018", u"g0020"}));
}

TEST(ElementTree, ValuesArePaddedWithTheVRsByte)
{
    CDicomItem data(u"Data");
    // The dictionary supplies the VR when none is given.
    const struct {
        int group, element;
        const char16_t* vr;
        char pad;
    } cases[] = {{0x0008, 0x0060, u"CS", ' '}, {0x0008, 0x0016, u"UI", 0}, {0x0009, 0x0010, u"", 0}};
    for (const auto& c : cases) {
        CDicomItem* element = data.AddTag(c.group, c.element, "ABCDE", 5, c.vr);
        ASSERT_EQ(element->GetDataSize(), 6);
        EXPECT_EQ(element->GetData()[5], c.pad) << c.element;
        EXPECT_TRUE(element->IsToBeFree());
    }
    EXPECT_EQ(AttributeOf(data.GetTagItem(0x0009, 0x0010), u"VR"), u"");
    CDicomItem* pn = data.AddTag(0x0010, 0x0010, u"DOE", u"");
    EXPECT_EQ(AttributeOf(pn, u"VR"), u"PN");
    ASSERT_EQ(pn->GetDataSize(), 4);
    EXPECT_EQ(pn->GetData()[3], ' ');

    // An undefined size without bytes, and a value freed explicitly.
    EXPECT_EQ(data.AddTag(0x0009, 0x1000, nullptr, -1, u"UN")->GetDataSize(), -1);
    pn->FreeData();
    EXPECT_EQ(pn->GetData(), nullptr);
    EXPECT_EQ(pn->GetDataSize(), 0);
    EXPECT_FALSE(pn->IsToBeFree());
    EXPECT_TRUE(data.CopyData(0x0010, 0x0010, "MR", 2));
    EXPECT_FALSE(data.CopyData(0x0010, 0x0011, "MR", 2));
}

TEST(ElementTree, SequencesNestItemsBeforeTheirDelimiters)
{
    CDicomItem data(u"Data");
    CDicomItem* sequence = data.AddSequence(0x0008, 0x1140);
    ASSERT_NE(sequence, nullptr);
    EXPECT_EQ(sequence->GetDataSize(), -1);
    EXPECT_EQ(AttributeOf(sequence, u"VR"), u"SQ");
    CDicomItem* item1 = sequence->InsertSequenceItem();
    CDicomItem* item2 = sequence->InsertSequenceItem();
    ASSERT_TRUE(item1 && item2);
    CDicomItem* items = sequence->GetGroupItem(0xFFFE);
    ASSERT_NE(items, nullptr);
    EXPECT_EQ(ChildNames(items), (std::vector<std::u16string>{u"eE000", u"eE000", u"eE0DD"}));
    EXPECT_EQ(items->GetChildItem(0), item1);
    EXPECT_EQ(items->GetChildItem(1), item2);
    for (CDicomItem* item : {item1, item2}) {
        EXPECT_EQ(AttributeOf(item, u"ParentVR"), u"SQ");
        EXPECT_EQ(item->GetDataSize(), -1);
        CDicomItem* tail = item->GetGroupItem(0xFFFE);
        ASSERT_NE(tail, nullptr);
        EXPECT_EQ(ChildNames(tail), std::vector<std::u16string>{u"eE00D"});
    }

    item1->AddTag(0x0008, 0x1155, u"1.2.3", u"");
    item2->AddTag(0x0008, 0x1150, u"1.2.840", u"");
    item2->AddTag(0x0008, 0x1155, u"1.2.4", u"");
    item2->AddTag(0x0008, 0x1155, u"1.2.5", u"");
    EXPECT_EQ(data.GetSequenceItem(0x0008, 0x1140), item1);
    EXPECT_EQ(sequence->GetSequenceChildItemCount(0x0008, 0x1155), 3);
    EXPECT_EQ(sequence->GetSequenceChildItemOptional(0x0008, 0x1150, 0), nullptr);
    EXPECT_EQ(sequence->GetSequenceChildItemOptional(0x0008, 0x1150, 1), item2->GetTagItem(0x0008, 0x1150));
    EXPECT_EQ(sequence->GetSequenceChildItemOptional(0x0008, 0x1150, 2), nullptr);
    EXPECT_EQ(sequence->GetSequenceChildItemMandatory(0x0008, 0x1150, 0), item2->GetTagItem(0x0008, 0x1150));
    EXPECT_EQ(sequence->GetSequenceChildItemMandatory(0x0008, 0x1150, 1), nullptr);

    // FindTag searches depth first, items included, first hit wins.
    EXPECT_EQ(data.FindTag(0x0008, 0x1155), item1->GetTagItem(0x0008, 0x1155));
    EXPECT_EQ(data.FindTag(0x0008, 0x1150), item2->GetTagItem(0x0008, 0x1150));
    EXPECT_EQ(data.FindTag(0x0010, 0x0010), nullptr);
}

TEST(ElementTree, DeepCopyOwnsEverythingAndSurvivesTheOriginal)
{
    auto original = std::make_unique<CDicomItem>(u"Data");
    original->AddTag(0x0010, 0x0010, u"DOE^JANE", u"");
    CDicomItem* sequence = original->AddSequence(0x0008, 0x1140);
    sequence->InsertSequenceItem()->AddTag(0x0008, 0x1155, u"1.2.3", u"");
    // A value that points into a buffer the tree does not own.
    static const unsigned char borrowed[] = {1, 2, 3, 4};
    CDicomItem* pointing = original->AddTag(0x0009, 0x1001, nullptr, 0, u"OB");
    pointing->SetData(borrowed, 4, false);

    std::unique_ptr<CDicomItem> copy(static_cast<CDicomItem*>(original->CreateCopy()));
    original.reset();

    std::u16string name;
    ASSERT_TRUE(copy->GetTagValue(0x0010, 0x0010, name));
    EXPECT_EQ(name, u"DOE^JANE");
    CDicomItem* copied = copy->GetTagItem(0x0009, 0x1001);
    ASSERT_NE(copied, nullptr);
    EXPECT_TRUE(copied->IsToBeFree());
    EXPECT_NE(copied->GetData(), borrowed);
    EXPECT_EQ(std::memcmp(copied->GetData(), borrowed, 4), 0);
    CDicomItem* copiedSequence = copy->GetTagItem(0x0008, 0x1140);
    ASSERT_NE(copiedSequence, nullptr);
    EXPECT_EQ(copiedSequence->GetDataSize(), -1);
    EXPECT_NE(copy->FindTag(0x0008, 0x1155), nullptr);
    EXPECT_EQ(copy->FindTag(0x0008, 0x1155)->GetParentItem()->GetParentItem()->GetParentItem()->GetParentItem(),
              copiedSequence);
}

TEST(ElementTree, TypedReadersCheckSizesAndVRs)
{
    CDicomItem data(u"Data");
    CDicomItem* us = data.AddTagForUS(0x0028, 0x0010, {512, 256});
    uint16_t value = 0;
    EXPECT_TRUE(us->GetTagValueForUS(value, 1));
    EXPECT_EQ(value, 256);
    EXPECT_FALSE(us->GetTagValueForUS(value, 2));
    EXPECT_FALSE(us->GetTagValueForUS(value, -1));
    EXPECT_EQ(data.AddTagForUS(0x0028, 0x0011, {}), nullptr);

    std::u16string text;
    EXPECT_TRUE(data.AddTagForSL(0x0018, 0x6020, {1, 2, 3})->GetTagValueForSL(text));
    EXPECT_EQ(text, u"1\\2\\3\\");
    CDicomItem* ss = data.AddTagForSS(0x0028, 0x0106, {-5});
    EXPECT_FALSE(ss->GetTagValueForSL(text));
    int16_t signedValue = 0;
    EXPECT_TRUE(ss->GetTagValueForSS(signedValue, 0));
    EXPECT_EQ(signedValue, -5);
    text = u"stale";
    EXPECT_TRUE(data.AddTag(0x0018, 0x6022, nullptr, 0, u"SS")->GetTagValueForSL(text));
    EXPECT_TRUE(text.empty());

    float number = 0;
    CDicomItem* fl = data.AddTagForFL(0x0070, 0x0010, {1.5f, -2.25f});
    EXPECT_TRUE(fl->GetTagValueForFL(number, 1));
    EXPECT_FLOAT_EQ(number, -2.25f);
    EXPECT_FALSE(fl->GetTagValueForFL(number, 2));
    CDicomItem* ds = data.AddTag(0x0028, 0x0030, u"0.5\\0.75", u"");
    EXPECT_TRUE(ds->GetTagValueForDS(number, 1));
    EXPECT_FLOAT_EQ(number, 0.75f);
    EXPECT_FALSE(ds->GetTagValueForDS(number, 2));
    int integer = 0;
    EXPECT_TRUE(data.AddTag(0x0020, 0x0013, u" 42", u"")->GetTagValueForIS(integer, 0));
    EXPECT_EQ(integer, 42);

    int four = 0;
    data.AddTag(0x0028, 0x0008, static_cast<uint32_t>(0x01020304));
    EXPECT_TRUE(data.GetTagValue(0x0028, 0x0008, four));
    EXPECT_EQ(four, 0x01020304);
    EXPECT_FALSE(data.GetTagValue(0x0028, 0x0100, four));
    EXPECT_EQ(four, 0x01020304);
}

TEST(ElementTree, DatesTimesAndImageType)
{
    CDicomItem data(u"Data");
    data.AddTag(0x0008, 0x0020, u"20240305", u"");
    data.AddTag(0x0008, 0x0021, u"2024", u"");
    data.AddTag(0x0008, 0x0030, u"093000.25", u"");
    long date = -1, time = -1;
    EXPECT_TRUE(data.GetDateValue(0x0008, 0x0020, date));
    EXPECT_EQ(date, 20240305);
    date = -1;
    EXPECT_TRUE(data.GetDateValue(0x0008, 0x0021, date));
    EXPECT_EQ(date, -1);
    EXPECT_FALSE(data.GetDateValue(0x0008, 0x0022, date));
    EXPECT_TRUE(data.GetTimeValue(0x0008, 0x0030, time));
    EXPECT_EQ(time, 93000);
    for (auto [text, number] : {std::pair{u"103015.123", 103015L}, {u"93000", 93000L}, {u"1030", -1L}, {u"", -1L},
                                {u"10:30:15", -1L}})
        EXPECT_EQ(CDicomItem::DicomTimeToLong(text), number);

    for (auto [imageType, expected] : {std::pair{u"ORIGINAL\\PRIMARY\\AXIAL\\HELIX", u"AXIAL"},
                                       {u"ORIGINAL\\PRIMARY\\LOCALIZER", u"LOCALIZER"},
                                       {u"ORIGINAL\\PRIMARY", u""}, {u"\\PRIMARY\\AXIAL", u""}}) {
        CDicomItem node(u"Data");
        node.AddTag(0x0008, 0x0008, imageType, u"");
        EXPECT_EQ(CDicomItem::GetDicomImageType(&node), expected);
    }
    EXPECT_EQ(CDicomItem::GetDicomImageType(nullptr), u"");
}

TEST(ElementTree, CopyChunkSizeFollowsTheHostProfileWithinBounds)
{
    HostProfile::Clear();
    EXPECT_EQ(CDicomItem(u"x").m_nCopyChunkSize, 32);
    // Outside 1..100 the default stands.
    for (auto [setting, chunk] : {std::pair{4, 4}, {0, 32}, {101, 32}, {100, 100}, {1, 1}}) {
        HostProfile::SetProfileInt("Receive", "FileCopyBufferSize", setting);
        EXPECT_EQ(CDicomItem(u"x").m_nCopyChunkSize, chunk) << setting;
    }
    HostProfile::Clear();
}
