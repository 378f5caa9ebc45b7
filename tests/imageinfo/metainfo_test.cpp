// File meta information: building it (tree and raw buffer), the raw scans
// of buffers and files, compression types, and new files read back by the
// peers (DCMTK's dcmdump, pydicom).
#include <gtest/gtest.h>
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "support/tree.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "platform/xmlitem.h"

using namespace zeldicom;

using namespace testsupport;

namespace {
const char16_t* const kSopClass = u"1.2.840.10008.5.1.4.1.1.7";
const char16_t* const kInstance = u"1.2.826.0.1.3680043.2.1125.7.42";

struct ProbeRecord : DICOMINFO {  // exposes the protected buffer start analysis
    using DICOMINFO::ProcessMetaHeader;
};
void Fill(metaHeaderInfo& info, const std::u16string& transferSyntax)
{
    info.sMediaStorageSOPClassUID = kSopClass;
    info.sMediaStorageSOPInstanceUID = kInstance;
    info.sTransferSyntax = transferSyntax;
    info.sImplementationClassUID = u"1.2.826.0.1.3680043.2.1125.1";
    info.sImplementationVersionName = u"ZEL_0_1";
    info.sSourceAETitle = u"ZELTEST";
}
Bytes Meta(const std::u16string& transferSyntax)
{
    CDynBuffer buffer;
    metaHeaderInfo info;
    Fill(info, transferSyntax);
    DICOMINFO::FillMetaHeaderBuffer(buffer, &info);
    return Contents(buffer);
}
std::string TempFile(const std::string& name, const Bytes& bytes)
{
    std::string path = ScratchPath(name);
    WriteFile(path, bytes);
    return path;
}
void FillDataSet(CDicomItem& data)
{
    data.AddTag(0x0008, 0x0016, kSopClass, u"");
    data.AddTag(0x0008, 0x0018, kInstance, u"");
    data.AddTag(0x0008, 0x0060, u"OT", u"");
    CDicomItem* item = data.AddSequence(0x0008, 0x1140)->InsertSequenceItem();
    item->AddTag(0x0008, 0x1150, kSopClass, u"");
    item->AddTag(0x0008, 0x1155, u"1.2.3.4.5", u"");
    data.AddTag(0x0010, 0x0010, u"Doe^John", u"");
}
}

TEST(MetaInformation, CompressionTypes)
{
    // Last number of the transfer syntax UID after "1.2.840.10008.1.2", and its type.
    const std::pair<const char*, int> cases[] = {{"", 0},       {".2", 0},      {".4.50", 1},  {".4.56", 1}, {".4.57", 2},
                                                 {".4.59", 1},  {".4.64", 1},   {".4.66", 2},  {".4.70", 2}, {".5", 3},
                                                 {".4.90", 4},  {".4.91", 5},   {".4.70 ", 0}, {".4.5", 0},  {".4.80", 0}};
    DICOMINFO info;
    for (const auto& [suffix, type] : cases)
        EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2" + AsciiToWide(suffix)), type) << suffix;
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(std::u16string(u"1.2.840.10008.1.2.4.91\0", 23)), 0);
}

TEST(MetaInformation, BufferAndTreeForms)
{
    // Preamble, "DICM", then (0002,0000) UL holding the bytes of the rest of
    // the group and (0002,0001) OB 00 01.
    Bytes head = Meta(u"1.2.840.10008.1.2.1");
    ASSERT_GT(head.size(), 158u);
    Bytes groupLength;
    put32(groupLength, static_cast<uint32_t>(head.size() - 144));
    EXPECT_EQ(Bytes(head.begin(), head.begin() + 158), cat({Bytes(128, 0), text("DICM"), elem(0x0002, 0x0000, "UL", groupLength),
                                                           elem(0x0002, 0x0001, "OB", Bytes{0, 1})}));
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(head.data(), head.size()), head.size());
    EXPECT_EQ(DICOMINFO::GetFirstTagAfterMetaHeader(head.data(), head.size()), head.data() + head.size());

    // The tree form: the preamble and "DICM" as the node's value, elements in order.
    std::unique_ptr<CDicomItem> header(CDicomItem::CreateMetaHeader(kSopClass, kInstance, u"1.2.840.10008.1.2"));
    ASSERT_NE(header, nullptr);
    ASSERT_EQ(header->GetDataSize(), 132);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(header->GetData()) + 128, 4), "DICM");
    std::u16string order;
    for (CXmlItem* child : header->GetGroupItem(0x0002)->m_children)
        order += child->m_sName;
    EXPECT_EQ(order, u"e0000e0001e0002e0003e0010e0012e0013");
    const CDicomItem* syntax = header->GetTagItem(0x0002, 0x0010);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(syntax->GetData()), syntax->GetDataSize()),
              std::string("1.2.840.10008.1.2\0", 18));
}

TEST(MetaInformation, SizeAndExplicitVRTests)
{
    Bytes preamble = cat({Bytes(128, 0), text("DICM")});
    Bytes meta = cat({elem(0x0002, 0x0000, "UL", Bytes{0, 0, 0, 0}), elem(0x0002, 0x0001, "OB", Bytes{0, 1}),
                      elem(0x0002, 0x0010, "UI", "1.2.840.10008.1.2.4.50")});
    Bytes file = cat({preamble, meta, elem(0x0008, 0x0060, "CS", "CT")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(file.data(), file.size()), 132 + meta.size());
    Bytes noMeta = cat({preamble, elem(0x0008, 0x0060, "CS", "CT")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(noMeta.data(), noMeta.size()), 132u);
    Bytes noMagic = cat({Bytes(132, 0), meta});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(noMagic.data(), noMagic.size()), 0u);
    // UT is read as implicit: its 32-bit "length" runs past the end.
    Bytes ut = cat({preamble, elem(0x0002, 0x0100, "UT", "x")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(ut.data(), ut.size()), ut.size());

    auto check = [](const Bytes& raw, size_t available) {
        TAG_HEADER copy;
        std::memcpy(&copy, raw.data(), 8);
        int extra = DICOMINFO::CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(raw.data()), available);
        return std::make_pair(extra, copy.nLength);
    };
    // Implicit length bytes that spell "UI" are taken for explicit VR; a long
    // form with only 8 bytes available is left as it is.
    const std::tuple<Bytes, size_t, int, uint32_t> cases[] = {
        {elem(0x7FE0, 0x0010, "OW", Bytes(6, 0)), 12, 4, 6u}, {elem(0x0008, 0x1140, "SQ", Bytes{}, kUndefined), 12, 4, kUndefined},
        {elem(0x0008, 0x0060, "CS", "CT"), 12, 0, 2u},       {elem(0x0008, 0x0060, "CS", Bytes{}, 0xFFFF), 12, 0, 0xFFFFu},
        {ielem(0x0010, 0x0010, text("Doe^John")), 12, 0, 8u}, {ielem(0x0010, 0x0010, {}, 0x00004955u), 12, 0, 0u},
        {elem(0x7FE0, 0x0010, "OB", Bytes{}), 8, 0, 0x424Fu}};
    for (const auto& [raw, available, extra, length] : cases)
        EXPECT_EQ(check(raw, available), std::make_pair(extra, length));
}

TEST(MetaInformation, BufferStartAndElementLookup)
{
    Bytes dataSet = cat({elem(0x0008, 0x0060, "CS", "CT"),
                         elem(0x0008, 0x1140, "SQ", cat({undefinedItem(elem(0x0010, 0x0020, "LO", "INNER ")), sequenceEnd()}), kUndefined),
                         elem(0x0010, 0x0010, "PN", "Doe^John"), elem(0x0010, 0x0020, "LO", "OUTER "),
                         elem(0x7FE0, 0x0010, "OW", Bytes(64, 0xAB)), elem(0x0028, 0x0010, "US", us(512))});
    Bytes file = cat({Meta(u"1.2.840.10008.1.2"), dataSet});
    ProbeRecord record;
    bool changed = false;
    EXPECT_EQ(record.ProcessMetaHeader(file.data(), file.size(), changed), file.data() + 132);
    EXPECT_TRUE(changed);  // the explicit group 0002 header at 132
    EXPECT_EQ(record.bHasMetaHeader, 1);
    EXPECT_EQ(record.sTransferSyntax, u"1.2.840.10008.1.2.1");
    Bytes rawSet = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), ielem(0x0010, 0x0010, text("Roe^Jane"))});
    ProbeRecord raw;
    EXPECT_EQ(raw.ProcessMetaHeader(rawSet.data(), rawSet.size(), changed), rawSet.data());
    EXPECT_FALSE(changed);
    EXPECT_EQ(raw.sTransferSyntax, u"1.2.840.10008.1.2");
    Bytes bigEndian = {0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0x10};  // (0000,0000) UL 4, big endian
    ProbeRecord swapped;
    swapped.ProcessMetaHeader(bigEndian.data(), bigEndian.size(), changed);
    EXPECT_EQ(swapped.bBigEndian, 1);

    std::u16string found = u"stale";
    const unsigned char* value = DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0010, 0x0010, found);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(value), 8), "Doe^John");
    EXPECT_EQ(found, u"Doe^John");
    DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0010, 0x0020, found);
    EXPECT_EQ(found, u"INNER");  // undefined lengths are entered, not skipped
    EXPECT_EQ(DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0028, 0x0010, found), nullptr);
    EXPECT_TRUE(found.empty());  // behind the pixel data
    EXPECT_NE(DICOMINFO::GetDicomTag(file.data(), file.size(), 0x7FE0, 0x0010, found), nullptr);
    EXPECT_EQ(found.size(), 32u);
    EXPECT_NE(DICOMINFO::GetDicomTag(rawSet.data(), rawSet.size(), 0x0010, 0x0010, found), nullptr);
    EXPECT_EQ(found, u"Roe^Jane");

    std::u16string kept = u"kept";
    EXPECT_EQ(DICOMINFO::FindTag(file.data(), file.size(), 0x0028, 0x0010, kept), 0);
    EXPECT_EQ(kept, u"kept");
    EXPECT_EQ(DICOMINFO::FindTag(file.data(), file.size(), 0x7FE0, 0x0010, kept), 1);
    EXPECT_EQ(kept.size(), 64u);
    // FindTag also starts at a first element (gggg,0008); GetDicomTag does not.
    Bytes command = cat({ielem(0x0000, 0x0008, us(0x0101)), ielem(0x0000, 0x0900, us(0))});
    EXPECT_EQ(DICOMINFO::GetDicomTag(command.data(), command.size(), 0x0000, 0x0900, found), nullptr);
    EXPECT_EQ(DICOMINFO::FindTag(command.data(), command.size(), 0x0000, 0x0900, found), 1);

    // Every prefix and damaged byte of the file, and pydicom's samples cut at
    // every early position and at steps further on, in exact-size copies:
    // scans and walkers stay inside (the sanitizer build checks) and report
    // nothing beyond the cut.
    auto scan = [](Bytes exact) {
        std::u16string text;
        const unsigned char *begin = exact.data(), *end = begin + exact.size();
        size_t meta = DICOMINFO::GetMetaHeaderSize(begin, exact.size());
        ASSERT_LE(meta, exact.size());
        const unsigned char* value = DICOMINFO::GetDicomTag(begin, exact.size(), 0x0010, 0x0010, text);
        EXPECT_TRUE(!value || (value >= begin && value <= end));
        DICOMINFO::GetDicomTag(begin, exact.size(), 0x7FE0, 0x0010, text);
        DICOMINFO::FindTag(begin, exact.size(), 0x0028, 0x0010, text);
        ProbeRecord record;
        bool changed = false;
        const unsigned char* start = record.ProcessMetaHeader(begin, exact.size(), changed);
        EXPECT_TRUE(start >= begin && start <= end);
        int remaining = static_cast<int>(exact.size() - meta);
        DICOMINFO::ReadTags(exact.data() + meta, remaining, [](TAG_HEADER*, void*) {}, nullptr);
        CXmlItem display(u"ROOT", u"", "ISO_IR 100");
        EXPECT_LE(DICOMINFO::LoadDicomData(exact.data() + meta, remaining, &display), uint32_t(remaining));
    };
    for (size_t cut = 0; cut <= file.size(); ++cut)
        scan(Bytes(file.begin(), file.begin() + static_cast<long>(cut)));
    for (size_t at = 128; at < file.size(); ++at)
        for (unsigned char byte : {0x00, 0xFF, 0x80}) {
            Bytes damaged = file;
            damaged[at] = byte;
            scan(damaged);
        }
    PYDICOM_DATA_OR_FAIL(dataDir);
    for (const char* name : {"CT_small.dcm", "rtplan.dcm", "MR_small_implicit.dcm", "nested_priv_SQ.dcm",
                             "ExplVR_BigEndNoMeta.dcm", "rtstruct.dcm"}) {
        SCOPED_TRACE(name);
        Bytes whole = ReadFile(dataDir + "/test_files/" + name);
        ASSERT_FALSE(whole.empty()) << name;
        for (size_t cut = 0; cut <= whole.size(); cut += cut < 2048 ? 1 : 61)
            scan(Bytes(whole.begin(), whole.begin() + static_cast<long>(cut)));
    }
}

TEST(MetaInformation, FileTests)
{
    Bytes rawSet = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0010, 0x0010, "PN", "Doe^John")});
    std::u16string noPreamble = AsciiToWide(TempFile("raw.dcm", rawSet));
    std::u16string notes = AsciiToWide(TempFile("notes.txt", text("Just some notes, not an image.\n")));
    std::u16string part10 = AsciiToWide(TempFile("part10.dcm", cat({Meta(u"1.2.840.10008.1.2.4.70"), rawSet})));
    EXPECT_EQ(DICOMINFO::FileIsDicom(noPreamble, 0) + DICOMINFO::FileHasDicomMetaHeader(noPreamble), 1);
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(noPreamble), u"1.2.840.10008.1.2.1");  // VR letters seen
    EXPECT_EQ(DICOMINFO::FileIsDicom(notes, 0), 0);
    EXPECT_EQ(DICOMINFO::FileIsDicom(part10, 0) + DICOMINFO::FileHasDicomMetaHeader(part10), 2);
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(part10), u"1.2.840.10008.1.2.4.70");
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(u"/nonexistent/zeldicom.dcm"), u"1.2.840.10008.1.2");
    for (const std::u16string& path : {noPreamble, notes, part10})
        std::remove(WideToAscii(path).c_str());
}

// New files: a raw meta header with a data set encoded from an element tree
// (explicit VR) or with the raw writers (implicit VR), and a whole object
// with a CreateMetaHeader "Header"; dcmdump and pydicom read them cleanly.
TEST(MetaInformation, NewFilesReadByPeers)
{
    ASSERT_EQ(RunShell("command -v dcmdump && /usr/bin/python3 -c 'import pydicom'").first, 0)
        << "dcmdump and pydicom are needed (scripts/setup installs them)";
    CDicomItem data(u"Data");
    FillDataSet(data);
    CDynBuffer fromTree, fromWriters, wholeObject;
    metaHeaderInfo info;
    Fill(info, u"1.2.840.10008.1.2.1");
    DICOMINFO::FillMetaHeaderBuffer(fromTree, &info);
    ASSERT_NE(data.RecalcTags(true, fromTree.m_nSize), kUndefined);
    ASSERT_NE(data.SaveTags(true, CDynBuffer::WriteProc, &fromTree), kUndefined);

    Fill(info, u"1.2.840.10008.1.2");
    DICOMINFO::FillMetaHeaderBuffer(fromWriters, &info);
    DICOMINFO::AddTagByVR(fromWriters, u"UI", 0x0008, 0x0016, kSopClass, u"ISO_IR 100");
    DICOMINFO::AddTagByVR(fromWriters, u"UI", 0x0008, 0x0018, kInstance, u"ISO_IR 100");
    DICOMINFO::AddTagByVR(fromWriters, u"CS", 0x0008, 0x0060, u"OT", u"ISO_IR 100");
    DICOMINFO::AddTag(fromWriters, 0x0008, 0x1140);
    uint32_t itemAt = fromWriters.m_nSize;
    DICOMINFO::AddTagByVR(fromWriters, u"UI", 0x0008, 0x1150, kSopClass, u"ISO_IR 100");
    DICOMINFO::AddTagByVR(fromWriters, u"UI", 0x0008, 0x1155, u"1.2.3.4.5", u"ISO_IR 100");
    Bytes itemHeader = ielem(0xFFFE, 0xE000, {}, fromWriters.m_nSize - itemAt);
    fromWriters.Insert(itemHeader.data(), 8, itemAt);
    fromWriters.Add(sequenceEnd().data(), 8);
    DICOMINFO::AddTagByVR(fromWriters, u"PN", 0x0010, 0x0010, u"Doe^John", u"ISO_IR 100");

    DICOMINFO::SetDicomRoot(u"1.2.826.0.1.3680043.2.1125");
    CDicomItem root(u"Object");
    root.AddItem(CDicomItem::CreateMetaHeader(kSopClass, kInstance, u"1.2.840.10008.1.2.1"));
    auto* rootData = new CDicomItem(u"Data");
    root.AddItem(rootData);
    FillDataSet(*rootData);
    ASSERT_TRUE(root.SaveObject(CDynBuffer::WriteProc, &wholeObject));

    for (CDynBuffer* buffer : {&fromTree, &fromWriters, &wholeObject}) {
        std::string path = TempFile("new.dcm", Contents(*buffer));
        std::string syntax = buffer == &fromWriters ? "1.2.840.10008.1.2" : "1.2.840.10008.1.2.1";
        auto [status, out] = RunShell("dcmdump " + path);
        EXPECT_EQ(status, 0) << out;
        EXPECT_EQ(out.find("W: "), std::string::npos) << out;
        EXPECT_EQ(out.find("E: "), std::string::npos) << out;
        EXPECT_NE(out.find("(0008,1155) UI [1.2.3.4.5]"), std::string::npos) << out;
        EXPECT_NE(out.find(buffer == &wholeObject ? "(0002,0012) UI [1.2.826.0.1.3680043.2.1125]"
                                                  : "(0002,0016) AE [ZELTEST]"),
                  std::string::npos)
            << out;
        auto [pyStatus, pyOut] = RunShell(
            "/usr/bin/python3 -W error -c \"import pydicom; from pydicom import config; "
            "config.settings.reading_validation_mode = config.RAISE; d = pydicom.dcmread('" + path + "'); "
            "print(d.file_meta.TransferSyntaxUID, d.PatientName, d.ReferencedImageSequence[0].ReferencedSOPInstanceUID)\"");
        EXPECT_EQ(pyStatus, 0) << pyOut;
        EXPECT_EQ(pyOut, syntax + " Doe^John 1.2.3.4.5\n");
        std::remove(path.c_str());
    }
}
