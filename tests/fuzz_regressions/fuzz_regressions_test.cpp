// Every input that once broke a fuzz target is replayed here through the
// same function the target calls (fuzz/targets.h), so a fixed fault stays
// fixed in the ordinary test run. Inputs live in inputs/<target name>/.
#include <dirent.h>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "fuzz/targets.h"

namespace {

using Bytes = std::vector<unsigned char>;
using TargetFunction = int (*)(const uint8_t*, size_t);

const std::map<std::string, TargetFunction>& Targets()
{
    static const std::map<std::string, TargetFunction> targets = {
        {"fuzz_loadtags", zelfuzz::LoadTagsTarget},
        {"fuzz_loadobject", zelfuzz::LoadObjectTarget},
        {"fuzz_frames", zelfuzz::FramesTarget},
        {"fuzz_roundtrip", zelfuzz::RoundTripTarget},
        {"fuzz_rawwalk", zelfuzz::RawWalkTarget},
        {"fuzz_metascan", zelfuzz::MetaScanTarget},
        {"fuzz_text", zelfuzz::TextTarget},
    };
    return targets;
}

std::vector<std::string> Entries(const std::string& folder)
{
    std::vector<std::string> names;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir))
            if (entry->d_name[0] != '.')
                names.push_back(entry->d_name);
        closedir(dir);
    }
    return names;
}

void Put16(Bytes& out, uint32_t value)
{
    out.push_back(static_cast<unsigned char>(value));
    out.push_back(static_cast<unsigned char>(value >> 8));
}

// Explicit VR element with a 16-bit length, or the 8-byte item form for group FFFE.
Bytes Short(uint16_t group, uint16_t element, const char* vr, const std::string& value)
{
    Bytes out;
    Put16(out, group);
    Put16(out, element);
    out.push_back(static_cast<unsigned char>(vr[0]));
    out.push_back(static_cast<unsigned char>(vr[1]));
    Put16(out, static_cast<uint32_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return out;
}

Bytes Tag(uint16_t group, uint16_t element, uint32_t length)
{
    Bytes out;
    Put16(out, group);
    Put16(out, element);
    Put16(out, length & 0xFFFF);
    Put16(out, length >> 16);
    return out;
}

Bytes Cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

Bytes Implicit(uint16_t group, uint16_t element, const std::string& value)
{
    Bytes out = Tag(group, element, static_cast<uint32_t>(value.size()));
    out.insert(out.end(), value.begin(), value.end());
    return out;
}

// An implicit VR data set with a defined-length sequence, an undefined-length
// sequence with an undefined-length item, and encapsulated pixel data of two
// frames behind an offset table.
Bytes ImplicitDataSet()
{
    Bytes referenced = Cat({Implicit(0x0008, 0x1150, "1.2.3.4"),
                            Implicit(0x0008, 0x1155, "1.2.3.4.5.")});
    Bytes definedItem = Cat({Tag(0xFFFE, 0xE000, static_cast<uint32_t>(referenced.size())), referenced});
    Bytes code = Cat({Implicit(0x0008, 0x0100, "T-D1100 "), Implicit(0x0008, 0x0102, "SRT ")});
    Bytes frame0 = Cat({Tag(0xFFFE, 0xE000, 4), {0xFF, 0xD8, 0xFF, 0xD9}});
    Bytes frame1 = Cat({Tag(0xFFFE, 0xE000, 6), {0xFF, 0xD8, 1, 2, 0xFF, 0xD9}});
    Bytes table = Cat({Tag(0xFFFE, 0xE000, 8), {0, 0, 0, 0, 12, 0, 0, 0}});
    return Cat({Implicit(0x0008, 0x0005, "ISO_IR 100"),
                Tag(0x0008, 0x1140, static_cast<uint32_t>(definedItem.size())), definedItem,
                Tag(0x0008, 0x2218, 0xFFFFFFFF), Tag(0xFFFE, 0xE000, 0xFFFFFFFF), code, Tag(0xFFFE, 0xE00D, 0),
                Tag(0xFFFE, 0xE0DD, 0), Implicit(0x0010, 0x0010, "Doe^John"), Implicit(0x0028, 0x0100, std::string("\x08\0", 2)),
                Tag(0x7FE0, 0x0010, 0xFFFFFFFF), table, frame0, frame1, Tag(0xFFFE, 0xE0DD, 0)});
}

// The same shapes as a Part 10 file image with explicit VR meta information.
Bytes FileImage(const Bytes& dataSet)
{
    Bytes meta = Cat({Short(0x0002, 0x0002, "UI", "1.2.840.10008.5.1.4.1.1.7"),
                      Short(0x0002, 0x0010, "UI", "1.2.840.10008.1.2")});
    Bytes out(128, 0);
    for (char letter : std::string("DICM"))
        out.push_back(static_cast<unsigned char>(letter));
    return Cat({out, meta, dataSet});
}

// Runs a target on an exact-size heap copy of the bytes, so that a read past
// the end is caught under AddressSanitizer as it is in the fuzz target.
int RunOnCopy(TargetFunction target, const Bytes& bytes)
{
    std::unique_ptr<uint8_t[]> input(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), input.get());
    return target(input.get(), bytes.size());
}

}

TEST(FuzzRegressions, ReplaysEverySavedInput)
{
    const std::string root = std::string(ZELDICOM_SOURCE_DIR) + "/tests/fuzz_regressions/inputs";
    int replayed = 0;
    for (const std::string& target : Entries(root)) {
        auto function = Targets().find(target);
        ASSERT_NE(function, Targets().end()) << "inputs for an unknown target: " << target;
        for (const std::string& name : Entries(root + "/" + target)) {
            std::ifstream file(root + "/" + target + "/" + name, std::ios::binary);
            ASSERT_TRUE(file) << name;
            Bytes bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
            EXPECT_EQ(RunOnCopy(function->second, bytes), zelfuzz::kOk) << target << "/" << name;
            ++replayed;
        }
    }
    EXPECT_GT(replayed, 0) << "no regression inputs found below " << root;
}

// A group length element that a damaged stream gives the VR SQ holds items;
// re-encoding must not store a 4-byte length into it behind its items' back.
TEST(FuzzRegressions, GroupLengthReadAsSequenceReencodes)
{
    Bytes item = Cat({Tag(0xFFFE, 0xE000, 0xFFFFFFFF), Short(0x0008, 0x0100, "SH", "T-D1100 "),
                      Tag(0xFFFE, 0xE00D, 0)});
    Bytes sequence = Cat({{0x08, 0x00, 0x00, 0x00, 'S', 'Q', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF}, item,
                          Tag(0xFFFE, 0xE0DD, 0)});
    Bytes input = Cat({{1}, sequence, Short(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.7")});
    EXPECT_EQ(zelfuzz::RoundTripTarget(input.data(), input.size()), zelfuzz::kOk);

    CDicomItem dataSet(u"Data");
    ASSERT_EQ(dataSet.LoadTags(input.data() + 1, static_cast<int>(input.size() - 1), true, -1), input.size() - 1);
    ASSERT_NE(dataSet.RecalcTags(true, 0), 0xFFFFFFFFu);
    CDicomItem* groupLength = dataSet.GetTagItem(0x0008, 0x0000);
    ASSERT_NE(groupLength, nullptr);
    EXPECT_EQ(groupLength->GetDataSize(), -1) << "the sequence keeps its undefined length";
    EXPECT_EQ(groupLength->GetTagItemCount(0xFFFE, 0xE000), 1);
}

// The round trip oracle must notice a changed tree, or the round trip target
// could pass on anything.
TEST(FuzzRegressions, TreeComparisonSeesEveryDifference)
{
    Bytes run = Cat({Short(0x0008, 0x0060, "CS", "CT"), Short(0x0010, 0x0010, "PN", "Doe^John"),
                     Short(0x0010, 0x0020, "LO", "ID42")});
    auto parse = [](const Bytes& bytes) {
        auto node = std::make_unique<CDicomItem>(u"Data");
        EXPECT_EQ(node->LoadTags(bytes.data(), static_cast<int>(bytes.size()), true, -1), bytes.size());
        return node;
    };
    auto original = parse(run);
    EXPECT_TRUE(zelfuzz::SameTree(original.get(), parse(run).get()));

    Bytes otherValue = run;
    otherValue[otherValue.size() - 1] = '3';
    EXPECT_FALSE(zelfuzz::SameTree(original.get(), parse(otherValue).get()));

    Bytes otherTag = run;
    otherTag[2] = 0x61;
    EXPECT_FALSE(zelfuzz::SameTree(original.get(), parse(otherTag).get()));

    Bytes shorter = Cat({Short(0x0008, 0x0060, "CS", "CT"), Short(0x0010, 0x0010, "PN", "Doe^Jo"),
                         Short(0x0010, 0x0020, "LO", "ID42")});
    EXPECT_FALSE(zelfuzz::SameTree(original.get(), parse(shorter).get()));

    Bytes missing(run.begin(), run.end() - 12);
    EXPECT_FALSE(zelfuzz::SameTree(original.get(), parse(missing).get()));
    EXPECT_FALSE(zelfuzz::SameTree(parse(missing).get(), original.get()));

    // A value pointer outside the parsed bytes is reported.
    EXPECT_TRUE(zelfuzz::ValuesInside(original.get(), run.data(), run.size()));
    EXPECT_FALSE(zelfuzz::ValuesInside(original.get(), run.data(), run.size() - 1));
}

// A delimiter that ends a run in a group node ahead of later groups cannot
// be written back in stream order; the round trip skips such trees instead
// of reporting them, and still checks everything else.
TEST(FuzzRegressions, RoundTripSkipsOnlyUnorderableTrees)
{
    Bytes interleaved = Cat({{1}, Tag(0xFFFE, 0xE0DC, 0), Short(0x0040, 0xA123, "PN", "Doe^John"),
                             Tag(0xFFFE, 0xE0DD, 0)});
    CDicomItem dataSet(u"Data");
    ASSERT_NE(dataSet.LoadTags(interleaved.data() + 1, static_cast<int>(interleaved.size() - 1), true, -1),
              0xFFFFFFFFu);
    EXPECT_TRUE(zelfuzz::DelimiterBeforeLastGroup(&dataSet));
    EXPECT_EQ(zelfuzz::RoundTripTarget(interleaved.data(), interleaved.size()), zelfuzz::kOk);

    Bytes ordered = Cat({{1}, Short(0x0040, 0xA123, "PN", "Doe^John"), Tag(0xFFFE, 0xE0DD, 0)});
    CDicomItem orderedSet(u"Data");
    ASSERT_NE(orderedSet.LoadTags(ordered.data() + 1, static_cast<int>(ordered.size() - 1), true, -1), 0xFFFFFFFFu);
    EXPECT_FALSE(zelfuzz::DelimiterBeforeLastGroup(&orderedSet));
    EXPECT_EQ(zelfuzz::RoundTripTarget(ordered.data(), ordered.size()), zelfuzz::kOk);
}

// Every target survives every truncation of well-formed input: each cut
// falls inside a header, a value, an item or a delimiter somewhere. Under
// the sanitizer build an out-of-bounds read here fails the suite, not only
// the fuzzers.
TEST(FuzzRegressions, EveryTargetSurvivesEveryTruncation)
{
    const Bytes dataSet = ImplicitDataSet();
    const Bytes file = FileImage(dataSet);
    struct Case {
        const char* target;
        Bytes input;
    } cases[] = {
        {"fuzz_loadtags", Cat({{0}, dataSet})},
        {"fuzz_roundtrip", Cat({{0}, dataSet})},
        {"fuzz_frames", Cat({{1, 8, 0}, dataSet})},
        {"fuzz_rawwalk", dataSet},
        {"fuzz_loadobject", file},
        {"fuzz_metascan", Cat({{0x10, 0x00, 0x10, 0x00}, file})},
    };
    for (const Case& test : cases) {
        TargetFunction target = Targets().at(test.target);
        for (size_t length = 0; length <= test.input.size(); ++length) {
            Bytes prefix(test.input.begin(), test.input.begin() + static_cast<long>(length));
            ASSERT_EQ(RunOnCopy(target, prefix), zelfuzz::kOk) << test.target << " cut at " << length;
        }
    }

    // The whole input is read as intended, so the sweep above is not
    // passing on inputs the library refuses at once.
    CDicomItem parsed(u"Data");
    ASSERT_EQ(parsed.LoadTags(dataSet.data(), static_cast<int>(dataSet.size()), false, -1), dataSet.size());
    const CDicomItem* pixelData = parsed.GetTagItem(0x7FE0, 0x0010);
    ASSERT_NE(pixelData, nullptr);
    unsigned char frame[8] = {};
    EXPECT_EQ(pixelData->GetCompressedFrameData(1, frame, sizeof frame), 6u);
    EXPECT_EQ(frame[2], 1);
    CDicomItem object(u"Object");
    EXPECT_TRUE(object.LoadObject(file.data(), static_cast<int>(file.size()))) << object.GetLoadError();
}

// The raw walk callback reports a header or value outside the walked buffer.
TEST(FuzzRegressions, RawWalkCallbackChecksBounds)
{
    Bytes header = Tag(0x0010, 0x0010, 9);
    zelfuzz::RawWalk shortValue{header.data(), header.data() + header.size()};
    zelfuzz::RawWalkProc(reinterpret_cast<TAG_HEADER*>(header.data()), &shortValue);
    EXPECT_EQ(shortValue.finding, zelfuzz::kValueOutsideInput);

    zelfuzz::RawWalk before{header.data() + 1, header.data() + header.size()};
    zelfuzz::RawWalkProc(reinterpret_cast<TAG_HEADER*>(header.data()), &before);
    EXPECT_EQ(before.finding, zelfuzz::kValueOutsideInput);
}
