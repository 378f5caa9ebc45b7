#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "support/dicomwriter.h"
#include "platform/match.h"
#include "platform/text.h"

using namespace testsupport;
using namespace zeldicom;

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

namespace {
// PS3.5 9.1: at most 64 characters; components of digits, none empty and
// none with a leading zero.
bool IsValidUid(const std::string& uid)
{
    if (uid.empty() || uid.size() > 64)
        return false;
    size_t start = 0;
    for (;;) {
        size_t dot = uid.find('.', start);
        std::string component = uid.substr(start, dot == std::string::npos ? std::string::npos : dot - start);
        if (component.empty() || component.find_first_not_of("0123456789") != std::string::npos ||
            (component.size() > 1 && component[0] == '0'))
            return false;
        if (dot == std::string::npos)
            return true;
        start = dot + 1;
    }
}

// A valid root of exactly length characters.
std::string RootOfLength(size_t length)
{
    std::string root = length % 2 ? "1" : "11";
    while (root.size() < length)
        root += ".7";
    return root;
}
}

TEST(UidGeneration, HundredThousandInARowAreUniqueValidAndUnderTheRoot)
{
    std::u16string savedRoot = CDicomInfoStatics::s_sDicomRoot;
    for (size_t length : {0, 26, 44, 48, 55}) {
        std::string root = RootOfLength(length);
        CDicomInfoStatics::SetDicomRoot(length ? AsciiToWide(root) : u"");
        // Without a root the UID is UUID-derived (PS3.5 B.2).
        std::string prefix = length ? root + "." : "2.25.";
        std::set<std::string> seen;
        for (int i = 0; i < 100000; ++i) {
            std::string uid = WideToAscii(CDicomItem::GetUID());
            ASSERT_TRUE(IsValidUid(uid)) << uid;
            ASSERT_EQ(uid.compare(0, prefix.size(), prefix), 0) << uid;
            ASSERT_TRUE(seen.insert(uid).second) << "duplicate " << uid << " after " << i;
        }
        // Under a root: machine, yyyymmddhhmmss, session ticket.
        std::u16string rest = CDicomItem::GetUID().substr(prefix.size());
        if (length == 26) {
            EXPECT_EQ(CharCount(rest, u'.'), 2) << WideToAscii(rest);
            EXPECT_TRUE(Match(GetField(rest, u'.', 1), "dddddddddddddd")) << WideToAscii(rest);
        }
    }
    CDicomInfoStatics::SetDicomRoot(savedRoot);
}
