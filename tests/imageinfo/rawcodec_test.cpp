// Raw element writers and walkers: byte forms, padding, undefined lengths,
// display trees, and walks over cut, damaged and over-deep buffers.
#include <gtest/gtest.h>

#include "support/dicomwriter.h"
#include "support/tree.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/xmlitem.h"

using namespace testsupport;

namespace {
Bytes ui(const std::string& value)  // zero-padded to even length
{
    Bytes bytes = text(value);
    if (bytes.size() % 2)
        bytes.push_back(0);
    return bytes;
}
Bytes Take(CDynBuffer& buffer)
{
    Bytes out = Contents(buffer);
    buffer.m_nSize = 0;
    return out;
}
using Tags = std::vector<std::pair<int, int>>;
void Record(TAG_HEADER* header, void* context)
{
    static_cast<Tags*>(context)->emplace_back(int{header->wGroup}, int{header->wElement});
}
// A string, an undefined-length sequence with a defined and an undefined
// item, a string with blanks around it and a US.
Bytes Sample()
{
    Bytes items = cat({item(cat({ielem(0x0008, 0x1150, ui("1.2.3")), ielem(0x0008, 0x1155, ui("4.5"))})),
                       undefinedItem(ielem(0x0008, 0x1155, ui("6.7.8"))), sequenceEnd()});
    return cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0008, 0x1140, items, kUndefined),
                ielem(0x0010, 0x0010, text(" Doe^John  ")), ielem(0x0028, 0x0010, us(512))});
}
}

TEST(RawWriters, FormsAndPadding)
{
    CDynBuffer b;
    DICOMINFO::AddTagByVR(b, u"CS", 0x0008, 0x0060, "ABC", 3);
    DICOMINFO::AddTagByVR(b, u"UI", 0x0008, 0x0016, "1.2.3", 5);
    DICOMINFO::AddTagByVR(b, u"LT", 0x0020, 0x4000, "x", 1);  // text VR: blank (PS3.5 6.2)
    DICOMINFO::AddTagByVR(b, u"PN", 0x0010, 0x0010, u"M\u00fcller^", u"ISO_IR 100");
    EXPECT_EQ(Take(b), cat({ielem(0x0008, 0x0060, text("ABC ")), ielem(0x0008, 0x0016, ui("1.2.3")),
                            ielem(0x0020, 0x4000, text("x ")), ielem(0x0010, 0x0010, text("M\xFCller^ "))}));

    // Text the character set cannot hold is refused: no element, not an empty one
    // (an empty name key of a query would match every patient).
    EXPECT_FALSE(DICOMINFO::AddTagByVR(b, u"PN", 0x0010, 0x0010, u"\u5C71\u7530", u"ISO_IR 100"));
    EXPECT_FALSE(DICOMINFO::AddTagExpVR(b, 0x0010, 0x0010, u"\u5C71\u7530"));
    EXPECT_EQ(b.m_nSize, 0u);
    EXPECT_TRUE(DICOMINFO::AddTagByVR(b, u"PN", 0x0010, 0x0010, u"\u5C71\u7530", u"ISO_IR 192"));
    EXPECT_EQ(Take(b), ielem(0x0010, 0x0010, text("\xE5\xB1\xB1\xE7\x94\xB0")));

    DICOMINFO::AddTag(b, 0x0000, 0x0100, static_cast<uint16_t>(0x0030));
    DICOMINFO::AddTag(b, 0x0008, 0x1140);
    DICOMINFO::InsertTag(b, 0x0000, 0x0000, 0x11223344u, 0);
    EXPECT_EQ(Take(b), cat({ielem(0x0000, 0x0000, {0x44, 0x33, 0x22, 0x11}), ielem(0x0000, 0x0100, us(0x30)),
                            ielem(0x0008, 0x1140, {}, kUndefined)}));

    DICOMINFO::AddTagExpVR(b, 0x0002, 0x0001, static_cast<uint16_t>(0x0100));
    DICOMINFO::AddTagExpVR(b, 0x0008, 0x1140);
    DICOMINFO::AddTagExpVR(b, 0x0008, 0x0060);
    DICOMINFO::AddTagExpVR(b, 0x0002, 0x0013, u"ZEL");
    DICOMINFO::InsertTagExpVR(b, 0x0002, 0x0000, 8u, 0);
    EXPECT_EQ(Take(b), cat({elem(0x0002, 0x0000, "UL", Bytes{8, 0, 0, 0}), elem(0x0002, 0x0001, "OB", Bytes{0, 1}),
                            elem(0x0008, 0x1140, "SQ", Bytes{}, kUndefined), elem(0x0008, 0x0060, "CS", Bytes{}, 0xFFFF),
                            elem(0x0002, 0x0013, "SH", "ZEL ")}));
    // Tags the dictionary does not know vanish from explicit VR output.
    DICOMINFO::AddTagExpVR(b, 0x0009, 0x1001, u"private");
    DICOMINFO::AddTagExpVR(b, 0x0009, 0x1002);
    DICOMINFO::InsertTagExpVR(b, 0x0009, 0x0000, 4u, 0);
    EXPECT_EQ(b.m_nSize, 0u);
    EXPECT_EQ(DICOMINFO::GetTagVRString(0x0028, 0x0010), u"US");
    EXPECT_EQ(DICOMINFO::GetTagVRString(0x0009, 0x1001), u"");
}

TEST(RawWalkers, TagsSequencesAndStrings)
{
    Bytes data = Sample();
    Tags seen;
    DICOMINFO::ReadTags(data.data(), static_cast<int>(data.size()), Record, &seen);
    EXPECT_EQ(seen, (Tags{{0x0008, 0x0060}, {0x0008, 0x1140}, {0x0010, 0x0010}, {0x0028, 0x0010}}));
    seen.clear();
    DICOMINFO::ReadTags(data.data(), 7, Record, &seen);
    EXPECT_TRUE(seen.empty());
    // A length past the end, or an undefined length without delimiter, ends the walk.
    for (const Bytes& cut : {cat({ielem(0, 0x0100, us(1)), ielem(0, 0x0900, us(0), 0x100)}),
                             cat({ielem(0, 0x0100, us(1)), ielem(0x0008, 0x1140, undefinedItem({}), kUndefined)})}) {
        seen.clear();
        DICOMINFO::ReadTags(cut.data(), static_cast<int>(cut.size()), Record, &seen);
        EXPECT_EQ(seen, (Tags{{0, 0x0100}}));
    }

    const auto* sequence = reinterpret_cast<const TAG_HEADER*>(data.data() + 10);
    const unsigned char* value = data.data() + 18;
    int length = DICOMINFO::CalcSequenceSize(sequence, static_cast<int>(data.size() - 18));
    EXPECT_EQ(length, (8 + 14 + 12) + (8 + 14 + 8) + 8);
    EXPECT_EQ(DICOMINFO::CalcSequenceSize(sequence, length - 1), -1);
    seen.clear();
    EXPECT_EQ(DICOMINFO::ReadSequence(value, length, Record, &seen), length);
    EXPECT_EQ(seen, (Tags{{0x0008, 0x1150}, {0x0008, 0x1155}, {0x0008, 0x1155}, {0xFFFE, 0xE00D}}));
    EXPECT_EQ(DICOMINFO::ReadSequence(value, -1, nullptr, nullptr), length);
    EXPECT_EQ(DICOMINFO::ReadSequence(value, length - 8, nullptr, nullptr), length - 8);

    const auto* name = reinterpret_cast<const TAG_HEADER*>(data.data() + 18 + length);
    char out[32];
    DICOMINFO::GetStringTagValue(name, out, sizeof out);
    EXPECT_STREQ(out, " Doe^John");  // trailing blanks go, leading ones stay
    DICOMINFO::GetStringTagValue(name, out, 5);
    EXPECT_STREQ(out, " Doe");
    std::u16string wide;
    DICOMINFO::GetStringTagValue(name, wide);
    EXPECT_EQ(wide, u" Doe^John");
    DICOMINFO::GetStringTagValue(sequence, out, sizeof out);
    EXPECT_STREQ(out, "");
}

TEST(RawWalkers, LoadDicomDataBuildsDisplayItems)
{
    Bytes data = cat({ielem(0x0009, 0x1001, text("hidden")), Sample()});
    CXmlItem root(u"ROOT", u"", "ISO_IR 100");
    EXPECT_EQ(DICOMINFO::LoadDicomData(data.data(), static_cast<int>(data.size()), &root), data.size());
    ASSERT_EQ(root.GetChildCount(), 4);  // the private element is not in the dictionary
    const CXmlItem* modality = root.GetChildItem(0);
    EXPECT_EQ(modality->m_sName, u"TAG");
    EXPECT_EQ(AttributeOf(modality, u"GROUP") + AttributeOf(modality, u"ELEMENT") + AttributeOf(modality, u"VR"), u"0x00080x0060CS");
    EXPECT_FALSE(AttributeOf(modality, u"NAME").empty());
    EXPECT_EQ(AttributeOf(modality, u"VALUE"), u"CT");
    const CXmlItem* sequence = root.GetChildItem(1);
    ASSERT_EQ(sequence->GetChildItemCount(u"TAG"), 2);  // two items; the delimiter is consumed
    const CXmlItem* second = sequence->GetChildItem(u"TAG", 1);
    EXPECT_EQ(AttributeOf(second, u"ELEMENT"), u"0xE000");
    ASSERT_EQ(second->GetChildItemCount(u"TAG"), 1);
    EXPECT_EQ(AttributeOf(second->GetChildItem(u"TAG", 0), u"VALUE"), u"6.7.8");
    EXPECT_EQ(AttributeOf(root.GetChildItem(2), u"VALUE"), u" Doe^John");
    EXPECT_EQ(root.GetChildItem(3)->GetChildItemCount(u"VALUE"), 0);  // US is not text
}

TEST(RawWalkers, LoadDicomDataOfUnknownSizeRunsToTheDelimiter)
{
    // The content of an undefined-length item: two elements, then its delimiter.
    Bytes content = cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0010, 0x0010, text("DOE^JOHN")),
                         ielem(0xFFFE, 0xE00D, {}), ielem(0x0010, 0x0020, text("AFTER "))});
    CXmlItem root(u"ROOT", u"", "ISO_IR 100");
    EXPECT_EQ(DICOMINFO::LoadDicomData(content.data(), -1, &root), content.size() - 14);
    ASSERT_EQ(root.GetChildCount(), 2);
    EXPECT_EQ(AttributeOf(root.GetChildItem(1), u"VALUE"), u"DOE^JOHN");
}

// Every prefix and every single damaged byte, walked in an exact-size copy so
// that the sanitizer build sees any read past the end; then nesting far
// deeper than any real object, which must not exhaust the stack.
TEST(RawWalkers, SurviveCutDamagedAndDeepBuffers)
{
    Bytes deep = ielem(0x0040, 0xA730, cat({undefinedItem(ielem(0x0040, 0xA730, cat({undefinedItem(ielem(0x0040, 0xA160, text("deep"))), sequenceEnd()}), kUndefined)), sequenceEnd()}), kUndefined);
    Bytes data = cat({Sample(), deep});
    auto walk = [](Bytes exact) {
        int size = static_cast<int>(exact.size());
        Tags seen;
        DICOMINFO::ReadTags(exact.data(), size, Record, &seen);
        DICOMINFO::ReadSequence(exact.data(), size, Record, &seen);
        CXmlItem root(u"ROOT", u"", "ISO_IR 100");
        EXPECT_LE(DICOMINFO::LoadDicomData(exact.data(), size, &root), exact.size());
        return seen.size();
    };
    EXPECT_EQ(walk(data), 5u);
    for (size_t cut = 0; cut < data.size(); ++cut)
        walk(Bytes(data.begin(), data.begin() + static_cast<long>(cut)));
    for (size_t at = 0; at < data.size(); ++at)
        for (unsigned char value : {0x00, 0xFF, 0x7F}) {
            Bytes damaged = data;
            damaged[at] = value;
            walk(damaged);
        }

    Bytes opening = cat({ielem(0x0008, 0x1140, {}, kUndefined), ielem(0xFFFE, 0xE000, {}, kUndefined)});
    Bytes closing = cat({ielem(0xFFFE, 0xE00D, {}), sequenceEnd()});
    Bytes nested;
    for (int level = 0; level < 5000; ++level)
        nested.insert(nested.end(), opening.begin(), opening.end());
    for (int level = 0; level < 5000; ++level)
        nested.insert(nested.end(), closing.begin(), closing.end());
    EXPECT_EQ(walk(nested), 0u);
}
