// Instance editing: the host attribute tree written into a data set, new
// instances, the referenced SOP sequence, availability, tag tables, and
// elements set from typed text.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "dicomdata/elementedit.h"
#include "support/dicomwriter.h"
#include "support/files.h"
#include "support/tree.h"
#include "platform/text.h"

using namespace zeldicom;
using namespace testsupport;

namespace {

// A data set node holding a few elements that the key table may replace.
std::unique_ptr<CDicomItem> DataSet(const char16_t* name = u"Data")
{
    auto data = std::make_unique<CDicomItem>(name);
    data->InsertTag(0x0008, 0x0021, u"20000101", u"");
    data->InsertTag(0x0010, 0x0010, u"Doe^John^Q^Dr", u"");
    data->InsertTag(0x0020, 0x0013, u"7", u"");
    return data;
}

std::string Value(const CDicomItem& data, int group, int element) { return TextOf(&data, group, element); }

struct HostTree {
    CXmlItem root{u"ROOT", u"", ""};
    CXmlItem* patient = root.AddItem(u"PATIENT", u"", "");
    CXmlItem* study = patient->AddItem(u"STUDY", u"", "");
    CXmlItem* series = study->AddItem(u"SERIES", u"", "");
    CXmlItem* image = series->AddItem(u"IMAGE", u"", "");
    CXmlItem* Level(const std::string& level)
    {
        return level == "PATIENT" ? patient : level == "STUDY" ? study : level == "SERIES" ? series : image;
    }
};

}  // namespace

// Each key on its own, on a data set that has (0008,0021) but neither
// (0008,0020) nor most others: what the element holds afterwards.
TEST(InstanceEditing, EveryKeyOfTheHostTreeWritesItsElement)
{
    struct Row {
        const char* level;
        const char16_t* key;
        const char16_t* text;  // null: the number below
        long number;
        int group, element;
        const char* expected;
    };
    const Row rows[] = {
        {"PATIENT", u"PatientID", u"P-17", 0, 0x0010, 0x0020, "P-17"},
        {"PATIENT", u"BirthDate", nullptr, 19700101, 0x0010, 0x0030, "19700101"},
        {"PATIENT", u"BirthDate", nullptr, 18000000, 0x0010, 0x0030, "18000000"},
        {"PATIENT", u"BirthDate", nullptr, 17991231, 0x0010, 0x0030, ""},
        {"PATIENT", u"Sex", u"F", 0, 0x0010, 0x0040, "F"},
        {"PATIENT", u"PatientComments", u"allergic", 0, 0x0010, 0x4000, "allergic"},
        {"STUDY", u"StudyInstanceUID", u"1.2.3.4", 0, 0x0020, 0x000D, "1.2.3.4"},
        {"STUDY", u"StudyDate", nullptr, 20240105, 0x0008, 0x0020, "20240105"},
        {"STUDY", u"StudyDate", nullptr, 17000101, 0x0008, 0x0020, "<absent>"},
        {"STUDY", u"StudyTime", nullptr, 93000, 0x0008, 0x0030, "093000"},
        {"STUDY", u"StudyTime", nullptr, 0, 0x0008, 0x0030, "000000"},
        {"STUDY", u"StudyTime", nullptr, -1, 0x0008, 0x0030, ""},
        {"STUDY", u"ReferringPhysician", u"Who^Doctor", 0, 0x0008, 0x0090, "Who^Doctor"},
        {"STUDY", u"StudyID", u"S1", 0, 0x0020, 0x0010, "S1"},
        {"STUDY", u"AccessionNumber", u"A99", 0, 0x0008, 0x0050, "A99"},
        {"STUDY", u"StudyDescription", u"Chest", 0, 0x0008, 0x1030, "Chest"},
        {"STUDY", u"StudyComments", u"urgent", 0, 0x0032, 0x4000, "urgent"},
        {"SERIES", u"Modality", u"CR", 0, 0x0008, 0x0060, "CR"},
        {"SERIES", u"SeriesInstanceUID", u"1.2.3.5", 0, 0x0020, 0x000E, "1.2.3.5"},
        {"SERIES", u"SeriesNumber", u"3", 0, 0x0020, 0x0011, "3"},
        // (0008,0021) exists in the fixture: it takes the date or is emptied.
        {"SERIES", u"SeriesDate", nullptr, 20240105, 0x0008, 0x0021, "20240105"},
        {"SERIES", u"SeriesDate", nullptr, 0, 0x0008, 0x0021, ""},
        {"SERIES", u"SeriesTime", nullptr, 235959, 0x0008, 0x0031, "235959"},
        {"SERIES", u"BodyPart", u"HAND", 0, 0x0018, 0x0015, "HAND"},
        {"SERIES", u"PerformingPhysician", u"Ray^Xavier", 0, 0x0008, 0x1050, "Ray^Xavier"},
        {"SERIES", u"SeriesDescription", u"PA", 0, 0x0008, 0x103E, "PA"},
        {"IMAGE", u"SOPInstanceUID", u"1.2.3.6", 0, 0x0008, 0x0018, "1.2.3.6"},
        {"IMAGE", u"ImageNumber", u"12", 0, 0x0020, 0x0013, "12"},
    };
    for (const Row& row : rows) {
        std::string what = Utf16ToUtf8(row.key) + " " + (row.text ? Utf16ToUtf8(row.text) : std::to_string(row.number));
        HostTree host;
        if (row.text)
            host.Level(row.level)->AddItem(row.key, row.text, "");
        else
            host.Level(row.level)->AddItem(row.key, row.number, "");
        auto data = DataSet();
        data->ModifyImageTags(&host.root);
        EXPECT_EQ(Value(*data, row.group, row.element), row.expected) << what;
        // Nothing else moved: the fixture's other elements keep their values.
        if (row.group != 0x0020 || row.element != 0x0013) {
            EXPECT_EQ(Value(*data, 0x0020, 0x0013), "7") << what;
        }
        EXPECT_EQ(Value(*data, 0x0010, 0x0010), "Doe^John^Q^Dr") << what;
        // Replaced elements stand in tag order inside their group.
        CDicomItem* group = data->GetGroupItem(row.group);
        for (int i = 1; group && i < group->GetChildCount(); ++i)
            EXPECT_LT(group->GetChildItem(i - 1)->m_sName, group->GetChildItem(i)->m_sName) << what;
    }
    // A series date never creates its element.
    HostTree host;
    host.series->AddItem(u"SeriesDate", 20240105L, "");
    auto bare = std::make_unique<CDicomItem>(u"Data");
    bare->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*bare, 0x0008, 0x0021), "<absent>");
}

TEST(InstanceEditing, NameNeedsBothPartsAndOnlyDataNodesChange)
{
    HostTree host;
    host.patient->AddItem(u"LastName", u"Smith", "");
    auto data = DataSet();
    data->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*data, 0x0010, 0x0010), "Doe^John^Q^Dr");

    host.patient->AddItem(u"FirstName", u"Ann", "");
    data->ModifyImageTags(&host.root);
    // Middle name, prefix and suffix of the previous name are kept.
    EXPECT_EQ(Value(*data, 0x0010, 0x0010), "Smith^Ann^Q^Dr");

    host.patient->AddItem(u"PatientID", u"X", "");
    auto header = DataSet(u"Header");
    header->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*header, 0x0010, 0x0020), "<absent>");
    EXPECT_EQ(Value(*header, 0x0010, 0x0010), "Doe^John^Q^Dr");
    // The node name is compared without regard to case; a tree without
    // IMAGE is not applied at all.
    auto lower = DataSet(u"data");
    lower->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*lower, 0x0010, 0x0020), "X");
    host.series->DeleteChildItem(u"IMAGE");
    auto incomplete = DataSet();
    incomplete->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*incomplete, 0x0010, 0x0020), "<absent>");
}

TEST(InstanceEditing, NewInstanceSharesOneUidAndRefusesIncompleteRoots)
{
    CDicomItem root(u"Object");
    EXPECT_FALSE(CDicomTools::UpdateTagsWhenInstanceCreation(root));
    auto* header = CDicomItem::CreateMetaHeader(u"1.2.840.10008.5.1.4.1.1.7", u"1.2.3", u"1.2.840.10008.1.2");
    root.AddItem(header);
    EXPECT_FALSE(CDicomTools::UpdateTagsWhenInstanceCreation(root));  // no "Data"
    std::string firstUid = Value(*header, 0x0002, 0x0003);
    EXPECT_NE(firstUid, "1.2.3");  // the header step ran before the refusal

    auto data = DataSet();
    data->InsertTag(0x0008, 0x0008, u"ORIGINAL\\PRIMARY\\AXIAL", u"");
    data->InsertTag(0x0008, 0x0018, u"1.2.3", u"");
    CDicomItem* dataNode = data.release();
    root.AddItem(dataNode);
    ASSERT_TRUE(CDicomTools::UpdateTagsWhenInstanceCreation(root));
    std::string uid = Value(*dataNode, 0x0008, 0x0018);
    EXPECT_EQ(Value(*header, 0x0002, 0x0003), uid);
    EXPECT_NE(uid, firstUid);
    // The image's kind (value 3) stays.
    EXPECT_EQ(Value(*dataNode, 0x0008, 0x0008), "DERIVED\\SECONDARY\\AXIAL");
    EXPECT_EQ(Value(*header, 0x0002, 0x0012), Utf16ToUtf8(CDicomInfoStatics::GetDicomRoot()));
    EXPECT_EQ(Value(*header, 0x0002, 0x0013), Utf16ToUtf8(Trim(CDicomTools::GetVqImplementationVersionName())));
}

TEST(InstanceEditing, ReferencedSopSequenceStandsInTagOrderOnce)
{
    auto data = DataSet();
    data->InsertTag(0x0008, 0x2111, u"derived", u"");
    ASSERT_NE(data->AddRefSOPSequence(u"1.2.840.10008.5.1.4.1.1.2", u"1.2.3.4.5"), nullptr);
    ASSERT_NE(data->AddRefSOPSequence(u"1.2.840.10008.5.1.4.1.1.7", u"9.8.7"), nullptr);  // replaces the first
    EXPECT_EQ(data->GetTagItemCount(0x0008, 0x1199), 1);
    CDicomItem* item = data->GetSequenceItem(0x0008, 0x1199);
    ASSERT_NE(item, nullptr);
    EXPECT_EQ(Value(*item, 0x0008, 0x1150) + " " + Value(*item, 0x0008, 0x1155), "1.2.840.10008.5.1.4.1.1.7 9.8.7");
    CDicomItem* group = data->GetGroupItem(0x0008);
    EXPECT_EQ(group->GetChildItem(group->GetChildCount() - 1)->m_sName, u"e2111");
}

TEST(InstanceEditing, AvailabilityAndTagTables)
{
    ScratchFolder scratch("avail");
    const std::string folder = scratch.path;
    ASSERT_TRUE(WriteFile(folder + "/present.dcm", text("x")));
    std::u16string dir = Utf8ToUtf16(folder), missing = Utf8ToUtf16(folder + "-missing");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(true, dir, u""), u"ONLINE");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(true, dir, u"present.dcm"), u"ONLINE");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(true, dir, u"absent.dcm"), u"UNAVAILABLE");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(true, missing, u"present.dcm"), u"OFFLINE");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(false, missing, u"present.dcm"), u"UNAVAILABLE");
    EXPECT_EQ(CDicomTools::GetInstanceAvailability(false, dir, u"present.dcm"), u"ONLINE");

    // Keys are objects: equal numbers are two entries; a copy shares them.
    CDicomTagTable source, copy;
    auto* first = new CDicomTag(0x0010, 0x0010);
    auto* twin = new CDicomTag(0x0010, 0x0010);
    source[first] = u"a";
    source[twin] = u"b";
    copy[first] = u"old";
    CDicomTools::CopyDicomTable(source, copy);
    EXPECT_EQ(copy.size(), 2u);
    EXPECT_EQ(copy[first], u"a");
    EXPECT_EQ(copy[twin], u"b");
    CDicomTools::CleanDicomTable(source);  // deletes both keys (ASan checks it once)
    EXPECT_TRUE(source.empty());
}

// Typed text to each VR: the stored bytes, or a refusal that leaves the
// element as it was.
TEST(InstanceEditing, ElementsFromTypedText)
{
    struct Row {
        const char* key;
        const char* text;
        const char* hex;  // stored bytes; null: refused
    };
    const Row rows[] = {
        {"PatientName", "Doe^Jane", "446f655e4a616e65"},
        {"(0010,0020)", "ID1", "49443120"},
        {"0008,0060", "", ""},
        {"Rows", "512", "0002"},
        {"Rows", "65536", nullptr},
        {"Rows", "-1", nullptr},
        {"Rows", "12x", nullptr},
        {"LUTDescriptor", "256\\0\\16", "000100001000"},  // US or SS: US without Pixel Representation
        {"(0018,9219)", "-2\\3", "feff0300"},               // SS
        {"SimpleFrameList", "4294967295", "ffffffff"},      // UL
        {"(0018,9306)", "1.5", "000000000000f83f"},         // FD
        {"(0028,0009)", "(0018,1063)", "18006310"},         // AT
        {"(0028,0009)", "00181063\\00200013", "1800631020001300"},
        {"(0028,0009)", "0018", nullptr},
        {"(0029,1010)", "x", nullptr},                      // private, not in the file: VR unknown
        {"ReferencedImageSequence", "x", nullptr},
        {"(0008,0000)", "12", nullptr},
        {"(FFFE,E000)", "", nullptr},
        {"RedPaletteColorLookupTableData", "0102\\ffff", "0201ffff"},  // OW words
    };
    for (const Row& row : rows) {
        uint16_t group = 0, element = 0;
        ASSERT_TRUE(ParseElementKey(row.key, group, element)) << row.key;
        auto data = DataSet();
        data->InsertTag(0x0020, 0x0011, u"5", u"");
        std::string error;
        bool set = SetElementFromText(*data, group, element, Utf8ToUtf16(row.text), error);
        std::string what = std::string(row.key) + "=" + row.text;
        EXPECT_EQ(set, row.hex != nullptr) << what << ": " << error;
        EXPECT_EQ(error.empty(), set) << what;
        CDicomItem* item = data->GetTagItem(group, element);
        if (row.hex) {
            ASSERT_NE(item, nullptr) << what;
            EXPECT_EQ(ToHex(std::string(reinterpret_cast<const char*>(item->GetData()),
                                        static_cast<size_t>(std::max(item->GetDataSize(), 0)))),
                      row.hex)
                << what;
        } else if (group != 0x0008 || element != 0x0000) {
            EXPECT_EQ(item, nullptr) << what;
        }
        EXPECT_EQ(Value(*data, 0x0020, 0x0011), "5") << what;
    }
    uint16_t group = 0, element = 0;
    for (const char* bad : {"patientname", "0010,001", "(0010,0010", "0010:0010", "", "gggg,eeee"})
        EXPECT_FALSE(ParseElementKey(bad, group, element)) << bad;
    // Text the data set's character set cannot hold is refused; without
    // Specific Character Set only ASCII is.
    std::string reason;
    EXPECT_FALSE(SetElementFromText(*DataSet(), 0x0010, 0x0010, u"\u00e9", reason));
    auto latin = DataSet();
    latin->m_sCharacterSet = "ISO_IR 100";
    std::string error;
    EXPECT_FALSE(SetElementFromText(*latin, 0x0010, 0x0010, u"\u65e5\u672c", error));
    EXPECT_EQ(Value(*latin, 0x0010, 0x0010), "Doe^John^Q^Dr");
}

// A name that pydicom's French sample (ISO_IR 100) cannot hold: the data
// set switches to UTF-8 with every text value kept, rather than keep the
// old name; pydicom reads the saved file alike.
TEST(InstanceEditing, NameTheCharacterSetCannotHoldSwitchesTheDataSetToUtf8)
{
    PYDICOM_DATA_OR_FAIL(dataDir);
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(dataDir + "/charset_files/chrFren.dcm")));
    auto* data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    ASSERT_NE(data, nullptr);
    std::string institution = Value(*data, 0x0008, 0x0080);
    HostTree host;
    host.patient->AddItem(u"LastName", u"Иванов", "");
    host.patient->AddItem(u"FirstName", u"Jérôme", "");
    host.study->AddItem(u"StudyDescription", u"Контроль", "");
    data->ModifyImageTags(&host.root);
    EXPECT_EQ(Value(*data, 0x0008, 0x0005), "ISO_IR 192");
    // PS3.5 6.2.1.1: trailing empty components may stand or not.
    std::string name = Value(*data, 0x0010, 0x0010);
    EXPECT_EQ(name.substr(0, name.find_last_not_of('^') + 1), "Иванов^Jérôme");
    EXPECT_EQ(Value(*data, 0x0008, 0x1030), "Контроль");
    EXPECT_EQ(Value(*data, 0x0008, 0x0080), institution);

    std::string path = ScratchPath("utf8.dcm");
    ASSERT_TRUE(root.SaveToFile(Utf8ToUtf16(path)));
    auto [status, names] = RunShell("/usr/bin/python3 -c \"import pydicom; ds = pydicom.dcmread('" + path +
                                    "'); print(str(ds.PatientName).rstrip('^'), ds.StudyDescription, sep='|')\"");
    EXPECT_EQ(status, 0) << names;
    EXPECT_EQ(names, "Иванов^Jérôme|Контроль\n");
    std::remove(path.c_str());
}

// PS3.5 6.2: the form and length of each text VR's values.
TEST(InstanceEditing, TypedValuesAreCheckedAgainstTheirVR)
{
    const struct {
        const char* vr;
        const char16_t* text;
        bool fits;
    } kCases[] = {
        {"DA", u"20240229", true},        {"DA", u"20230229", false},     {"DA", u"2024-01-02", false},
        {"DA", u"", true},                {"AE", u"STORESCP", true},      {"AE", u"ABCDEFGHIJKLMNOPQ", false},
        {"AE", u"  PADDED_TITLE_16 ", true},
        {"TM", u"235960.123456", true},   {"TM", u"2400", false},         {"TM", u"0930.5", false},
        {"DT", u"20240102093005+0100", true}, {"DT", u"2024010209300", false},
        {"DS", u"-1.5e3\\ 2 ", true},     {"DS", u"1,5", false},          {"DS", u"12345678901234567", false},
        {"IS", u"2147483647", true},      {"IS", u"2147483648", false},   {"IS", u"1.0", false},
        {"UI", u"1.2.840.10008.1.2", true}, {"UI", u"1.02.3", false},     {"UI", u"1..2", false},
        {"CS", u"ORIGINAL\\PRIMARY", true}, {"CS", u"original", false},   {"AS", u"045Y", true},
        {"AS", u"45Y", false},            {"PN", u"Doe^Jane^^Dr^Jr=Doe", true}, {"PN", u"a^b^c^d^e^f", false},
        {"LO", u"line\nbreak", false},    {"LT", u"line\nbreak", true},   {"OB", u"anything", true},
    };
    for (const auto& c : kCases)
        EXPECT_EQ(CheckValueForm(c.vr, c.text).empty(), c.fits) << c.vr << " " << Utf16ToUtf8(c.text);

    ElementPath path;
    std::string error;
    ASSERT_TRUE(ParseElementPath("ReferencedImageSequence[2].(0008,1150)", path, error)) << error;
    ASSERT_EQ(path.steps.size(), 2u);
    EXPECT_EQ(path.steps[0].group, 0x0008);
    EXPECT_EQ(path.steps[0].element, 0x1140);
    EXPECT_EQ(path.steps[0].item, 2);
    EXPECT_EQ(path.steps[1].element, 0x1150);
    EXPECT_EQ(path.steps[1].item, -1);
    for (const char* bad : {"ReferencedImageSequence.PatientName", "ReferencedImageSequence[0]", "PatientName[x].A",
                            "NoSuchKeyword", "ReferencedImageSequence[0].", ""})
        EXPECT_FALSE(ParseElementPath(bad, path, error)) << bad;
}
