// Every input that once broke a fuzz target is replayed here through the
// same function the target calls (fuzz/targets.h), so a fixed fault stays
// fixed in the ordinary test run. Inputs live in inputs/<target name>/.
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include "support/dicomwriter.h"
#include "fuzz/dicomdir_targets.h"
#include "fuzz/network_targets.h"
#include "fuzz/sr_targets.h"
#include "fuzz/targets.h"
#include "network/pdu_fixtures.h"

using namespace testsupport;

namespace {
using TargetFunction = int (*)(const uint8_t*, size_t);

const std::map<std::string, TargetFunction> kTargets = {
    {"fuzz_loadtags", zelfuzz::LoadTagsTarget}, {"fuzz_loadobject", zelfuzz::LoadObjectTarget},
    {"fuzz_frames", zelfuzz::FramesTarget},     {"fuzz_roundtrip", zelfuzz::RoundTripTarget},
    {"fuzz_rawwalk", zelfuzz::RawWalkTarget},   {"fuzz_metascan", zelfuzz::MetaScanTarget},
    {"fuzz_text", zelfuzz::TextTarget},         {"fuzz_readinfo", zelfuzz::ReadInfoTarget},
    {"fuzz_lutoverlay", zelfuzz::LutOverlayTarget},
    {"fuzz_pdu", zelfuzz::PduTarget},           {"fuzz_associate", zelfuzz::AssociateAnswerTarget},
    {"fuzz_pduroundtrip", zelfuzz::PduRoundTripTarget},
    {"fuzz_command", zelfuzz::CommandSetTarget}, {"fuzz_trace", zelfuzz::TraceAnalyserTarget},
    {"fuzz_dicomdir", zelfuzz::DicomDirTarget},
    {"fuzz_srload", zelfuzz::SrLoadTarget},     {"fuzz_bigendian", zelfuzz::BigEndianTarget},
    {"fuzz_acceptor", zelfuzz::AcceptorTarget},
};

Bytes implicitText(uint16_t group, uint16_t element, const std::string& value)
{
    return ielem(group, element, text(value));
}
Bytes header(uint16_t group, uint16_t element, uint32_t length) { return ielem(group, element, {}, length); }

// An implicit VR data set with a defined-length sequence, an undefined-length
// sequence with an undefined-length item, and encapsulated pixel data of two
// frames behind an offset table.
Bytes ImplicitDataSet()
{
    Bytes referenced = cat({implicitText(0x0008, 0x1150, "1.2.3.4"), implicitText(0x0008, 0x1155, "1.2.3.4.5.")});
    Bytes code = cat({implicitText(0x0008, 0x0100, "T-D1100 "), implicitText(0x0008, 0x0102, "SRT ")});
    return cat({implicitText(0x0008, 0x0005, "ISO_IR 100"), ielem(0x0008, 0x1140, item(referenced)),
                header(0x0008, 0x2218, kUndefined), undefinedItem(code), sequenceEnd(),
                implicitText(0x0010, 0x0010, "Doe^John"), ielem(0x0028, 0x0100, us(8)),
                header(0x7FE0, 0x0010, kUndefined), item({0, 0, 0, 0, 12, 0, 0, 0}), item({0xFF, 0xD8, 0xFF, 0xD9}),
                item({0xFF, 0xD8, 1, 2, 0xFF, 0xD9}), sequenceEnd()});
}

// Runs a target on an exact-size heap copy of the bytes, so that a read past
// the end is caught under AddressSanitizer as it is in the fuzz target.
int RunOnCopy(TargetFunction target, const Bytes& bytes)
{
    std::unique_ptr<uint8_t[]> input(new uint8_t[bytes.size()]);
    std::copy(bytes.begin(), bytes.end(), input.get());
    return target(input.get(), bytes.size());
}

std::unique_ptr<CDicomItem> Parse(const Bytes& bytes, size_t skip = 0)
{
    auto node = std::make_unique<CDicomItem>(u"Data");
    EXPECT_EQ(node->LoadTags(bytes.data() + skip, static_cast<int>(bytes.size() - skip), true, -1), bytes.size() - skip);
    return node;
}
}

TEST(FuzzRegressions, ReplaysEverySavedInput)
{
    const std::string root = std::string(ZELDICOM_SOURCE_DIR) + "/tests/fuzz_regressions/inputs";
    int replayed = 0;
    std::error_code error;
    for (const auto& folder : std::filesystem::directory_iterator(root, error)) {
        std::string target = folder.path().filename().string();
        auto function = kTargets.find(target);
        ASSERT_NE(function, kTargets.end()) << "inputs for an unknown target: " << target;
        for (const auto& input : std::filesystem::directory_iterator(folder.path())) {
            EXPECT_EQ(RunOnCopy(function->second, ReadFile(input.path().string())), zelfuzz::kOk) << input.path();
            ++replayed;
        }
    }
    EXPECT_GT(replayed, 0) << "no regression inputs found below " << root;
}

// A group length element that a damaged stream gives the VR SQ holds items;
// re-encoding must not store a 4-byte length into it behind its items' back.
TEST(FuzzRegressions, GroupLengthReadAsSequenceReencodes)
{
    Bytes input = cat({{1}, elem(0x0008, 0x0000, "SQ", Bytes{}, kUndefined),
                       undefinedItem(elem(0x0008, 0x0100, "SH", "T-D1100 ")), sequenceEnd(),
                       elem(0x0008, 0x0016, "UI", "1.2.840.10008.5.1.4.1.1.7")});
    EXPECT_EQ(zelfuzz::RoundTripTarget(input.data(), input.size()), zelfuzz::kOk);
    auto dataSet = Parse(input, 1);
    ASSERT_NE(dataSet->RecalcTags(true, 0), 0xFFFFFFFFu);
    CDicomItem* groupLength = dataSet->GetTagItem(0x0008, 0x0000);
    ASSERT_NE(groupLength, nullptr);
    EXPECT_EQ(groupLength->GetDataSize(), -1) << "the sequence keeps its undefined length";
    EXPECT_EQ(groupLength->GetTagItemCount(0xFFFE, 0xE000), 1);
}

// Every target survives every truncation of well-formed input: each cut
// falls inside a header, a value, an item or a delimiter somewhere. Under
// the sanitizer build an out-of-bounds read here fails the suite, not only
// the fuzzers.
TEST(FuzzRegressions, EveryTargetSurvivesEveryTruncation)
{
    const Bytes dataSet = ImplicitDataSet();
    const Bytes file = fileImage("1.2.840.10008.1.2", dataSet);
    const std::pair<const char*, Bytes> cases[] = {
        {"fuzz_loadtags", cat({{0}, dataSet})}, {"fuzz_roundtrip", cat({{0}, dataSet})},
        {"fuzz_frames", cat({{1, 8, 0}, dataSet})}, {"fuzz_rawwalk", dataSet},
        {"fuzz_loadobject", file}, {"fuzz_metascan", cat({{0x10, 0x00, 0x10, 0x00}, file})},
        {"fuzz_readinfo", file}, {"fuzz_lutoverlay", cat({{0, 6, 0, 0, 0, 16, 0}, dataSet})},
        {"fuzz_acceptor", pdufix::callerAssociation()},
    };
    for (const auto& [name, input] : cases)
        for (size_t length = 0; length <= input.size(); ++length)
            ASSERT_EQ(RunOnCopy(kTargets.at(name), Bytes(input.begin(), input.begin() + long(length))), zelfuzz::kOk)
                << name << " cut at " << length;

    // The whole input is read as intended, so the sweep above is not
    // passing on inputs the library refuses at once.
    CDicomItem parsed(u"Data");
    ASSERT_EQ(parsed.LoadTags(dataSet.data(), static_cast<int>(dataSet.size()), false, -1), dataSet.size());
    const CDicomItem* pixelData = parsed.GetTagItem(0x7FE0, 0x0010);
    ASSERT_NE(pixelData, nullptr);
    unsigned char frame[8] = {};
    EXPECT_EQ(pixelData->GetCompressedFrameData(1, frame, sizeof frame), 6u);
    EXPECT_EQ(frame[2], 1);
    EXPECT_NE(parsed.GetSequenceItem(0x0008, 0x2218), nullptr);
    CDicomItem object(u"Object");
    EXPECT_TRUE(object.LoadObject(file.data(), static_cast<int>(file.size()))) << object.GetLastError().GetText();
}
