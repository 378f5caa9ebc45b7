// Raw element writers and walkers: byte forms, padding, undefined lengths,
// display trees, and walks over cut and damaged buffers.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "dicomdata/parse_fixtures.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/xmlitem.h"

using namespace parsefix;

namespace {

// A UID value padded with a zero byte to even length.
Bytes ui(const std::string& value)
{
    Bytes bytes = text(value);
    if (bytes.size() % 2)
        bytes.push_back(0);
    return bytes;
}

Bytes Contents(const CDynBuffer& buffer)
{
    return Bytes(buffer.GetData(), buffer.GetData() + buffer.m_nSize);
}

struct Visit {
    uint16_t group;
    uint16_t element;
    uint32_t length;
};

void Record(TAG_HEADER* header, void* context)
{
    static_cast<std::vector<Visit>*>(context)->push_back({header->wGroup, header->wElement, header->nLength});
}

std::vector<std::pair<int, int>> Tags(const std::vector<Visit>& visits)
{
    std::vector<std::pair<int, int>> tags;
    for (const Visit& v : visits)
        tags.emplace_back(v.group, v.element);
    return tags;
}

// A command-set-like implicit VR buffer: a string, an undefined-length
// sequence with one defined and one undefined item, and a trailing US.
Bytes SampleImplicitBuffer()
{
    Bytes firstItem = item(cat({ielem(0x0008, 0x1150, ui("1.2.3")), ielem(0x0008, 0x1155, ui("4.5"))}));
    Bytes secondItem = undefinedItem(ielem(0x0008, 0x1155, ui("6.7.8")));
    return cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0008, 0x1140, cat({firstItem, secondItem, sequenceEnd()}), kUndefined),
                ielem(0x0010, 0x0010, text(" Doe^John  ")), ielem(0x0028, 0x0010, us(512))});
}

std::u16string ChildValue(const CXmlItem* item, const char16_t* name)
{
    std::u16string value;
    item->GetItemValue(name, value);
    return value;
}

}

TEST(RawWriters, ImplicitFormsAndPadding)
{
    CDynBuffer buffer;
    DICOMINFO::AddTagByVR(buffer, u"CS", 0x0008, 0x0060, "ABC", 3);
    EXPECT_EQ(Contents(buffer), cat({Bytes{0x08, 0x00, 0x60, 0x00, 4, 0, 0, 0}, text("ABC ")}));

    buffer.m_nSize = 0;
    DICOMINFO::AddTagByVR(buffer, u"UI", 0x0008, 0x0016, "1.2.3", 5);
    EXPECT_EQ(Contents(buffer), cat({Bytes{0x08, 0x00, 0x16, 0x00, 6, 0, 0, 0}, text("1.2.3"), Bytes{0}}));

    // A VR the padding table does not list gets a zero byte; LT is such a VR.
    buffer.m_nSize = 0;
    DICOMINFO::AddTagByVR(buffer, u"LT", 0x0020, 0x4000, "x", 1);
    EXPECT_EQ(Contents(buffer).back(), 0);

    buffer.m_nSize = 0;
    DICOMINFO::AddTagByVR(buffer, u"PN", 0x0010, 0x0010, u"M\u00fcller^", u"ISO_IR 100");
    Bytes name = Contents(buffer);
    ASSERT_EQ(name.size(), 8u + 8u);
    EXPECT_EQ(name[8 + 1], 0xFC) << "Latin-1 u-umlaut";
    EXPECT_EQ(name.back(), ' ');

    buffer.m_nSize = 0;
    DICOMINFO::AddTag(buffer, 0x0000, 0x0100, static_cast<uint16_t>(0x0030));
    DICOMINFO::AddTag(buffer, 0x0000, 0x0000, static_cast<uint32_t>(0x11223344));
    DICOMINFO::AddTag(buffer, 0x0008, 0x1140);
    EXPECT_EQ(Contents(buffer), cat({ielem(0x0000, 0x0100, us(0x0030)), ielem(0x0000, 0x0000, {0x44, 0x33, 0x22, 0x11}),
                                     ielem(0x0008, 0x1140, {}, kUndefined)}));

    // The group length goes in front of what is already written.
    DICOMINFO::InsertTag(buffer, 0x0000, 0x0002, 7u, 10);
    Bytes withInsert = Contents(buffer);
    EXPECT_EQ(Bytes(withInsert.begin() + 10, withInsert.begin() + 22), ielem(0x0000, 0x0002, {7, 0, 0, 0}));
    EXPECT_EQ(withInsert.size(), 10u + 12u + 12u + 8u);
}

TEST(RawWriters, ExplicitFormsFollowTheDictionary)
{
    CDynBuffer buffer;
    DICOMINFO::AddTagExpVR(buffer, 0x0002, 0x0001, static_cast<uint16_t>(0x0100));
    EXPECT_EQ(Contents(buffer), (Bytes{0x02, 0x00, 0x01, 0x00, 'O', 'B', 0, 0, 2, 0, 0, 0, 0x00, 0x01}));

    buffer.m_nSize = 0;
    DICOMINFO::AddTagExpVR(buffer, 0x0008, 0x1140);
    EXPECT_EQ(Contents(buffer), (Bytes{0x08, 0x00, 0x40, 0x11, 'S', 'Q', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}));

    buffer.m_nSize = 0;
    DICOMINFO::AddTagExpVR(buffer, 0x0008, 0x0060);
    EXPECT_EQ(Contents(buffer), (Bytes{0x08, 0x00, 0x60, 0x00, 'C', 'S', 0xFF, 0xFF}));

    buffer.m_nSize = 0;
    DICOMINFO::AddTagExpVR(buffer, 0x0002, 0x0013, u"ZEL");
    EXPECT_EQ(Contents(buffer), cat({Bytes{0x02, 0x00, 0x13, 0x00, 'S', 'H', 4, 0}, text("ZEL ")}));

    // Tags the dictionary does not know are dropped, whatever the form.
    buffer.m_nSize = 0;
    DICOMINFO::AddTagExpVR(buffer, 0x0009, 0x1001, u"private");
    DICOMINFO::AddTagExpVR(buffer, 0x0009, 0x1002);
    DICOMINFO::InsertTagExpVR(buffer, 0x0009, 0x0000, 4u, 0);
    EXPECT_EQ(buffer.m_nSize, 0u);

    DICOMINFO::AddTagExpVR(buffer, 0x0008, 0x0018, "1.2", 3);
    DICOMINFO::InsertTagExpVR(buffer, 0x0008, 0x0000, 12u, 0);
    EXPECT_EQ(Contents(buffer), cat({elem(0x0008, 0x0000, "UL", Bytes{12, 0, 0, 0}), elem(0x0008, 0x0018, "UI", ui("1.2"))}));

    EXPECT_EQ(DICOMINFO::GetTagVRString(0x0028, 0x0010), u"US");
    EXPECT_EQ(DICOMINFO::GetTagVRString(0x0009, 0x1001), u"");
}

TEST(RawWalkers, ReadTagsVisitsTopLevelOnly)
{
    Bytes data = SampleImplicitBuffer();
    std::vector<Visit> visits;
    DICOMINFO::ReadTags(data.data(), static_cast<int>(data.size()), Record, &visits);
    EXPECT_EQ(Tags(visits), (std::vector<std::pair<int, int>>{{0x0008, 0x0060}, {0x0008, 0x1140}, {0x0010, 0x0010},
                                                              {0x0028, 0x0010}}));

    // A 7-byte buffer holds no header: nothing is called.
    visits.clear();
    DICOMINFO::ReadTags(data.data(), 7, Record, &visits);
    EXPECT_TRUE(visits.empty());

    // A length pointing past the end ends the walk before that element.
    Bytes overlong = cat({ielem(0x0000, 0x0100, us(1)), ielem(0x0000, 0x0900, us(0), 0x100)});
    visits.clear();
    DICOMINFO::ReadTags(overlong.data(), static_cast<int>(overlong.size()), Record, &visits);
    EXPECT_EQ(Tags(visits), (std::vector<std::pair<int, int>>{{0x0000, 0x0100}}));

    // An undefined length without its delimiter ends the walk too.
    Bytes open = cat({ielem(0x0008, 0x0060, text("MR")), ielem(0x0008, 0x1140, {}, kUndefined),
                      undefinedItem(ielem(0x0008, 0x1150, ui("1")))});
    visits.clear();
    DICOMINFO::ReadTags(open.data(), static_cast<int>(open.size()), Record, &visits);
    EXPECT_EQ(visits.size(), 1u);
}

TEST(RawWalkers, SequencesItemsAndDelimiters)
{
    Bytes data = SampleImplicitBuffer();
    const size_t sequenceAt = 8 + 2;
    const auto* sequence = reinterpret_cast<const TAG_HEADER*>(data.data() + sequenceAt);
    int available = static_cast<int>(data.size() - sequenceAt - 8);
    int length = DICOMINFO::CalcSequenceSize(sequence, available);
    // Items: 8 + 14 + 12, then 8 + 14 + 8, then the 8-byte delimiter.
    EXPECT_EQ(length, (8 + 14 + 12) + (8 + 14 + 8) + 8);

    std::vector<Visit> visits;
    const unsigned char* value = data.data() + sequenceAt + 8;
    EXPECT_EQ(DICOMINFO::ReadSequence(value, length, Record, &visits), length);
    EXPECT_EQ(Tags(visits), (std::vector<std::pair<int, int>>{
                                {0x0008, 0x1150}, {0x0008, 0x1155}, {0x0008, 0x1155}, {0xFFFE, 0xE00D}}));
    // The unbounded form on a value a walker has seen delimited ends at the delimiter.
    EXPECT_EQ(DICOMINFO::ReadSequence(value, -1, nullptr, nullptr), length);
    // Cut before the delimiter: the bounded walk stops at the end.
    EXPECT_EQ(DICOMINFO::ReadSequence(value, length - 8, nullptr, nullptr), length - 8);
    EXPECT_EQ(DICOMINFO::CalcSequenceSize(sequence, length - 1), -1);

    // An item that claims more than the value holds ends the walk.
    Bytes bad = cat({ielem(0xFFFE, 0xE000, ielem(0x0008, 0x1150, ui("1")), 0x40), sequenceEnd()});
    visits.clear();
    EXPECT_EQ(DICOMINFO::ReadSequence(bad.data(), static_cast<int>(bad.size()), Record, &visits),
              static_cast<int>(bad.size()));
    EXPECT_TRUE(visits.empty());
}

TEST(RawWalkers, StringValues)
{
    Bytes element = ielem(0x0010, 0x0010, text(" Doe^John  "));
    const auto* header = reinterpret_cast<const TAG_HEADER*>(element.data());
    char out[32];
    DICOMINFO::GetStringTagValue(header, out, sizeof out);
    EXPECT_STREQ(out, " Doe^John");
    DICOMINFO::GetStringTagValue(header, out, 5);
    EXPECT_STREQ(out, " Doe");
    std::u16string wide;
    DICOMINFO::GetStringTagValue(header, wide);
    EXPECT_EQ(wide, u" Doe^John");

    Bytes sequence = ielem(0x0008, 0x1140, {}, kUndefined);
    DICOMINFO::GetStringTagValue(reinterpret_cast<const TAG_HEADER*>(sequence.data()), out, sizeof out);
    EXPECT_STREQ(out, "");
}

TEST(RawWalkers, LoadDicomDataBuildsDisplayItems)
{
    Bytes data = cat({ielem(0x0009, 0x1001, text("hidden")), SampleImplicitBuffer()});
    CXmlItem root(u"ROOT", u"", "ISO_IR 100");
    uint32_t consumed = DICOMINFO::LoadDicomData(data.data(), static_cast<int>(data.size()), &root);
    EXPECT_EQ(consumed, data.size());
    // The private element is not in the dictionary and is skipped.
    ASSERT_EQ(root.GetChildCount(), 4);
    const CXmlItem* modality = root.GetChildItem(0);
    EXPECT_EQ(modality->m_sName, u"TAG");
    EXPECT_EQ(ChildValue(modality, u"GROUP"), u"0x0008");
    EXPECT_EQ(ChildValue(modality, u"ELEMENT"), u"0x0060");
    EXPECT_EQ(ChildValue(modality, u"VR"), u"CS");
    EXPECT_FALSE(ChildValue(modality, u"NAME").empty());
    EXPECT_EQ(ChildValue(modality, u"VALUE"), u"CT");

    const CXmlItem* sequence = root.GetChildItem(1);
    EXPECT_EQ(ChildValue(sequence, u"VR"), u"SQ");
    // Two items below the sequence (the delimiter is consumed, not shown).
    ASSERT_EQ(sequence->GetChildItemCount(u"TAG"), 2);
    const CXmlItem* second = sequence->GetChildItem(u"TAG", 1);
    EXPECT_EQ(ChildValue(second, u"ELEMENT"), u"0xE000");
    ASSERT_EQ(second->GetChildItemCount(u"TAG"), 1);
    EXPECT_EQ(ChildValue(second->GetChildItem(u"TAG", 0), u"VALUE"), u"6.7.8");

    EXPECT_EQ(ChildValue(root.GetChildItem(2), u"VALUE"), u" Doe^John");
    // US is not a string VR: no VALUE.
    EXPECT_EQ(root.GetChildItem(3)->GetChildItemCount(u"VALUE"), 0);
}

// Every prefix of the buffer, and every single damaged byte, walked with an
// exact-size copy so that the sanitizer sees any read past the end.
TEST(RawWalkers, SurviveTruncationAndDamage)
{
    Bytes data = cat({SampleImplicitBuffer(), ielem(0x0040, 0xA730, cat({undefinedItem(ielem(0x0040, 0xA730,
                                                                                                cat({undefinedItem(ielem(0x0040, 0xA160, text("deep"))), sequenceEnd()}),
                                                                                                kUndefined)),
                                                                                 sequenceEnd()}),
                                                            kUndefined)});
    auto walkAll = [](const Bytes& input) {
        std::vector<unsigned char> exact(input);
        const unsigned char* p = exact.empty() ? nullptr : exact.data();
        int size = static_cast<int>(exact.size());
        std::vector<Visit> visits;
        DICOMINFO::ReadTags(p, size, Record, &visits);
        DICOMINFO::ReadSequence(p, size, Record, &visits);
        CXmlItem root(u"ROOT", u"", "ISO_IR 100");
        uint32_t consumed = DICOMINFO::LoadDicomData(p, size, &root);
        EXPECT_LE(consumed, exact.size());
        if (size >= 8)
            DICOMINFO::CalcSequenceSize(reinterpret_cast<const TAG_HEADER*>(p), size - 8);
        return visits.size();
    };
    size_t full = walkAll(data);
    EXPECT_GT(full, 4u);
    for (size_t cut = 0; cut < data.size(); ++cut)
        walkAll(Bytes(data.begin(), data.begin() + static_cast<long>(cut)));
    for (size_t at = 0; at < data.size(); ++at) {
        for (unsigned char value : {0x00, 0xFF, 0x7F}) {
            Bytes damaged = data;
            damaged[at] = value;
            walkAll(damaged);
        }
    }
}

TEST(RawWalkers, DeepNestingIsBounded)
{
    // Undefined-length sequences nested far deeper than any object: the walk
    // gives up instead of recursing without bound.
    Bytes opening = cat({ielem(0x0008, 0x1140, {}, kUndefined), ielem(0xFFFE, 0xE000, {}, kUndefined)});
    Bytes closing = cat({ielem(0xFFFE, 0xE00D, {}), sequenceEnd()});
    Bytes inner;
    for (int level = 0; level < 5000; ++level)
        inner.insert(inner.end(), opening.begin(), opening.end());
    for (int level = 0; level < 5000; ++level)
        inner.insert(inner.end(), closing.begin(), closing.end());
    std::vector<Visit> visits;
    DICOMINFO::ReadTags(inner.data(), static_cast<int>(inner.size()), Record, &visits);
    EXPECT_TRUE(visits.empty());
    CXmlItem root(u"ROOT", u"", "ISO_IR 100");
    EXPECT_LE(DICOMINFO::LoadDicomData(inner.data(), static_cast<int>(inner.size()), &root), inner.size());
}
