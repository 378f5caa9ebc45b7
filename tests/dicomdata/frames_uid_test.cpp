#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/parse_fixtures.h"

using namespace parsefix;

namespace {
// Encapsulated pixel data (PS3.5 A.4): an offset table item, fragments, and
// the sequence delimiter, as the value of an undefined-length (7FE0,0010).
Bytes Encapsulated(const std::vector<uint32_t>& offsets, const std::vector<std::string>& fragments)
{
    Bytes table;
    for (uint32_t offset : offsets)
        put32(table, offset);
    Bytes value = item(table);
    for (const std::string& fragment : fragments)
        value = cat({value, item(text(fragment))});
    return cat({value, sequenceEnd()});
}

// Loads explicit VR bytes: the encapsulated pixel data element alone.
struct PixelObject {
    Bytes bytes;
    CDicomItem data{u"Data"};
    CDicomItem* pixels = nullptr;

    explicit PixelObject(const Bytes& value) : bytes(cat({elem(0x7FE0, 0x0010, "OB", Bytes{}, kUndefined), value}))
    {
        if (data.LoadTags(bytes.data(), static_cast<int>(bytes.size()), true, -1) == bytes.size())
            pixels = data.GetTagItem(0x7FE0, 0x0010);
    }
};
}

TEST(CompressedFrames, FramesComeFromTheOffsetTableOrFromAllFragments)
{
    // Two frames: frame 0 in two fragments, frame 1 in one.
    std::string a = "AAAA", b = "BB", c = "CCCCCC";
    uint32_t frame1 = static_cast<uint32_t>(8 + a.size() + 8 + b.size());
    PixelObject object(Encapsulated({0, frame1}, {a, b, c}));
    ASSERT_NE(object.pixels, nullptr);
    unsigned char out[64];
    uint32_t size = object.pixels->GetCompressedFrameData(0, out, sizeof out);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), size), "AAAABB");
    size = object.pixels->GetCompressedFrameData(1, out, sizeof out);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), size), "CCCCCC");
    // A capacity smaller than the first fragment yields nothing.
    EXPECT_EQ(object.pixels->GetCompressedFrameData(0, out, 3), 0u);

    // Without an offset table only frame 0 exists: all fragments together.
    PixelObject single(Encapsulated({}, {a, b}));
    ASSERT_NE(single.pixels, nullptr);
    size = single.pixels->GetCompressedFrameData(0, out, sizeof out);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(out), size), "AAAABB");
    EXPECT_EQ(single.pixels->GetCompressedFrameData(1, out, sizeof out), 0u);
    EXPECT_EQ(single.pixels->GetCompressedFrameData(-1, out, sizeof out), 0u);
}

TEST(CompressedFrames, LyingLengthsAndOffsetsNeverLeaveTheValueOrTheOutput)
{
    std::string a = "AAAA", b = "BB";
    Bytes good = Encapsulated({0}, {a, b});
    PixelObject object(good);
    ASSERT_NE(object.pixels, nullptr);
    const size_t fragmentLength = 8 + 4 + 4;  // table item + its one offset, then the first fragment's length field
    // Rewrite the first fragment's length in the loaded bytes: the parse is
    // done, so the extraction itself has to notice every lie.
    unsigned char* lengthField = object.bytes.data() + 12 + fragmentLength;
    for (uint32_t lie : {0xFFFFFFF0u, 0x7FFFFFFFu, 1000u, 13u, 5u}) {
        std::memcpy(lengthField, &lie, 4);
        std::vector<unsigned char> out(64, 0xCC);
        uint32_t size = object.pixels->GetCompressedFrameData(0, out.data(), 16);
        EXPECT_LE(size, 16u) << "lie " << lie;
        for (size_t i = 16; i < out.size(); ++i)
            ASSERT_EQ(out[i], 0xCC) << "wrote past the capacity for lie " << lie;
    }
    // Offsets that point far beyond the fragments.
    uint32_t farOffset = 0x7FFFFFF0u;
    std::memcpy(object.bytes.data() + 12 + 8, &farOffset, 4);
    unsigned char out[16];
    EXPECT_EQ(object.pixels->GetCompressedFrameData(0, out, sizeof out), 0u);

    // An element that was not parsed from a buffer has no fragment area.
    CDicomItem built(u"Data");
    CDicomItem* pixels = built.AddTag(0x7FE0, 0x0010, nullptr, -1, u"OB");
    pixels->InsertSequenceItem();
    EXPECT_EQ(pixels->GetCompressedFrameData(0, out, sizeof out), 0u);
    EXPECT_EQ(built.GetCompressedFrameData(0, out, sizeof out), 0u);
}

TEST(UidGeneration, UidsAreShortNumericAndUnique)
{
    std::u16string savedRoot = CDicomInfoStatics::s_sDicomRoot;
    for (const char16_t* root : {u"", u"1.2.826.0.1.3680043.10.543", u"1.2.826.0.1.3680043.10.543.12345"}) {
        CDicomInfoStatics::SetDicomRoot(root);
        std::set<std::u16string> seen;
        for (int i = 0; i < 2000; ++i) {
            std::u16string uid = CDicomItem::GetUID();
            ASSERT_LE(uid.size(), 64u) << "root of " << std::u16string(root).size() << " characters";
            for (char16_t c : uid)
                ASSERT_TRUE((c >= u'0' && c <= u'9') || c == u'.');
            ASSERT_EQ(uid.compare(0, std::u16string(root).size(), root), 0);
            ASSERT_TRUE(seen.insert(uid).second) << "duplicate UID";
        }
    }
    CDicomInfoStatics::SetDicomRoot(savedRoot);
}
