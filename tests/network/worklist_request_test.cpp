// The worklist request: the template asks for every key once, in tag order
// on the wire, with the dictionary's VRs; typed values become the DICOM
// matching values; the response writer's identifier reads back.
#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "imageinfo/dicominfo.h"
#include "network/worklistsocket.h"
#include "platform/dynbuffer.h"
#include "platform/profile.h"

namespace {

std::string Value(const CDicomItem* key)
{
    return key && key->GetData() ? std::string(reinterpret_cast<const char*>(key->GetData()), key->GetDataSize()) : "";
}

CDicomItem* StepItem(CDicomItem* request) { return request->GetSequenceItem(0x0040, 0x0100); }

// The top-level tags of an implicit VR data set, in wire order.
std::vector<uint32_t> TopLevelTags(const CDynBuffer& bytes)
{
    std::vector<uint32_t> tags;
    DICOMINFO::ReadTags(
        bytes.GetData(), static_cast<int>(bytes.m_nSize),
        [](TAG_HEADER* element, void* out) {
            static_cast<std::vector<uint32_t>*>(out)->push_back(uint32_t(element->wGroup) << 16 | element->wElement);
        },
        &tags);
    return tags;
}

}

TEST(WorklistRequest, TemplateEncodesEveryKeyOnceInTagOrder)
{
    std::unique_ptr<CDicomItem> request(CWorklistSocket::CreateFindRequest());
    ASSERT_TRUE(request);
    CDynBuffer bytes;
    ASSERT_NE(request->RecalcTags(false, 0), 0xFFFFFFFFu);
    ASSERT_NE(request->SaveTags(false, CDynBuffer::WriteProc, &bytes), 0xFFFFFFFFu);
    std::vector<uint32_t> tags = TopLevelTags(bytes);
    EXPECT_EQ(tags.size(), 45u);
    EXPECT_TRUE(std::is_sorted(tags.begin(), tags.end()));
    EXPECT_EQ(std::set<uint32_t>(tags.begin(), tags.end()).size(), tags.size());
    EXPECT_EQ(tags.front(), 0x00080005u);

    // The nested keys, each asked for empty, with a VR from the dictionary.
    ASSERT_TRUE(StepItem(request.get()));
    const struct {
        uint16_t sequence, sequenceElement;
        int keys;
    } items[] = {{0x0040, 0x0100, 12}, {0x0032, 0x1064, 4}, {0x0010, 0x2202, 3}, {0x0010, 0x2293, 3}, {0x0010, 0x2294, 2}};
    for (const auto& expected : items) {
        CDicomItem* item = request->GetSequenceItem(expected.sequence, expected.sequenceElement);
        ASSERT_TRUE(item) << std::hex << expected.sequenceElement;
        int keys = 0;
        for (CXmlItem* group : item->m_children) {
            if (CDicomItem::ParseGroupName(group->m_sName) == 0xFFFE)
                continue;
            for (CXmlItem* element : group->m_children) {
                auto* key = static_cast<CDicomItem*>(element);
                EXPECT_EQ(key->GetVR().size(), 2u) << "(" << std::hex << expected.sequenceElement << ")";
                ++keys;
            }
        }
        EXPECT_EQ(keys, expected.keys) << std::hex << expected.sequenceElement;
    }
    CDicomItem* registry = request->GetSequenceItem(0x0010, 0x2294)->GetSequenceItem(0x0010, 0x2296);
    ASSERT_TRUE(registry);
    EXPECT_TRUE(registry->GetTagItem(0x0008, 0x0104));

    WL_FIND record;
    EXPECT_FALSE(CWorklistSocket::CreateFindRequest(nullptr));
    EXPECT_TRUE(CWorklistSocket::CreateFindRequest(&record));
    EXPECT_TRUE(record.pRequest);
}

TEST(WorklistRequest, TypedValuesBecomeMatchingValues)
{
    const struct {
        uint16_t group, element;
        const char16_t* vr;
        const char16_t* typed;
        bool result;
        std::string value;  // as sent, padding included
    } cases[] = {
        {0x0010, 0x0010, u"PN", u"DOE JA", true, "DOE^JA* "},
        {0x0010, 0x0010, u"PN", u"DOE", true, "DOE*"},
        {0x0040, 0x0002, u"DA", u">20240301", true, "20240301- "},
        {0x0040, 0x0002, u"DA", u"<20240301", true, "-20240301 "},
        {0x0040, 0x0002, u"DA", u"=20240301", true, "20240301"},
        {0x0040, 0x0002, u"DA", u"01/03/2024 .. 31/03/2024", true, "20240301-20240331 "},
        {0x0040, 0x0002, u"DA", u"2024 03 01", true, "20240301"},
        {0x0040, 0x0002, u"DA", u"no date", true, ""},
        {0x0040, 0x0003, u"TM", u">08:00:00", true, "080000- "},
        {0x0040, 0x0003, u"TM", u"08:00:00..12:00:00", true, "080000-120000 "},
        {0x0010, 0x21C0, u"US", u"4", true, std::string("\x04\x00", 2)},
        {0x0010, 0x21C0, u"US", u"70000", false, ""},
        {0x0040, 0x0002, u"DT", u"20240301", false, ""},
        {0x0040, 0x0002, u"UL", u"5", false, ""},
        {0x0008, 0x0060, u"CS", u"CT", true, "CT"},
        {0x0008, 0x0060, u"C", u"CT", true, ""},    // not a VR: nothing set
        {0x0008, 0x0060, u"XX", u"CT", true, ""},   // an unknown VR: nothing set
        {0x0010, 0x0021, u"LO", u"HOSP", true, "HOSP"},  // a key outside the template is added
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.group << "," << c.element << " " << c.value);
        std::unique_ptr<CDicomItem> request(CWorklistSocket::CreateFindRequest());
        CDicomItem* node = c.group == 0x0040 || (c.group == 0x0008 && c.element == 0x0060) ? StepItem(request.get())
                                                                                           : request.get();
        EXPECT_EQ(CWorklistSocket::AddValueToFindRequest(node, c.typed, c.group, c.element, c.vr), c.result);
        CDicomItem* key = node->GetTagItem(c.group, c.element);
        ASSERT_TRUE(key);
        EXPECT_EQ(Value(key), c.value);
    }
    EXPECT_FALSE(CWorklistSocket::AddValueToFindRequest(nullptr, u"X", 0x0010, 0x0010, u"PN"));
}

TEST(WorklistRequest, ResponseWriterIdentifierReadsBack)
{
    CDicomWorklist entry;
    entry.sAccessionNumber = u"ACC1";
    entry.sPatientName = u"M\u00dcLLER^J\u00dcRGEN";
    entry.sPatientID = u"PID1";
    entry.sStudyInstanceUID = u"1.2.3";
    entry.sRequestedContrastAgent = u"IODINE";
    entry.sScheduledStationName = u"ROOM1";
    CDynBuffer bytes;
    ASSERT_TRUE(entry.FillResponseData(bytes));

    CDicomWorklist read;
    DICOMINFO::ReadTags(bytes.GetData(), static_cast<int>(bytes.m_nSize),
                        reinterpret_cast<DICOM_TAG_PROC>(&CDicomWorklist::ReadTagProc), &read);
    EXPECT_EQ(read.sAccessionNumber, u"ACC1");
    EXPECT_TRUE(read.sPatientName.empty());

    CDicomItem data(u"Data");
    ASSERT_EQ(data.LoadTags(bytes.GetData(), static_cast<int>(bytes.m_nSize), false, -1), bytes.m_nSize);
    EXPECT_EQ(Value(data.GetTagItem(0x0010, 0x0010)), "M\xDCLLER^J\xDCRGEN ");  // ISO_IR 100, padded
    EXPECT_EQ(Value(data.GetTagItem(0x0020, 0x000D)), std::string("1.2.3\0", 6));
    CDicomItem* step = data.GetSequenceItem(0x0040, 0x0100);
    ASSERT_TRUE(step);
    EXPECT_EQ(Value(step->GetTagItem(0x0032, 0x1070)), "IODINE");
    EXPECT_EQ(Value(step->GetTagItem(0x0040, 0x0010)), "ROOM1 ");
    EXPECT_TRUE(step->GetTagItem(0x0040, 0x0006));

    CDicomWorklist copy(entry), assigned;
    assigned = copy;
    EXPECT_EQ(assigned.sPatientName, entry.sPatientName);
}

TEST(WorklistRequest, ProfileTimeOutAboveZeroReplacesTheDefault)
{
    const struct {
        int profile;
        int timeout;
    } cases[] = {{-1, 30000}, {0, 30000}, {1500, 1500}};
    HOST_INFO host;
    host.Set("127.0.0.1", 104, "WLSCP", "MODALITY1");
    for (const auto& c : cases) {
        zeldicom::HostProfile::SetProfileInt("Worklist", "TimeOut", c.profile);
        CWorklistSocket socket(&host);
        EXPECT_EQ(socket.GetTimeout(), c.timeout) << c.profile;
        EXPECT_EQ(socket.m_sTraceName, "WorklistSocket");
    }
    zeldicom::HostProfile::Clear();
}
