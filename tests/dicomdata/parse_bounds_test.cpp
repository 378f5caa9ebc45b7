// Hostile and damaged input: lengths that lie, delimiters that never come,
// nesting without end, and files cut or flipped at every point. Buffers are
// exactly sized heap copies, so a read past the end shows under ASan.
#include <gtest/gtest.h>

#include <memory>

#include "dicomdata/dicomitem.h"
#include "platform/dynbuffer.h"
#include "support/dicomwriter.h"

using namespace testsupport;

namespace {
constexpr uint32_t kFailed = 0xFFFFFFFFu;

// Parses a private heap copy of exactly the given bytes.
uint32_t LoadCopy(const Bytes& bytes, bool explicitVR, std::unique_ptr<CDicomItem>* keep = nullptr)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[bytes.size() ? bytes.size() : 1]);
    std::copy(bytes.begin(), bytes.end(), copy.get());
    auto node = std::make_unique<CDicomItem>(u"Data");
    uint32_t result = node->LoadTags(copy.get(), static_cast<int>(bytes.size()), explicitVR, -1);
    if (keep) {
        // Values point into the copy: drop them before the copy goes.
        *keep = std::move(node);
    }
    return result;
}

bool LoadsAsFile(const unsigned char* bytes, size_t size, std::string* error = nullptr)
{
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size ? size : 1]);
    std::copy(bytes, bytes + size, copy.get());
    CDicomItem root(u"root");
    bool loaded = root.LoadObject(copy.get(), static_cast<int>(size));
    EXPECT_EQ(loaded, root.GetLastError().GetText().empty());
    if (error)
        *error = root.GetLastError().GetText();
    return loaded;
}

// Nested undefined-length sequences, each with one undefined-length item.
Bytes Nested(int depth, bool explicitVR)
{
    Bytes inner = explicitVR ? elem(0x0008, 0x0100, "SH", "LEAF") : ielem(0x0008, 0x0100, text("LEAF"));
    for (int i = 0; i < depth; ++i) {
        Bytes head = explicitVR ? elem(0x0040, 0xA730, "SQ", Bytes{}, kUndefined) : ielem(0x0040, 0xA730, {}, kUndefined);
        inner = cat({head, undefinedItem(inner), sequenceEnd()});
    }
    return inner;
}
}

TEST(ParseBounds, LyingLengthsFailWithoutReadingPastTheEnd)
{
    Bytes good = elem(0x0008, 0x0060, "CS", "CT");
    // A value longer than the buffer, in each header form.
    EXPECT_EQ(LoadCopy(cat({good, elem(0x0010, 0x0010, "PN", text("ab"), 0x7FF0)}), true), kFailed);
    EXPECT_EQ(LoadCopy(cat({good, elem(0x0009, 0x1000, "OB", Bytes(4, 1), 0x7FFFFFF0)}), true), kFailed);
    EXPECT_EQ(LoadCopy(cat({good, elem(0x0009, 0x1000, "OB", Bytes(4, 1), 0xFFFFFFF0)}), true), kFailed);
    EXPECT_EQ(LoadCopy(ielem(0x0010, 0x0010, text("ab"), 0x80000000u), false), kFailed);
    // A sequence longer than what is left, and an item longer than the data set.
    EXPECT_EQ(LoadCopy(elem(0x0008, 0x1140, "SQ", item(good), 500), true), kFailed);
    EXPECT_EQ(LoadCopy(ielem(0xFFFE, 0xE000, good, 64), true), kFailed);

    // The failure keeps what was stored, the lying element included.
    std::unique_ptr<CDicomItem> kept;
    EXPECT_EQ(LoadCopy(cat({good, elem(0x0010, 0x0010, "PN", text("ab"), 0x40)}), true, &kept), kFailed);
    ASSERT_NE(kept->GetTagItem(0x0010, 0x0010), nullptr);
    EXPECT_EQ(kept->GetTagItem(0x0010, 0x0010)->GetData(), nullptr);

    // An item that claims more than its defined-length sequence holds (a
    // directory record shortened without fixing its length) is read up to
    // the end of the sequence, and no further.
    Bytes record = cat({elem(0x0004, 0x1430, "CS", "IMAGE "), elem(0x0020, 0x0013, "IS", "7 ")});
    Bytes overlong = ielem(0xFFFE, 0xE000, record, static_cast<uint32_t>(record.size() + 24));
    Bytes stream = cat({elem(0x0004, 0x1220, "SQ", overlong), elem(0x0004, 0x1212, "US", us(0))});
    ASSERT_EQ(LoadCopy(stream, true, &kept), stream.size());
    const CDicomItem* items = kept->GetTagItem(0x0004, 0x1220);
    ASSERT_NE(items, nullptr);
    const auto* first = static_cast<const CDicomItem*>(items->GetChildItem(std::u16string(u"gFFFE"))->GetChildItem(0));
    EXPECT_EQ(first->GetDataSize(), static_cast<int>(record.size()));
    EXPECT_NE(first->GetTagItem(0x0020, 0x0013), nullptr);
    EXPECT_NE(kept->GetTagItem(0x0004, 0x1212), nullptr);
    // The same overlong item in an undefined-length sequence has no bound of
    // its own and fails.
    EXPECT_EQ(LoadCopy(cat({elem(0x0004, 0x1220, "SQ", Bytes{}, kUndefined), overlong, sequenceEnd()}), true),
              kFailed);
}

TEST(ParseBounds, MissingDelimitersAndShortHeadersFail)
{
    Bytes leaf = elem(0x0008, 0x0100, "SH", "LEAF");
    // Undefined-length sequence, item and pixel data that run off the end.
    EXPECT_EQ(LoadCopy(cat({elem(0x0008, 0x1032, "SQ", Bytes{}, kUndefined), undefinedItem(leaf)}), true), kFailed);
    EXPECT_EQ(LoadCopy(cat({elem(0x0008, 0x1032, "SQ", Bytes{}, kUndefined), ielem(0xFFFE, 0xE000, {}, kUndefined),
                            leaf, sequenceEnd()}),
                       true),
              kFailed);
    EXPECT_EQ(LoadCopy(cat({elem(0x7FE0, 0x0010, "OB", Bytes{}, kUndefined), item({}), item(Bytes(6, 9))}), true),
              kFailed);
    // A nested run may not borrow the enclosing run's delimiter: the item's
    // delimiter lies outside the defined-length sequence that holds the item.
    Bytes bounded = cat({elem(0x0008, 0x1140, "SQ", cat({ielem(0xFFFE, 0xE000, {}, kUndefined), leaf})),
                         ielem(0xFFFE, 0xE00D, {}), sequenceEnd()});
    EXPECT_EQ(LoadCopy(bounded, true), kFailed);

    // A long-form header needs 12 bytes: 8 to 11 left is a failure, not a read.
    Bytes longHeader = elem(0x0009, 0x1000, "OB", Bytes{});
    for (size_t keep = 8; keep < 12; ++keep) {
        Bytes cut = cat({leaf, Bytes(longHeader.begin(), longHeader.begin() + static_cast<long>(keep))});
        EXPECT_EQ(LoadCopy(cut, true), kFailed) << keep;
    }
    // Undefined length on an explicit VR that holds no items fails; an
    // explicit UN of undefined length holds implicit VR items.
    EXPECT_EQ(LoadCopy(elem(0x0010, 0x4000, "UT", Bytes(8, 'a'), kUndefined), true), kFailed);
    EXPECT_EQ(LoadCopy(elem(0x0009, 0x1000, "OB", Bytes(8, 'a'), kUndefined), true), kFailed);
    Bytes un = cat({elem(0x0009, 0x1000, "UN", Bytes{}, kUndefined),
                    undefinedItem(ielem(0x0008, 0x0100, text("LEAF"))), sequenceEnd()});
    std::unique_ptr<CDicomItem> kept;
    ASSERT_EQ(LoadCopy(un, true, &kept), un.size());
    const CDicomItem* sq = kept->GetTagItem(0x0009, 0x1000);
    EXPECT_EQ(sq->GetVR(), "SQ");
    EXPECT_NE(sq->FindTag(0x0008, 0x0100), nullptr);
}

TEST(ParseBounds, DeepNestingIsBoundedWithoutExhaustingTheStack)
{
    for (bool explicitVR : {true, false}) {
        Bytes fine = Nested(40, explicitVR);
        std::unique_ptr<CDicomItem> kept;
        ASSERT_EQ(LoadCopy(fine, explicitVR, &kept), fine.size());
        EXPECT_NE(kept->FindTag(0x0008, 0x0100), nullptr);
        // Far deeper than any real data set: refused, not recursed into.
        EXPECT_EQ(LoadCopy(Nested(600, explicitVR), explicitVR), kFailed);
    }
}

TEST(ParseBounds, TruncatedAndFlippedFilesNeverCrash)
{
    std::vector<std::string> files = {std::string(ZELDICOM_SOURCE_DIR) + "/samples/ct_small.dcm"};
    PYDICOM_DATA_OR_FAIL(corpus);
    for (const char* name : {"CT_small.dcm", "rtplan.dcm", "JPEG2000.dcm", "MR_small_implicit.dcm",
                             "nested_priv_SQ.dcm", "dicomdirtests/DICOMDIR", "rtdose_rle_1frame.dcm",
                             "MR_small_expb.dcm", "dicomdirtests/DICOMDIR-bigEnd", "ExplVR_BigEndNoMeta.dcm"})
        files.push_back(corpus + "/test_files/" + name);
    for (const std::string& path : files) {
        Bytes whole = ReadFile(path);
        ASSERT_GT(whole.size(), 132u) << path;
        ASSERT_TRUE(LoadsAsFile(whole.data(), whole.size())) << path;
        // About 1500 cut points per file; every point for small files.
        size_t step = whole.size() / 1500 + 1;
        int loaded = 0;
        for (size_t cut = 0; cut < whole.size(); cut += step)
            loaded += LoadsAsFile(whole.data(), cut) ? 1 : 0;
        // Cut inside the last element's value, the data set is incomplete.
        EXPECT_FALSE(LoadsAsFile(whole.data(), whole.size() - 1)) << path;
        EXPECT_LT(loaded, 1500) << path;

        // Every byte (or every step-th) replaced by values that change lengths,
        // VRs and tags.
        Bytes flipped = whole;
        for (size_t i = 132; i < whole.size(); i += step) {
            for (unsigned char v : {0x00, 0xFF, 0x80}) {
                flipped[i] = v;
                LoadsAsFile(flipped.data(), flipped.size());
            }
            flipped[i] = whole[i];
        }
    }
}

// A big endian file cut anywhere fails as its little endian rewrite (the same
// layout, written here by the library) fails when cut at the same byte, and
// a cut in the data set names the same element and offset.
TEST(ParseBounds, CutBigEndianFilesFailAsLittleEndianOnes)
{
    PYDICOM_DATA_OR_FAIL(corpus);
    for (const char* name : {"MR_small_expb.dcm", "rtdose_expb.dcm", "dicomdirtests/DICOMDIR-bigEnd"}) {
        SCOPED_TRACE(name);
        Bytes big = ReadFile(corpus + "/test_files/" + name);
        CDicomItem root(u"root");
        ASSERT_TRUE(root.LoadObject(big.data(), static_cast<int>(big.size()))) << root.GetLastError().GetText();
        ASSERT_TRUE(root.IsSourceBigEndian());
        CDynBuffer written;
        ASSERT_TRUE(root.SaveObject(CDynBuffer::WriteProc, &written));
        Bytes little(static_cast<unsigned char*>(written), static_cast<unsigned char*>(written) + written.m_nSize);
        ASSERT_EQ(little.size(), big.size());
        int failures = 0;
        for (size_t cut = 133; cut < big.size(); cut += big.size() / 700 + 1) {
            std::string bigError, littleError;
            bool bigLoads = LoadsAsFile(big.data(), cut, &bigError);
            EXPECT_EQ(LoadsAsFile(little.data(), cut, &littleError), bigLoads) << "cut at " << cut;
            // (A cut inside the meta information leaves no data set to compare.)
            if (static_cast<int64_t>(cut) > root.GetDataSetOffset()) {
                EXPECT_EQ(bigError, littleError) << "cut at " << cut;
            }
            failures += bigLoads ? 0 : 1;
        }
        EXPECT_GT(failures, 600);
    }
}
