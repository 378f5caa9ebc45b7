#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <list>
#include <string>
#include <tuple>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "support/files.h"
#include "platform/profile.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

using namespace testsupport;

namespace {
// Records each writer call; fails every call after the first failFrom.
struct Recorder {
    std::vector<Bytes> calls;
    size_t failFrom = SIZE_MAX;
    size_t attempts = 0;
    static uint32_t Proc(const void* bytes, uint32_t count, void* context)
    {
        auto* self = static_cast<Recorder*>(context);
        if (++self->attempts > self->failFrom)
            return 0xFFFFFFFFu;
        self->calls.emplace_back(static_cast<const unsigned char*>(bytes),
                                 static_cast<const unsigned char*>(bytes) + count);
        return count;
    }
    Bytes Join() const
    {
        Bytes out;
        for (const Bytes& call : calls)
            out.insert(out.end(), call.begin(), call.end());
        return out;
    }
};

Bytes Save(CDicomItem& dataSet, bool explicitVR)
{
    Recorder recorder;
    EXPECT_NE(dataSet.RecalcTags(explicitVR, 0), 0xFFFFFFFFu);
    EXPECT_NE(dataSet.SaveTags(explicitVR, Recorder::Proc, &recorder), 0xFFFFFFFFu);
    return recorder.Join();
}

// Parses a copy of the stream that outlives the tree (parsed values point
// into their buffer) and returns it.
const Bytes& Parsed(CDicomItem& into, const Bytes& stream, bool explicitVR)
{
    static std::list<Bytes> kept;
    const Bytes& buffer = kept.emplace_back(stream);
    EXPECT_EQ(into.LoadTags(buffer.data(), static_cast<int>(buffer.size()), explicitVR, -1), buffer.size());
    return buffer;
}

uint32_t Uint32Of(const CDicomItem* element)
{
    uint32_t value = 0;
    if (element && element->GetDataSize() == 4)
        std::memcpy(&value, element->GetData(), 4);
    return value;
}

uint32_t OffsetOf(const CXmlItem* node)
{
    long value = -1;
    node->GetItemValue(u"Offset", value);
    return static_cast<uint32_t>(value);
}
}

TEST(EncodeGroupLength, CountsTheElementsBehindItInEitherEncoding)
{
    const Bytes uid26 = text(std::string("1.2.840.10008.5.1.4.1.1.2") + '\0');
    const Bytes uid44 = text(std::string("1.2.826.0.1.3680043.2.1143.1234567890123455") + '\0');
    CDicomItem data(u"Data");
    Parsed(data, cat({elem(8, 0, "UL", Bytes{0, 0, 0, 0}), elem(8, 0x16, "UI", uid26), elem(8, 0x18, "UI", uid44)}),
           true);
    EXPECT_EQ(data.RecalcTags(true, 1000), 98u);
    EXPECT_EQ(Uint32Of(data.GetTagItem(8, 0)), 86u);
    EXPECT_EQ(OffsetOf(data.GetTagItem(8, 0x18)), 1046u);
    EXPECT_EQ(Save(data, false), cat({ielem(8, 0, Bytes{86, 0, 0, 0}), ielem(8, 0x16, uid26), ielem(8, 0x18, uid44)}));
    // An OB value: 12 header bytes in explicit VR, 8 in implicit VR.
    data.AddTag(8, 0x0001, "\1\2", 2, u"OB");
    EXPECT_EQ(data.RecalcTags(true, 0), 98u + 14);
    EXPECT_EQ(data.RecalcTags(false, 0), 98u + 10);
    EXPECT_EQ(Uint32Of(data.GetTagItem(8, 0)), 86u + 10);
}

TEST(EncodeHeaders, EachFormHasItsBytesAndUnknownVRsBecomeUN)
{
    auto header = [](CDicomItem* element, int group, int number, bool explicitVR) {
        Recorder recorder;
        element->SaveTag(group, number, explicitVR, Recorder::Proc, &recorder);
        return recorder.calls.at(0);
    };
    CDicomItem data(u"Data");
    CDicomItem* name = data.AddTag(0x0010, 0x0010, "DOE^JOHN", 8, u"PN");
    EXPECT_EQ(header(name, 0x0010, 0x0010, true), (Bytes{0x10, 0, 0x10, 0, 'P', 'N', 8, 0}));
    EXPECT_EQ(header(name, 0x0010, 0x0010, false), (Bytes{0x10, 0, 0x10, 0, 8, 0, 0, 0}));
    CDicomItem* pixels = data.AddTag(0x7FE0, 0x0010, "\1\2\3\4", 4, u"OW");
    EXPECT_EQ(header(pixels, 0x7FE0, 0x0010, true), (Bytes{0xE0, 0x7F, 0x10, 0, 'O', 'W', 0, 0, 4, 0, 0, 0}));
    CDicomItem* sequence = data.AddSequence(0x0008, 0x1115);
    EXPECT_EQ(header(sequence->InsertSequenceItem(), 0xFFFE, 0xE000, true),
              (Bytes{0xFE, 0xFF, 0x00, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_EQ(header(sequence->GetTagItem(0xFFFE, 0xE0DD), 0xFFFE, 0xE0DD, true),
              (Bytes{0xFE, 0xFF, 0xDD, 0xE0, 0, 0, 0, 0}));
    // Later long-form VRs keep their 12-byte header; a VR that is not two
    // letters leaves the field empty.
    EXPECT_EQ(header(data.AddTag(8, 0x0119, "AB", 2, u"UC"), 8, 0x0119, true),
              (Bytes{8, 0, 0x19, 1, 'U', 'C', 0, 0, 2, 0, 0, 0}));
    EXPECT_EQ(header(data.AddTag(9, 0x0010, "XY", 2, u"ABC"), 9, 0x0010, true), (Bytes{9, 0, 0x10, 0, 0, 0, 2, 0}));

    // A private element read from implicit VR has no VR: UN, long form.
    CDicomItem read(u"Data");
    Bytes implicitStream = Parsed(read, cat({ielem(9, 0x1001, Bytes{1, 2, 3, 4}), ielem(0x10, 0x10, text("X^Y "))}), false);
    EXPECT_EQ(Save(read, true), cat({elem(9, 0x1001, "UN", Bytes{1, 2, 3, 4}), elem(0x10, 0x10, "PN", "X^Y ")}));
    EXPECT_EQ(Save(read, false), implicitStream);
}

TEST(EncodeSequences, DefinedLengthsFollowTheContentUndefinedOnesStay)
{
    auto uid = [](const std::string& value) { return elem(8, 0x1155, "UI", value); };
    Bytes fragments = cat({item({}), item(Bytes{0xFF, 0xD8, 0xFF, 0xD9}), sequenceEnd()});
    CDicomItem data(u"Data");
    Bytes stream = Parsed(data,
                          cat({elem(8, 0x1115, "SQ", cat({undefinedItem(uid("1.2.3.4")), sequenceEnd()}), kUndefined),
                               elem(8, 0x1140, "SQ", item(cat({uid("1.2.3.4"), elem(8, 0x1160, "IS", "1 ")}))),
                               elem(0x7FE0, 0x0010, "OB", fragments, kUndefined)}),
                          true);
    EXPECT_EQ(Save(data, true), stream);

    data.GetSequenceItem(8, 0x1140)->ReplaceTag(8, 0x1155, u"1.2.3.4.5.6.7.8", u"");
    data.GetSequenceItem(8, 0x1115)->ReplaceTag(8, 0x1155, u"1.2.3.4.5.6.7.8", u"");
    Bytes grown = elem(8, 0x1155, "UI", text(std::string("1.2.3.4.5.6.7.8") + '\0'));
    EXPECT_EQ(Save(data, true),
              cat({elem(8, 0x1115, "SQ", cat({undefinedItem(grown), sequenceEnd()}), kUndefined),
                   elem(8, 0x1140, "SQ", item(cat({grown, elem(8, 0x1160, "IS", "1 ")}))),
                   elem(0x7FE0, 0x0010, "OB", fragments, kUndefined)}));
    EXPECT_EQ(data.GetTagItem(8, 0x1115)->GetDataSize(), -1);
    EXPECT_EQ(data.GetTagItem(0x7FE0, 0x0010)->GetDataSize(), -1);
}

TEST(EncodeSequences, APrivateSequenceBuiltByHandIsWrittenAsOne)
{
    // The dictionary does not know (0009,1010): the sequence is SQ by being built as one.
    CDicomItem data(u"Data");
    data.AddTag(9, 0x0010, u"ACME", u"LO");
    CDicomItem* sequence = data.AddSequence(9, 0x1010);
    ASSERT_NE(sequence, nullptr);
    sequence->InsertSequenceItem()->AddTag(0x10, 0x10, u"DOE^JOHN", u"");
    Bytes content = cat({undefinedItem(elem(0x10, 0x10, "PN", "DOE^JOHN")), sequenceEnd()});
    EXPECT_EQ(Save(data, true), cat({elem(9, 0x0010, "LO", "ACME"), elem(9, 0x1010, "SQ", content, kUndefined)}));
    EXPECT_EQ(Save(data, false),
              cat({ielem(9, 0x0010, text("ACME")),
                   ielem(9, 0x1010, cat({undefinedItem(ielem(0x10, 0x10, text("DOE^JOHN"))), sequenceEnd()}),
                         kUndefined)}));
}

TEST(EncodeValues, LargeValuesGoOutInChunks)
{
    HostProfile::SetProfileInt("Receive", "FileCopyBufferSize", 1);
    const uint32_t chunk = 1048576;
    std::vector<unsigned char> big(3 * chunk + 1, 0x5A);
    CDicomItem data(u"Data");
    CDicomItem* pixels = data.AddTag(0x7FE0, 0x0010, nullptr, 0, u"OW");
    auto callSizes = [&](int size) {
        pixels->SetData(big.data(), size, false);
        Recorder recorder;
        EXPECT_EQ(pixels->SaveTag(0x7FE0, 0x0010, true, Recorder::Proc, &recorder), 12u + size);
        std::vector<size_t> sizes;
        for (const Bytes& call : recorder.calls)
            sizes.push_back(call.size());
        return sizes;
    };
    EXPECT_EQ(callSizes(3 * chunk), (std::vector<size_t>{12, chunk, chunk, chunk, 0}));
    EXPECT_EQ(callSizes(chunk), (std::vector<size_t>{12, chunk, 0}));
    EXPECT_EQ(callSizes(chunk - 2), (std::vector<size_t>{12, chunk - 2}));
    EXPECT_EQ(callSizes(chunk + 2), (std::vector<size_t>{12, chunk, 2}));
    EXPECT_EQ(pixels->GetChildItemCount(u"WriteSize"), 4);
    std::u16string first;
    pixels->GetItemValue(u"WriteSize", first);
    EXPECT_EQ(first, u"3145728");
    pixels->SetData(nullptr, 0, false);
    HostProfile::Clear();
}

TEST(EncodeValues, Group7FE1IsCountedButNeverWritten)
{
    CDicomItem withPrivate(u"Data");
    Parsed(withPrivate, cat({elem(8, 0x60, "CS", "CT"), elem(0x7FE1, 0x10, "LO", "ACME"), elem(0xFFFC, 0xFFFC, "OB", "")}),
           true);
    EXPECT_EQ(withPrivate.RecalcTags(true, 0), 10u + 12 + 12);
    EXPECT_EQ(OffsetOf(withPrivate.GetTagItem(0xFFFC, 0xFFFC)), 22u);
    EXPECT_EQ(Save(withPrivate, true), cat({elem(8, 0x60, "CS", "CT"), elem(0xFFFC, 0xFFFC, "OB", "")}));
}

TEST(EncodeLongValues, PastTheShortLengthFieldTheyGoOutAsUNAndReadBackWithTheirVR)
{
    // 65,534 bytes still fit a short explicit header; 65,536 do not.
    Bytes fits(65534, '1'), over(65536, '2');
    CDicomItem data(u"Data");
    data.AddTag(0x0010, 0x0000, static_cast<uint32_t>(0));
    data.AddTag(0x0010, 0x1000, over.data(), static_cast<int>(over.size()), u"LO");
    data.AddTag(0x0008, 0x1030, fits.data(), static_cast<int>(fits.size()), u"LO");
    CDicomItem* contour = data.AddSequence(0x3006, 0x0040)->InsertSequenceItem();
    contour->AddTag(0x3006, 0x0050, over.data(), static_cast<int>(over.size()), u"DS");

    uint32_t recalculated = data.RecalcTags(true, 0);
    Bytes out = Save(data, true);
    EXPECT_EQ(recalculated, out.size());
    Bytes groups = cat({elem(0x0008, 0x1030, "LO", fits), elem(0x0010, 0x0000, "UL", Bytes{12, 0, 1, 0}),
                        elem(0x0010, 0x1000, "UN", over)});
    ASSERT_GT(out.size(), groups.size());
    EXPECT_EQ(Bytes(out.begin(), out.begin() + static_cast<long>(groups.size())), groups);
    const Bytes contourData = elem(0x3006, 0x0050, "UN", over);
    EXPECT_NE(std::search(out.begin(), out.end(), contourData.begin(), contourData.end()), out.end());

    // Read back, the standard elements have their own VR again, and the
    // bytes come out the same; implicit VR needs no UN.
    CDicomItem back(u"Data");
    Parsed(back, out, true);
    EXPECT_EQ(back.GetTagItem(0x0010, 0x1000)->GetVR(), "LO");
    const CDicomItem* contourBack = back.GetTagItem(0x3006, 0x0040)->GetSequenceChildItemOptional(0x3006, 0x0050, 0);
    ASSERT_NE(contourBack, nullptr);
    EXPECT_EQ(contourBack->GetVR(), "DS");
    EXPECT_EQ(Save(back, true), out);
    EXPECT_EQ(Save(back, false).size(), out.size() - 4 * 3);  // three 12-byte headers become 8-byte ones
}

TEST(EncodeRefusals, AnUnencodableElementIsNamedAndFailingWritersStopTheSave)
{
    CAuditManager::GetUniqueInstance().SetQuiet(true);
    ScratchFolder folder("encode");
    CDicomItem object(u"Object");
    object.AddItem(CDicomItem::CreateMetaHeader(u"1.2.840.10008.5.1.4.1.1.7", u"1.2.3", u"1.2.840.10008.1.2.1"));
    auto* explicitData = new CDicomItem(u"Data");
    object.AddItem(explicitData);
    // Only sequences, items and encapsulated pixel data may be of undefined
    // length in explicit VR.
    CDicomItem* reference = explicitData->AddSequence(0x0008, 0x1140)->InsertSequenceItem();
    reference->AddTag(0x0008, 0x1150, "1.2", 4, u"UI")->SetUndefinedSize();
    const std::string out = folder.path + "/out.dcm";
    EXPECT_FALSE(object.SaveToFile(Utf8ToUtf16(out)));
    EXPECT_EQ(object.GetLastError().GetText(),
              "cannot encode (0008,1150) ReferencedSOPClassUID, VR UI, undefined length: an undefined length needs a "
              "VR with a 32-bit length field");
    EXPECT_NE(CAuditManager::GetUniqueInstance().GetLastError().find("(0008,1150)"), std::string::npos);
    EXPECT_NE(access(out.c_str(), F_OK), 0);

    CDicomItem root(u"Object");
    auto* data = new CDicomItem(u"Data");
    root.AddItem(data);
    data->AddTag(8, 0x0060, "CT", 2, u"CS");

    // No "Header": implicit VR without preamble; a failing writer ends it.
    data->AddTag(0x10, 0x10, "DOE^JOHN", 8, u"PN");
    Recorder fine, failing;
    failing.failFrom = 2;
    EXPECT_TRUE(root.SaveObject(Recorder::Proc, &fine));
    EXPECT_EQ(fine.Join(), cat({ielem(8, 0x0060, text("CT")), ielem(0x10, 0x10, text("DOE^JOHN"))}));
    EXPECT_FALSE(root.SaveObject(Recorder::Proc, &failing));
    EXPECT_EQ(failing.attempts, 3u);
    EXPECT_EQ(root.GetLastError().GetText(), "the output did not take the bytes");
    CDicomItem noData(u"Object");
    EXPECT_FALSE(noData.SaveObject(Recorder::Proc, &fine));
    EXPECT_EQ(noData.GetLastError().GetText(), "the object has no data set");
    CAuditManager::GetUniqueInstance().SetQuiet(false);
}

TEST(EncodeDicomDir, OffsetsLinkPatientStudySeriesAndImagesSkippingOtherRecords)
{
    CDicomItem root(u"Object");
    auto* data = new CDicomItem(u"Data");
    root.AddItem(data);
    const unsigned char zero[4] = {0, 0, 0, 0};
    data->AddTag(4, 0x1200, zero, 4, u"UL");
    data->AddTag(4, 0x1202, zero, 4, u"UL");
    CDicomItem* records = data->InsertSequence(4, 0x1220);
    std::vector<CDicomItem*> r;
    for (const char16_t* type :
         {u"PATIENT ", u"STUDY ", u"SERIES", u"IMAGE ", u"PRIVATE ", u"IMAGE ", u"SERIES", u"IMAGE "}) {
        r.push_back(records->InsertSequenceItem());
        r.back()->AddTag(4, 0x1400, zero, 4, u"UL");
        r.back()->AddTag(4, 0x1420, zero, 4, u"UL");
        r.back()->AddTag(4, 0x1430, type, u"CS");
    }
    Recorder recorder;
    ASSERT_TRUE(root.SaveObject(Recorder::Proc, &recorder));
    auto link = [](CDicomItem* node, int element) { return Uint32Of(node->GetTagItem(4, element)); };
    // (record, link element, record linked to or -1 for none); 1400 is the
    // next record, 1420 the first lower-level one. A new series forgets the
    // images of the one before.
    const std::tuple<CDicomItem*, int, int> links[] = {
        {data, 0x1200, 0}, {data, 0x1202, 0}, {r[0], 0x1420, 1}, {r[1], 0x1420, 2}, {r[2], 0x1420, 3},
        {r[3], 0x1400, 5}, {r[2], 0x1400, 6}, {r[6], 0x1420, 7}, {r[4], 0x1400, -1}, {r[4], 0x1420, -1},
        {r[0], 0x1400, -1}, {r[5], 0x1400, -1}};
    for (const auto& [node, element, target] : links)
        EXPECT_EQ(link(node, element), target < 0 ? 0u : OffsetOf(r[target])) << element << " to " << target;
    // Every offset names an item header in the written bytes.
    Bytes out = recorder.Join();
    uint32_t second = link(r[3], 0x1400);
    ASSERT_LT(second + 4, out.size());
    EXPECT_EQ(Bytes(out.begin() + second, out.begin() + second + 4), (Bytes{0xFE, 0xFF, 0x00, 0xE0}));
}
