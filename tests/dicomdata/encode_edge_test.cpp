#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "dicomdata/datawriter.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/dynbuffer.h"
#include "platform/profile.h"
#include "platform/system.h"

using namespace parsefix;

namespace {
// Records every call a save makes, optionally failing from a given call on.
struct Recorder {
    std::vector<Bytes> calls;
    int failFrom = -1;
    static uint32_t Proc(const void* bytes, uint32_t count, void* context)
    {
        auto* self = static_cast<Recorder*>(context);
        if (self->failFrom >= 0 && static_cast<int>(self->calls.size()) >= self->failFrom)
            return 0xFFFFFFFFu;
        const auto* p = static_cast<const unsigned char*>(bytes);
        self->calls.emplace_back(p, p + count);
        return count;
    }
    Bytes All() const
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
    return recorder.All();
}

uint32_t Uint32At(const CDicomItem* element)
{
    uint32_t value = 0;
    if (element && element->GetDataSize() == 4)
        std::memcpy(&value, element->GetData(), 4);
    return value;
}

long OffsetOf(const CXmlItem* node)
{
    long value = -1;
    node->GetItemValue(u"Offset", value);
    return value;
}

const Bytes kUid26 = text(std::string("1.2.840.10008.5.1.4.1.1.2") + '\0');
const Bytes kUid44 = text(std::string("1.2.826.0.1.3680043.2.1143.1234567890123455") + '\0');

// (0008,0000), a 26-byte and a 44-byte UI: the example group of PS3.5 7.2.
void AddIdentityGroup(CDicomItem& data)
{
    const unsigned char zero[4] = {0, 0, 0, 0};
    data.AddTag(0x0008, 0x0000, zero, 4, u"UL");
    data.AddTag(0x0008, 0x0016, kUid26.data(), 26, u"UI");
    data.AddTag(0x0008, 0x0018, kUid44.data(), 44, u"UI");
}
}

TEST(EncodeGroupLength, CountsEveryElementBehindTheLengthInBothEncodings)
{
    ASSERT_EQ(kUid26.size(), 26u);
    ASSERT_EQ(kUid44.size(), 44u);
    CDicomItem data(u"Data");
    AddIdentityGroup(data);
    CDicomItem* group = data.GetGroupItem(0x0008);

    EXPECT_EQ(group->RecalcGroup(true, 0), 98u);
    EXPECT_EQ(Uint32At(data.GetTagItem(0x0008, 0x0000)), 86u);
    EXPECT_EQ(group->RecalcGroup(false, 0), 98u);
    EXPECT_EQ(Uint32At(data.GetTagItem(0x0008, 0x0000)), 86u);

    // An OB value has the long explicit header and the common implicit one.
    const unsigned char four[4] = {1, 2, 3, 4};
    data.AddTag(0x0008, 0x0001, four, 4, u"OB");
    EXPECT_EQ(group->RecalcGroup(true, 0), 98u + 16);
    EXPECT_EQ(Uint32At(data.GetTagItem(0x0008, 0x0000)), 86u + 16);
    EXPECT_EQ(group->RecalcGroup(false, 0), 98u + 12);
    EXPECT_EQ(Uint32At(data.GetTagItem(0x0008, 0x0000)), 86u + 12);
    data.RemoveTag(0x0008, 0x0001);

    // Offsets count from the start given by the caller, header by header.
    EXPECT_EQ(data.RecalcTags(true, 1000), 98u);
    EXPECT_EQ(OffsetOf(data.GetTagItem(0x0008, 0x0000)), 1000);
    EXPECT_EQ(OffsetOf(data.GetTagItem(0x0008, 0x0016)), 1012);
    EXPECT_EQ(OffsetOf(data.GetTagItem(0x0008, 0x0018)), 1046);

    // The written bytes are the stream a hand-made encoder gives.
    Bytes expected = cat({elem(0x0008, 0x0000, "UL", Bytes{86, 0, 0, 0}), elem(0x0008, 0x0016, "UI", kUid26),
                          elem(0x0008, 0x0018, "UI", kUid44)});
    EXPECT_EQ(Save(data, true), expected);
    Bytes expectedImplicit = cat({ielem(0x0008, 0x0000, Bytes{86, 0, 0, 0}), ielem(0x0008, 0x0016, kUid26),
                                  ielem(0x0008, 0x0018, kUid44)});
    EXPECT_EQ(Save(data, false), expectedImplicit);

    // A damaged group length of another size is rewritten as 4 bytes first,
    // so the offsets behind it still hold.
    CDicomItem damaged(u"Data");
    AddIdentityGroup(damaged);
    damaged.GetTagItem(0x0008, 0x0000)->CopyData("\1\2\3\4\5\6", 6);
    EXPECT_EQ(damaged.RecalcTags(true, 0), 98u);
    EXPECT_EQ(OffsetOf(damaged.GetTagItem(0x0008, 0x0016)), 12);
    EXPECT_EQ(Save(damaged, true), expected);
}

TEST(EncodeHeaders, EachHeaderFormHasItsBytes)
{
    auto headerOf = [](CDicomItem* element, int group, int number, bool explicitVR) {
        Recorder recorder;
        element->SaveTag(group, number, explicitVR, Recorder::Proc, &recorder);
        return recorder.calls.empty() ? Bytes() : recorder.calls.front();
    };
    CDicomItem data(u"Data");
    CDicomItem* name = data.AddTag(0x0010, 0x0010, "DOE^JOHN", 8, u"PN");
    EXPECT_EQ(headerOf(name, 0x0010, 0x0010, true), (Bytes{0x10, 0x00, 0x10, 0x00, 0x50, 0x4E, 0x08, 0x00}));
    EXPECT_EQ(headerOf(name, 0x0010, 0x0010, false), (Bytes{0x10, 0x00, 0x10, 0x00, 0x08, 0x00, 0x00, 0x00}));

    CDicomItem* pixels = data.AddTag(0x7FE0, 0x0010, "\1\2\3\4", 4, u"OW");
    EXPECT_EQ(headerOf(pixels, 0x7FE0, 0x0010, true),
              (Bytes{0xE0, 0x7F, 0x10, 0x00, 0x4F, 0x57, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00}));

    CDicomItem* sequence = data.AddSequence(0x0008, 0x1115);
    CDicomItem* item = sequence->InsertSequenceItem();
    EXPECT_EQ(headerOf(item, 0xFFFE, 0xE000, true), (Bytes{0xFE, 0xFF, 0x00, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF}));
    CDicomItem* delimiter = sequence->GetTagItem(0xFFFE, 0xE0DD);
    ASSERT_NE(delimiter, nullptr);
    EXPECT_EQ(headerOf(delimiter, 0xFFFE, 0xE0DD, true), (Bytes{0xFE, 0xFF, 0xDD, 0xE0, 0x00, 0x00, 0x00, 0x00}));
    EXPECT_EQ(headerOf(sequence, 0x0008, 0x1115, true),
              (Bytes{0x08, 0x00, 0x15, 0x11, 'S', 'Q', 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));

    // Later long-form VRs keep the 12-byte header, so a reader of the
    // standard finds the value where it is.
    CDicomItem* text = data.AddTag(0x0008, 0x0119, "AB", 2, u"UC");
    EXPECT_EQ(headerOf(text, 0x0008, 0x0119, true), (Bytes{0x08, 0x00, 0x19, 0x01, 'U', 'C', 0, 0, 2, 0, 0, 0}));

    // A VR attribute that is not two letters leaves the VR field empty.
    CDicomItem* odd = data.AddTag(0x0009, 0x0010, "XY", 2, u"ABC");
    EXPECT_EQ(headerOf(odd, 0x0009, 0x0010, true), (Bytes{0x09, 0x00, 0x10, 0x00, 0x00, 0x00, 0x02, 0x00}));
}

TEST(EncodeHeaders, ImplicitPrivateElementGoesOutAsUNWithTheLongHeader)
{
    Bytes stream = cat({ielem(0x0009, 0x0010, text("ACME")), ielem(0x0009, 0x1001, Bytes{1, 2, 3, 4}),
                        ielem(0x0010, 0x0010, text("DOE^JOHN"))});
    CDicomItem data(u"Data");
    ASSERT_EQ(data.LoadTags(stream.data(), static_cast<int>(stream.size()), false, -1), stream.size());
    ASSERT_EQ(data.GetTagItem(0x0009, 0x1001)->GetVR(), "");

    EXPECT_EQ(data.GetTagItem(0x0009, 0x1001)->RecalcTag(0x0009, 0x1001, true, 0), 16u);
    Bytes expected = cat({elem(0x0009, 0x0010, "UN", text("ACME")), elem(0x0009, 0x1001, "UN", Bytes{1, 2, 3, 4}),
                          elem(0x0010, 0x0010, "PN", text("DOE^JOHN"))});
    Bytes explicitBytes = Save(data, true);
    EXPECT_EQ(explicitBytes, expected);
    // Implicit again gives the stream back.
    EXPECT_EQ(Save(data, false), stream);

    // And the explicit result parses to the same values.
    CDicomItem again(u"Data");
    ASSERT_EQ(again.LoadTags(explicitBytes.data(), static_cast<int>(explicitBytes.size()), true, -1),
              explicitBytes.size());
    EXPECT_EQ(again.GetTagItem(0x0009, 0x1001)->GetVR(), "UN");
    EXPECT_EQ(std::memcmp(again.GetTagItem(0x0009, 0x1001)->GetData(), "\1\2\3\4", 4), 0);
}

TEST(EncodeSequences, UndefinedLengthsStayAndDefinedLengthsFollowTheContent)
{
    auto referenced = [](const std::string& uid) { return elem(0x0008, 0x1155, "UI", uid); };
    Bytes stream = cat({
        elem(0x0008, 0x1115, "SQ", cat({undefinedItem(referenced("1.2.3.4")), sequenceEnd()}), kUndefined),
        elem(0x0008, 0x1140, "SQ", item(cat({referenced("1.2.3.4"), elem(0x0008, 0x1160, "IS", "1 ")}))),
        elem(0x0010, 0x0010, "PN", "DOE^JOHN"),
    });
    CDicomItem data(u"Data");
    ASSERT_EQ(data.LoadTags(stream.data(), static_cast<int>(stream.size()), true, -1), stream.size());
    // Consistent lengths come back byte for byte.
    EXPECT_EQ(Save(data, true), stream);

    // A longer value inside both sequences: the defined lengths of the item
    // and its sequence grow with it, the undefined ones stay 0xFFFFFFFF.
    CDicomItem* definedItem = data.GetSequenceItem(0x0008, 0x1140);
    CDicomItem* undefinedItem_ = data.GetSequenceItem(0x0008, 0x1115);
    ASSERT_NE(definedItem, nullptr);
    ASSERT_NE(undefinedItem_, nullptr);
    definedItem->ReplaceTag(0x0008, 0x1155, u"1.2.3.4.5.6.7.8", u"UI");
    undefinedItem_->ReplaceTag(0x0008, 0x1155, u"1.2.3.4.5.6.7.8", u"UI");
    Bytes grownUid = text(std::string("1.2.3.4.5.6.7.8") + '\0');
    Bytes expected = cat({
        elem(0x0008, 0x1115, "SQ", cat({undefinedItem(elem(0x0008, 0x1155, "UI", grownUid)), sequenceEnd()}),
             kUndefined),
        elem(0x0008, 0x1140, "SQ",
             item(cat({elem(0x0008, 0x1155, "UI", grownUid), elem(0x0008, 0x1160, "IS", "1 ")}))),
        elem(0x0010, 0x0010, "PN", "DOE^JOHN"),
    });
    EXPECT_EQ(Save(data, true), expected);
    EXPECT_EQ(data.GetTagItem(0x0008, 0x1115)->GetDataSize(), -1);
    EXPECT_EQ(undefinedItem_->GetDataSize(), -1);

    // In implicit VR the same tree has 8-byte headers throughout, and the
    // defined lengths shrink accordingly.
    Bytes implicitExpected = cat({
        ielem(0x0008, 0x1115, cat({undefinedItem(ielem(0x0008, 0x1155, grownUid)), sequenceEnd()}), kUndefined),
        ielem(0x0008, 0x1140, item(cat({ielem(0x0008, 0x1155, grownUid), ielem(0x0008, 0x1160, text("1 "))}))),
        ielem(0x0010, 0x0010, text("DOE^JOHN")),
    });
    EXPECT_EQ(Save(data, false), implicitExpected);
}

TEST(EncodeSequences, EncapsulatedPixelDataKeepsItsFragmentsAndUndefinedLength)
{
    Bytes fragments = cat({item({}), item(Bytes{0xFF, 0xD8, 0xFF, 0xD9}), sequenceEnd()});
    Bytes stream = cat({elem(0x0028, 0x0100, "US", us(8)), elem(0x7FE0, 0x0010, "OB", fragments, kUndefined)});
    CDicomItem data(u"Data");
    ASSERT_EQ(data.LoadTags(stream.data(), static_cast<int>(stream.size()), true, -1), stream.size());
    EXPECT_EQ(data.RecalcTags(true, 0), stream.size());
    EXPECT_EQ(Save(data, true), stream);
    EXPECT_EQ(data.GetTagItem(0x7FE0, 0x0010)->GetDataSize(), -1);
}

TEST(EncodeValues, LargeValuesGoToTheWriterInChunksOfTheConfiguredSize)
{
    HostProfile::SetProfileInt("Receive", "FileCopyBufferSize", 1);
    const uint32_t chunk = 1048576;
    std::vector<unsigned char> big(3 * chunk);
    for (size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<unsigned char>(i * 7);

    CDicomItem data(u"Data");
    CDicomItem* pixels = data.AddTag(0x7FE0, 0x0010, nullptr, 0, u"OW");
    ASSERT_EQ(pixels->m_nCopyChunkSize, 1);
    pixels->SetData(big.data(), static_cast<int>(big.size()), false);
    Recorder recorder;
    EXPECT_EQ(pixels->SaveTag(0x7FE0, 0x0010, true, Recorder::Proc, &recorder), 12 + 3 * chunk);
    ASSERT_EQ(recorder.calls.size(), 5u);  // header, three chunks, the empty rest
    EXPECT_EQ(recorder.calls[0].size(), 12u);
    for (int i = 1; i <= 3; ++i)
        EXPECT_EQ(recorder.calls[static_cast<size_t>(i)].size(), chunk);
    EXPECT_EQ(recorder.calls[4].size(), 0u);
    Bytes all = recorder.All();
    EXPECT_TRUE(std::equal(big.begin(), big.end(), all.begin() + 12));

    // The written size is recorded, once more on every save.
    std::u16string writeSize;
    EXPECT_TRUE(pixels->GetItemValue(u"WriteSize", writeSize));
    EXPECT_EQ(writeSize, u"3145728");
    Recorder again;
    pixels->SaveTag(0x7FE0, 0x0010, true, Recorder::Proc, &again);
    EXPECT_EQ(pixels->GetChildItemCount(u"WriteSize"), 2);

    // One byte less than a chunk goes in one call; one more gives a rest.
    pixels->SetData(big.data(), static_cast<int>(chunk - 2), false);
    Recorder small;
    pixels->SaveTag(0x7FE0, 0x0010, true, Recorder::Proc, &small);
    ASSERT_EQ(small.calls.size(), 2u);
    EXPECT_EQ(small.calls[1].size(), chunk - 2);
    pixels->SetData(big.data(), static_cast<int>(chunk + 2), false);
    Recorder over;
    pixels->SaveTag(0x7FE0, 0x0010, true, Recorder::Proc, &over);
    ASSERT_EQ(over.calls.size(), 3u);
    EXPECT_EQ(over.calls[1].size(), chunk);
    EXPECT_EQ(over.calls[2].size(), 2u);
    pixels->SetData(nullptr, 0, false);
    HostProfile::Clear();
}

TEST(EncodeGroups, Group7FE1IsCountedButNeverWritten)
{
    CDicomItem data(u"Data");
    data.AddTag(0x0008, 0x0060, "CT", 2, u"CS");
    data.AddTag(0x7FE1, 0x0010, "ACME", 4, u"LO");
    data.AddTag(0x7FE1, 0x1001, "\1\2\3\4\5\6", 6, u"OB");
    data.AddTag(0x7FE0, 0x0010, "\1\2", 2, u"OW");
    // 10 + 14 + (12 + 18): the recalculation counts the private group.
    EXPECT_EQ(data.RecalcTags(true, 0), 10u + 12 + 18 + 14);
    EXPECT_EQ(OffsetOf(data.GetTagItem(0x7FE1, 0x1001)), 10 + 14 + 12);
    Recorder recorder;
    EXPECT_EQ(data.SaveTags(true, Recorder::Proc, &recorder), 24u);
    EXPECT_EQ(recorder.All(), cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x7FE0, 0x0010, "OW", Bytes{1, 2})}));
}

TEST(EncodeRefusals, ValuesTooLongForAShortLengthAndFailingWritersStopTheSave)
{
    CAuditManager::GetUniqueInstance().SetQuiet(true);
    CDicomItem data(u"Data");
    data.AddTag(0x0008, 0x0060, "CT", 2, u"CS");
    std::vector<unsigned char> longText(70000, 'A');
    data.AddTag(0x0008, 0x1030, longText.data(), static_cast<int>(longText.size()), u"LO");
    data.AddTag(0x0010, 0x0010, "DOE^JOHN", 8, u"PN");

    // Explicit VR: a 16-bit length cannot hold 70000; nothing is written
    // for it or behind it, and the reason is logged.
    Recorder recorder;
    data.RecalcTags(true, 0);
    EXPECT_EQ(data.SaveTags(true, Recorder::Proc, &recorder), 0xFFFFFFFFu);
    EXPECT_EQ(recorder.All(), elem(0x0008, 0x0060, "CS", "CT"));
    EXPECT_NE(CAuditManager::GetUniqueInstance().GetLastError().find("(0008,1030)"), std::string::npos);
    // Implicit VR carries a 32-bit length: fine.
    EXPECT_EQ(Save(data, false).size(), 10u + 8 + 70000 + 16);

    // A writer that fails in the middle: the failure reaches the top and no
    // call follows it.
    CDicomItem root(u"Object");
    auto* body = new CDicomItem(u"Data");
    root.AddItem(body);
    body->AddTag(0x0008, 0x0060, "CT", 2, u"CS");
    body->AddTag(0x0010, 0x0010, "DOE^JOHN", 8, u"PN");
    body->AddTag(0x0010, 0x0020, "ID", 2, u"LO");
    Recorder failing;
    failing.failFrom = 3;
    EXPECT_FALSE(root.SaveObject(Recorder::Proc, &failing));
    EXPECT_EQ(failing.calls.size(), 3u);
    Recorder fine;
    EXPECT_TRUE(root.SaveObject(Recorder::Proc, &fine));
    // No "Header": no preamble, implicit VR.
    EXPECT_EQ(fine.All(), cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0010, 0x0010, text("DOE^JOHN")),
                               ielem(0x0010, 0x0020, text("ID"))}));
    // No "Data": nothing to save.
    CDicomItem empty(u"Object");
    EXPECT_FALSE(empty.SaveObject(Recorder::Proc, &fine));
    CAuditManager::GetUniqueInstance().SetQuiet(false);
}

TEST(EncodeObjects, HeaderIsPreambleThenExplicitMetaThenTheDataSetInItsSyntax)
{
    Bytes dataSet = cat({ielem(0x0008, 0x0060, text("CT")), ielem(0x0010, 0x0010, text("DOE^JOHN"))});
    Bytes image = fileImage("1.2.840.10008.1.2", dataSet);
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(image.data(), static_cast<int>(image.size())));
    Recorder recorder;
    ASSERT_TRUE(root.SaveObject(Recorder::Proc, &recorder));
    EXPECT_EQ(recorder.All(), image);
    // "Offset" is a position in the whole output.
    auto* data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(OffsetOf(data->GetTagItem(0x0010, 0x0010)), static_cast<long>(image.size() - 16));

    // Switching the syntax in the meta information switches the data set.
    auto* header = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Header")));
    header->GetTagItem(0x0002, 0x0010)->CopyData(u"1.2.840.10008.1.2.1");
    Recorder explicitRecorder;
    ASSERT_TRUE(root.SaveObject(Recorder::Proc, &explicitRecorder));
    EXPECT_EQ(explicitRecorder.All(),
              fileImage("1.2.840.10008.1.2.1",
                        cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x0010, 0x0010, "PN", "DOE^JOHN")})));
}

TEST(EncodeDicomDir, OffsetsLinkPatientStudySeriesAndImages)
{
    CDicomItem root(u"Object");
    auto* data = new CDicomItem(u"Data");
    root.AddItem(data);
    const unsigned char zero[4] = {0, 0, 0, 0};
    data->AddTag(0x0004, 0x1130, "", 0, u"CS");
    data->AddTag(0x0004, 0x1200, zero, 4, u"UL");
    data->AddTag(0x0004, 0x1202, zero, 4, u"UL");
    data->AddTag(0x0004, 0x1212, "\0\0", 2, u"US");
    CDicomItem* records = data->InsertSequence(0x0004, 0x1220);
    ASSERT_NE(records, nullptr);
    std::vector<CDicomItem*> items;
    // One patient, study and series, two images, and a private record
    // between the images that belongs to no level.
    for (const char16_t* type : {u"PATIENT ", u"STUDY ", u"SERIES", u"IMAGE ", u"PRIVATE ", u"IMAGE "}) {
        CDicomItem* record = records->InsertSequenceItem();
        record->AddTag(0x0004, 0x1400, zero, 4, u"UL");
        record->AddTag(0x0004, 0x1410, "\xFF\xFF", 2, u"US");
        record->AddTag(0x0004, 0x1420, zero, 4, u"UL");
        record->AddTag(0x0004, 0x1430, type, u"CS");
        items.push_back(record);
    }
    Recorder recorder;
    ASSERT_TRUE(root.SaveObject(Recorder::Proc, &recorder));
    Bytes out = recorder.All();

    auto offsetIn = [](CDicomItem* node, int element) { return Uint32At(node->GetTagItem(0x0004, element)); };
    auto itemAt = [&](uint32_t offset) {
        // Every offset must point at an item header in the written bytes.
        return offset + 8 <= out.size() && out[offset] == 0xFE && out[offset + 1] == 0xFF &&
               out[offset + 2] == 0x00 && out[offset + 3] == 0xE0;
    };
    uint32_t patient = static_cast<uint32_t>(OffsetOf(items[0]));
    EXPECT_TRUE(itemAt(patient));
    EXPECT_EQ(offsetIn(data, 0x1200), patient);
    EXPECT_EQ(offsetIn(data, 0x1202), patient);
    EXPECT_EQ(offsetIn(items[0], 0x1420), static_cast<uint32_t>(OffsetOf(items[1])));
    EXPECT_EQ(offsetIn(items[1], 0x1420), static_cast<uint32_t>(OffsetOf(items[2])));
    EXPECT_EQ(offsetIn(items[2], 0x1420), static_cast<uint32_t>(OffsetOf(items[3])));
    EXPECT_EQ(offsetIn(items[3], 0x1400), static_cast<uint32_t>(OffsetOf(items[5])));
    EXPECT_TRUE(itemAt(offsetIn(items[3], 0x1400)));
    for (int element : {0x1400, 0x1420})
        EXPECT_EQ(offsetIn(items[4], element), 0u);
    EXPECT_EQ(offsetIn(items[0], 0x1400), 0u);
    EXPECT_EQ(offsetIn(items[5], 0x1400), 0u);

    // The saved bytes carry the same numbers: the offsets were filled
    // before the save pass.
    CDicomItem parsed(u"Data");
    ASSERT_EQ(parsed.LoadTags(out.data(), static_cast<int>(out.size()), false, -1), out.size());
    EXPECT_EQ(offsetIn(&parsed, 0x1200), patient);
    CDicomItem* parsedRecords = parsed.GetTagItem(0x0004, 0x1220);
    ASSERT_NE(parsedRecords, nullptr);
    EXPECT_EQ(Uint32At(parsedRecords->GetSequenceChildItemOptional(0x0004, 0x1400, 3)),
              static_cast<uint32_t>(OffsetOf(items[5])));
}

TEST(WriterCommands, BufferCommandAppendsAndRefusesNegativeCounts)
{
    CDynBuffer buffer;
    CDicomDataWriterForBufferCmd command(&buffer);
    CDicomDataWriterCmd& base = command;
    EXPECT_TRUE(base.WriteData("abc", 3));
    EXPECT_TRUE(base.WriteData("de", 2));
    EXPECT_TRUE(base.WriteData(nullptr, 0));
    EXPECT_FALSE(base.WriteData("x", -1));
    ASSERT_EQ(buffer.m_nSize, 5u);
    EXPECT_EQ(std::memcmp(buffer.GetData(), "abcde", 5), 0);
    CDicomDataWriterForBufferCmd nowhere(nullptr);
    EXPECT_FALSE(nowhere.WriteData("x", 1));
}
