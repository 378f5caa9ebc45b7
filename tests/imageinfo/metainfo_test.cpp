// File meta information: building it (tree and raw buffer), the raw scans
// of buffers and files, compression types, and new files read back by the
// peers (DCMTK's dcmdump, pydicom).
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace parsefix;

namespace {

const char16_t* const kCTImageStorage = u"1.2.840.10008.5.1.4.1.1.7";
const char16_t* const kInstance = u"1.2.826.0.1.3680043.2.1125.7.42";

// Exposes the protected buffer start analysis.
struct ProbeRecord : DICOMINFO {
    using DICOMINFO::ProcessMetaHeader;
};

Bytes ui(const std::string& value)
{
    Bytes bytes = text(value);
    if (bytes.size() % 2)
        bytes.push_back(0);
    return bytes;
}

metaHeaderInfo SampleInfo(const std::u16string& transferSyntax)
{
    metaHeaderInfo info;
    info.sMediaStorageSOPClassUID = kCTImageStorage;
    info.sMediaStorageSOPInstanceUID = kInstance;
    info.sTransferSyntax = transferSyntax;
    info.sImplementationClassUID = u"1.2.826.0.1.3680043.2.1125.1";
    info.sImplementationVersionName = u"ZEL_0_1";
    info.sSourceAETitle = u"ZELTEST";
    return info;
}

Bytes Contents(const CDynBuffer& buffer)
{
    return Bytes(buffer.GetData(), buffer.GetData() + buffer.m_nSize);
}

Bytes MetaBuffer(const std::u16string& transferSyntax)
{
    CDynBuffer buffer;
    metaHeaderInfo info = SampleInfo(transferSyntax);
    DICOMINFO::FillMetaHeaderBuffer(buffer, &info);
    return Contents(buffer);
}

std::string TempFile(const std::string& name, const Bytes& bytes)
{
    std::string path = "/tmp/zeldicom-h4-" + std::to_string(getpid()) + "-" + name;
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()),
                                                static_cast<std::streamsize>(bytes.size()));
    return path;
}

struct Command {
    int status;
    std::string output;  // stdout and stderr together
};

Command RunShell(const std::string& command)
{
    Command result{-1, ""};
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        char chunk[4096];
        size_t n;
        while ((n = fread(chunk, 1, sizeof chunk, pipe)) > 0)
            result.output.append(chunk, n);
        int status = pclose(pipe);
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    return result;
}

bool HaveProgram(const std::string& name)
{
    return RunShell("command -v " + name + " >/dev/null").status == 0;
}

// A small data set with a sequence, built as an element tree.
void FillDataSet(CDicomItem& data)
{
    data.AddTag(0x0008, 0x0005, u"ISO_IR 100", u"");
    data.AddTag(0x0008, 0x0016, kCTImageStorage, u"");
    data.AddTag(0x0008, 0x0018, kInstance, u"");
    data.AddTag(0x0008, 0x0060, u"OT", u"");
    CDicomItem* sequence = data.AddSequence(0x0008, 0x1140);
    ASSERT_NE(sequence, nullptr);
    CDicomItem* item = sequence->InsertSequenceItem();
    ASSERT_NE(item, nullptr);
    item->AddTag(0x0008, 0x1150, u"1.2.840.10008.5.1.4.1.1.7", u"");
    item->AddTag(0x0008, 0x1155, u"1.2.3.4.5", u"");
    data.AddTag(0x0010, 0x0010, u"Doe^John", u"");
    data.AddTag(0x0010, 0x0020, u"PID42", u"");
    data.AddTag(0x0020, 0x000D, u"1.2.826.0.1.3680043.2.1125.7.1", u"");
    data.AddTag(0x0020, 0x000E, u"1.2.826.0.1.3680043.2.1125.7.2", u"");
}

}

TEST(MetaInformation, CompressionTypes)
{
    DICOMINFO info;
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2"), 0);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.2"), 0);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.50"), 1);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.56"), 1);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.57"), 2);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.59"), 1);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.64"), 1);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.66"), 2);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.70"), 2);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.5"), 3);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.90"), 4);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.91"), 5);
    // Exact comparison: padding or a longer UID is not the same syntax.
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.70 "), 0);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(std::u16string(u"1.2.840.10008.1.2.4.91\0", 23)), 0);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.5"), 0);
    EXPECT_EQ(info.GetCompTypeFromTransferSyntax(u"1.2.840.10008.1.2.4.80"), 0);
}

TEST(MetaInformation, BufferLayout)
{
    Bytes head = MetaBuffer(u"1.2.840.10008.1.2.1");
    ASSERT_GT(head.size(), 144u);
    EXPECT_EQ(Bytes(head.begin(), head.begin() + 128), Bytes(128, 0));
    EXPECT_EQ(std::string(head.begin() + 128, head.begin() + 132), "DICM");
    // The group length counts every group 0002 byte after its own element.
    EXPECT_EQ(Bytes(head.begin() + 132, head.begin() + 140), (Bytes{0x02, 0x00, 0x00, 0x00, 'U', 'L', 4, 0}));
    uint32_t groupLength = head[140] | head[141] << 8 | head[142] << 16 | static_cast<uint32_t>(head[143]) << 24;
    EXPECT_EQ(groupLength, head.size() - 144);
    EXPECT_EQ(Bytes(head.begin() + 144, head.begin() + 158),
              (Bytes{0x02, 0x00, 0x01, 0x00, 'O', 'B', 0, 0, 2, 0, 0, 0, 0x00, 0x01}));
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(head.data(), head.size()), head.size());
    EXPECT_EQ(DICOMINFO::GetFirstTagAfterMetaHeader(head.data(), head.size()), head.data() + head.size());

    // The parser reads every value back from the buffer.
    Bytes file = cat({head, elem(0x0008, 0x0060, "CS", "OT")});
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(file.data(), static_cast<int>(file.size())));
    CDicomItem* header = static_cast<CDicomItem*>(root.GetChildItem(u"Header"));
    std::u16string value;
    ASSERT_TRUE(header->GetTagValue(0x0002, 0x0003, value));
    EXPECT_EQ(value, kInstance);
    ASSERT_TRUE(header->GetTagValue(0x0002, 0x0016, value));
    EXPECT_EQ(value, u"ZELTEST");

    // The record's own fields give the same bytes.
    DICOMINFO record;
    metaHeaderInfo sample = SampleInfo(u"1.2.840.10008.1.2.1");
    record.sMediaStorageSOPClassUID = sample.sMediaStorageSOPClassUID;
    record.sMediaStorageSOPInstanceUID = sample.sMediaStorageSOPInstanceUID;
    record.sTransferSyntax = sample.sTransferSyntax;
    record.sImplementationClassUID = sample.sImplementationClassUID;
    record.sImplementationVersionName = sample.sImplementationVersionName;
    record.sSourceAETitle = sample.sSourceAETitle;
    CDynBuffer fromRecord;
    EXPECT_EQ(record.CreateMetaHeaderBuffer(fromRecord), head.size());
    EXPECT_EQ(Contents(fromRecord), head);
}

TEST(MetaInformation, TreeForm)
{
    DICOMINFO::SetDicomRoot(u"1.2.826.0.1.3680043.2.1125");
    int major = DICOMINFO::GetVersionMajor(), minor = DICOMINFO::GetVersionMinor(), rev = DICOMINFO::GetVersionRev();
    DICOMINFO::SetVersionMajor(1);
    DICOMINFO::SetVersionMinor(2);
    DICOMINFO::SetVersionRev(3);
    CDicomItem* header = CDicomItem::CreateMetaHeader(kCTImageStorage, kInstance, u"1.2.840.10008.1.2");
    DICOMINFO::SetVersionMajor(major);
    DICOMINFO::SetVersionMinor(minor);
    DICOMINFO::SetVersionRev(rev);
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(header->m_sName, u"Header");
    ASSERT_EQ(header->GetDataSize(), 132);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(header->GetData()) + 128, 4), "DICM");
    CDicomItem* group = header->GetGroupItem(0x0002);
    ASSERT_NE(group, nullptr);
    std::vector<int> order;
    for (int i = 0; i < group->GetChildCount(); ++i) {
        int element = CDicomItem::ParseElementName(group->GetChildItem(i)->m_sName);
        if (element >= 0)
            order.push_back(element);
    }
    EXPECT_EQ(order, (std::vector<int>{0x0000, 0x0001, 0x0002, 0x0003, 0x0010, 0x0012, 0x0013}));
    CDicomItem* version = header->GetTagItem(0x0002, 0x0013);
    ASSERT_NE(version, nullptr);
    // "1_2_3" is odd: one blank makes it even.
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(version->GetData()), version->GetDataSize()), "1_2_3 ");
    CDicomItem* syntax = header->GetTagItem(0x0002, 0x0010);
    EXPECT_EQ(syntax->GetDataSize(), 18);
    EXPECT_EQ(syntax->GetData()[17], 0);
    std::u16string value;
    ASSERT_TRUE(header->GetTagValue(0x0002, 0x0012, value));
    EXPECT_EQ(value, u"1.2.826.0.1.3680043.2.1125");
    EXPECT_EQ(header->GetTagItem(0x0002, 0x0001)->GetData()[1], 0x01);
    delete header;
}

TEST(MetaInformation, MetaSizeAndExplicitTest)
{
    // Meta information elements with their dictionary VRs, then the data set.
    Bytes meta = cat({elem(0x0002, 0x0000, "UL", Bytes{0, 0, 0, 0}), elem(0x0002, 0x0001, "OB", Bytes{0, 1}),
                      elem(0x0002, 0x0010, "UI", ui("1.2.840.10008.1.2.1"))});
    Bytes preamble = cat({Bytes(128, 0), text("DICM")});
    Bytes file = cat({preamble, meta, elem(0x0008, 0x0060, "CS", "CT")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(file.data(), file.size()), 132 + meta.size());
    Bytes noMeta = cat({preamble, elem(0x0008, 0x0060, "CS", "CT")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(noMeta.data(), noMeta.size()), 132u);
    Bytes noMagic = cat({Bytes(132, 0), meta});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(noMagic.data(), noMagic.size()), 0u);
    // "UT" is not among the letters the scan knows: read as implicit, its
    // 32-bit length runs past the end and the size stops at the end.
    Bytes unknownVR = cat({preamble, elem(0x0002, 0x0100, "UT", "x")});
    EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(unknownVR.data(), unknownVR.size()), unknownVR.size());

    auto check = [](const Bytes& raw, uint32_t& length) {
        TAG_HEADER copy;
        std::memcpy(&copy, raw.data(), 8);
        int extra = DICOMINFO::CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(raw.data()), raw.size());
        length = copy.nLength;
        return extra;
    };
    uint32_t length = 0;
    EXPECT_EQ(check(elem(0x7FE0, 0x0010, "OW", Bytes(6, 0)), length), 4);
    EXPECT_EQ(length, 6u);
    EXPECT_EQ(check(elem(0x0008, 0x0060, "CS", "CT"), length), 0);
    EXPECT_EQ(length, 2u);
    EXPECT_EQ(check(elem(0x0008, 0x1140, "SQ", Bytes{}, kUndefined), length), 4);
    EXPECT_EQ(length, kUndefined);
    // A short form may carry 0xFFFF as its 16-bit length.
    Bytes shortUndefined = {0x08, 0x00, 0x60, 0x00, 'C', 'S', 0xFF, 0xFF};
    EXPECT_EQ(check(shortUndefined, length), 0);
    EXPECT_EQ(length, 0xFFFFu);
    // Implicit header whose length bytes spell "UI": taken for explicit VR.
    Bytes lookalike = ielem(0x0010, 0x0010, {}, 0x00004955u);
    EXPECT_EQ(check(lookalike, length), 0);
    EXPECT_NE(length, 0x00004955u);
    Bytes implicit = ielem(0x0010, 0x0010, text("Doe^John"));
    EXPECT_EQ(check(implicit, length), 0);
    EXPECT_EQ(length, 8u);
    // A long form cut after 8 bytes is left as it is.
    Bytes cutLong = elem(0x7FE0, 0x0010, "OB", Bytes{});
    TAG_HEADER copy;
    std::memcpy(&copy, cutLong.data(), 8);
    EXPECT_EQ(DICOMINFO::CheckExplicitVR(&copy, reinterpret_cast<const TAG_HEADER*>(cutLong.data()), 8), 0);
}

TEST(MetaInformation, BufferStartAnalysis)
{
    Bytes dataSet = cat({elem(0x0008, 0x0060, "CS", "CT"), elem(0x0010, 0x0010, "PN", "Doe^John")});
    Bytes file = cat({MetaBuffer(u"1.2.840.10008.1.2"), dataSet});
    ProbeRecord record;
    bool changed = true;
    const unsigned char* start = record.ProcessMetaHeader(file.data(), file.size(), changed);
    EXPECT_EQ(start, file.data() + 132);
    EXPECT_EQ(record.bHasMetaHeader, 1);
    // The header at 132 is an explicit group 0002 element.
    EXPECT_TRUE(changed);
    EXPECT_EQ(record.sTransferSyntax, u"1.2.840.10008.1.2.1");

    Bytes implicitSet = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), ielem(0x0010, 0x0010, text("Doe^John"))});
    ProbeRecord raw;
    start = raw.ProcessMetaHeader(implicitSet.data(), implicitSet.size(), changed);
    EXPECT_EQ(start, implicitSet.data());
    EXPECT_FALSE(changed);
    EXPECT_EQ(raw.bHasMetaHeader, 0);
    EXPECT_EQ(raw.sTransferSyntax, u"1.2.840.10008.1.2");

    // A big endian command group length (0000,0000) UL of 4.
    Bytes bigEndian = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x00, 0x00, 0x00, 0x10};
    ProbeRecord swapped;
    start = swapped.ProcessMetaHeader(bigEndian.data(), bigEndian.size(), changed);
    EXPECT_EQ(swapped.bBigEndian, 1);
    EXPECT_FALSE(changed);

    ProbeRecord tiny;
    EXPECT_EQ(tiny.ProcessMetaHeader(file.data(), 5, changed), file.data());
    EXPECT_FALSE(changed);
}

TEST(MetaInformation, ElementLookup)
{
    Bytes pixel = elem(0x7FE0, 0x0010, "OW", Bytes(64, 0xAB));
    Bytes dataSet = cat({elem(0x0008, 0x0060, "CS", "CT"),
                         elem(0x0008, 0x1140, "SQ", cat({undefinedItem(elem(0x0010, 0x0020, "LO", "INNER ")), sequenceEnd()}), kUndefined),
                         elem(0x0010, 0x0010, "PN", "Doe^John"), elem(0x0010, 0x0020, "LO", "OUTER "), pixel,
                         elem(0x0028, 0x0010, "US", us(512))});
    Bytes file = cat({MetaBuffer(u"1.2.840.10008.1.2.1"), dataSet});
    std::u16string found = u"stale";
    const unsigned char* value = DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0010, 0x0010, found);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(value), 8), "Doe^John");
    EXPECT_EQ(found, u"Doe^John");
    // Undefined lengths are not skipped: the item's element is found first.
    DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0010, 0x0020, found);
    EXPECT_EQ(found, u"INNER");
    // Behind the pixel data nothing is found; the text is emptied.
    EXPECT_EQ(DICOMINFO::GetDicomTag(file.data(), file.size(), 0x0028, 0x0010, found), nullptr);
    EXPECT_TRUE(found.empty());
    // The pixel data itself gives its first 32 bytes.
    value = DICOMINFO::GetDicomTag(file.data(), file.size(), 0x7FE0, 0x0010, found);
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(found.size(), 32u);

    std::u16string kept = u"kept";
    EXPECT_EQ(DICOMINFO::FindTag(file.data(), file.size(), 0x0028, 0x0010, kept), 0);
    EXPECT_EQ(kept, u"kept");
    EXPECT_EQ(DICOMINFO::FindTag(file.data(), file.size(), 0x0008, 0x0060, kept), 1);
    EXPECT_EQ(kept, u"CT");
    EXPECT_EQ(DICOMINFO::FindTag(file.data(), file.size(), 0x7FE0, 0x0010, kept), 1);
    EXPECT_EQ(kept.size(), 64u);

    // A raw data set without meta information is scanned from its start.
    Bytes rawSet = cat({ielem(0x0008, 0x0005, text("ISO_IR 100")), ielem(0x0010, 0x0010, text("Roe^Jane"))});
    EXPECT_NE(DICOMINFO::GetDicomTag(rawSet.data(), rawSet.size(), 0x0010, 0x0010, found), nullptr);
    EXPECT_EQ(found, u"Roe^Jane");
    // FindTag also starts at (gggg,0016) / (gggg,0008); GetDicomTag does not.
    Bytes command = cat({ielem(0x0000, 0x0008, us(0x0101)), ielem(0x0000, 0x0900, us(0))});
    EXPECT_EQ(DICOMINFO::GetDicomTag(command.data(), command.size(), 0x0000, 0x0900, found), nullptr);
    EXPECT_EQ(DICOMINFO::FindTag(command.data(), command.size(), 0x0000, 0x0900, found), 1);
}

TEST(MetaInformation, ScansSurviveTruncationAndDamage)
{
    Bytes dataSet = cat({elem(0x0008, 0x0060, "CS", "CT"),
                         elem(0x0008, 0x1140, "SQ", cat({undefinedItem(elem(0x0010, 0x0020, "LO", "IN")), sequenceEnd()}), kUndefined),
                         elem(0x0010, 0x0010, "PN", "Doe^John"), elem(0x7FE0, 0x0010, "OB", Bytes(40, 1))});
    Bytes file = cat({MetaBuffer(u"1.2.840.10008.1.2.1"), dataSet});
    auto scanAll = [](const Bytes& input) {
        std::vector<unsigned char> exact(input);
        const unsigned char* p = exact.data();
        size_t size = exact.size();
        std::u16string text;
        DICOMINFO::GetMetaHeaderSize(p, size);
        DICOMINFO::GetFirstTagAfterMetaHeader(p, size);
        DICOMINFO::GetDicomTag(p, size, 0x0010, 0x0010, text);
        DICOMINFO::GetDicomTag(p, size, 0x7FE0, 0x0010, text);
        DICOMINFO::FindTag(p, size, 0x7FE0, 0x0010, text);
        DICOMINFO::FindTag(p, size, 0x0028, 0x0010, text);
        ProbeRecord record;
        bool changed = false;
        const unsigned char* start = record.ProcessMetaHeader(p, size, changed);
        EXPECT_TRUE(start >= p && start <= p + size);
    };
    for (size_t cut = 0; cut <= file.size(); ++cut)
        scanAll(Bytes(file.begin(), file.begin() + static_cast<long>(cut)));
    for (size_t at = 128; at < file.size(); ++at) {
        for (unsigned char value : {0x00, 0xFF, 0x80}) {
            Bytes damaged = file;
            damaged[at] = value;
            scanAll(damaged);
        }
    }
}

TEST(MetaInformation, FileTests)
{
    Bytes rawSet = cat({elem(0x0008, 0x0005, "CS", "ISO_IR 100"), elem(0x0010, 0x0010, "PN", "Doe^John")});
    std::string noPreamble = TempFile("nopreamble.dcm", rawSet);
    EXPECT_EQ(DICOMINFO::FileIsDicom(AsciiToWide(noPreamble), 0), 1);
    EXPECT_EQ(DICOMINFO::FileHasDicomMetaHeader(AsciiToWide(noPreamble)), 0);
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(AsciiToWide(noPreamble)), u"1.2.840.10008.1.2.1");

    std::string implicitRaw = TempFile("implicit.dcm", cat({ielem(0x0008, 0x0005, text("ISO_IR 100"))}));
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(AsciiToWide(implicitRaw)), u"1.2.840.10008.1.2");

    std::string textFile = TempFile("notes.txt", text("Just some notes, not an image at all.\n"));
    EXPECT_EQ(DICOMINFO::FileIsDicom(AsciiToWide(textFile), 0), 0);
    EXPECT_EQ(DICOMINFO::FileIsDicom(u"/nonexistent/zeldicom/file.dcm", 0), 0);
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(u"/nonexistent/zeldicom/file.dcm"), u"1.2.840.10008.1.2");

    std::string part10 = TempFile("part10.dcm", cat({MetaBuffer(u"1.2.840.10008.1.2.4.70"), rawSet}));
    EXPECT_EQ(DICOMINFO::FileIsDicom(AsciiToWide(part10), 0), 1);
    EXPECT_EQ(DICOMINFO::FileHasDicomMetaHeader(AsciiToWide(part10)), 1);
    EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(AsciiToWide(part10)), u"1.2.840.10008.1.2.4.70");

    // The big endian command group length pattern counts unless the flag is set.
    std::string bigEndian = TempFile("be.dcm", Bytes{0, 0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0});
    EXPECT_EQ(DICOMINFO::FileIsDicom(AsciiToWide(bigEndian), 0), 1);
    EXPECT_EQ(DICOMINFO::FileIsDicom(AsciiToWide(bigEndian), 1), 0);
    for (const std::string& path : {noPreamble, implicitRaw, textFile, part10, bigEndian})
        std::remove(path.c_str());
}

// New files made from a meta header built here and a data set encoded from
// an element tree (explicit VR) or with the raw writers (implicit VR) read
// back in dcmdump and pydicom without a warning.
TEST(MetaInformation, NewFilesReadByPeers)
{
    bool haveDcmdump = HaveProgram("dcmdump");
    bool havePydicom = RunShell("/usr/bin/python3 -c 'import pydicom'").status == 0;
    if (!haveDcmdump && !havePydicom)
        GTEST_SKIP() << "neither dcmdump nor pydicom is installed";

    CDicomItem data(u"Data");
    FillDataSet(data);
    CDynBuffer explicitFile;
    metaHeaderInfo info = SampleInfo(u"1.2.840.10008.1.2.1");
    DICOMINFO::FillMetaHeaderBuffer(explicitFile, &info);
    ASSERT_NE(data.RecalcTags(true, explicitFile.m_nSize), kUndefined);
    ASSERT_NE(data.SaveTags(true, CDynBuffer::WriteProc, &explicitFile), kUndefined);

    CDynBuffer implicitFile;
    info = SampleInfo(u"1.2.840.10008.1.2");
    DICOMINFO::FillMetaHeaderBuffer(implicitFile, &info);
    DICOMINFO::AddTagByVR(implicitFile, u"UI", 0x0008, 0x0016, std::u16string(kCTImageStorage), u"ISO_IR 100");
    DICOMINFO::AddTagByVR(implicitFile, u"UI", 0x0008, 0x0018, std::u16string(kInstance), u"ISO_IR 100");
    DICOMINFO::AddTagByVR(implicitFile, u"CS", 0x0008, 0x0060, u"OT", u"ISO_IR 100");
    DICOMINFO::AddTag(implicitFile, 0x0008, 0x1140);
    uint32_t itemAt = implicitFile.m_nSize;
    DICOMINFO::AddTagByVR(implicitFile, u"UI", 0x0008, 0x1150, u"1.2.840.10008.5.1.4.1.1.7", u"ISO_IR 100");
    DICOMINFO::AddTagByVR(implicitFile, u"UI", 0x0008, 0x1155, u"1.2.3.4.5", u"ISO_IR 100");
    // A defined-length item: its header goes in front of its elements.
    Bytes itemHeader = ielem(0xFFFE, 0xE000, {}, implicitFile.m_nSize - itemAt);
    implicitFile.Insert(itemHeader.data(), 8, itemAt);
    Bytes end = sequenceEnd();
    implicitFile.Add(end.data(), 8);
    DICOMINFO::AddTagByVR(implicitFile, u"PN", 0x0010, 0x0010, u"Doe^John", u"ISO_IR 100");
    DICOMINFO::AddTagByVR(implicitFile, u"LO", 0x0010, 0x0020, u"PID42", u"ISO_IR 100");

    // The tree form: a "Header" from CreateMetaHeader beside the data set,
    // saved as a whole object (the group length is filled in on saving).
    DICOMINFO::SetDicomRoot(u"1.2.826.0.1.3680043.2.1125");
    CDicomItem root(u"Object");
    CDicomItem* header = CDicomItem::CreateMetaHeader(kCTImageStorage, kInstance, u"1.2.840.10008.1.2.1");
    ASSERT_NE(header, nullptr);
    root.AddItem(header);
    auto* treeData = new CDicomItem(u"Data");
    root.AddItem(treeData);
    FillDataSet(*treeData);
    CDynBuffer treeFile;
    ASSERT_TRUE(root.SaveObject(CDynBuffer::WriteProc, &treeFile));

    for (CDynBuffer* buffer : {&explicitFile, &implicitFile, &treeFile}) {
        std::string path = TempFile(buffer == &implicitFile ? "implicit.dcm" : "explicit.dcm", Contents(*buffer));
        if (haveDcmdump) {
            Command dump = RunShell("dcmdump " + path);
            EXPECT_EQ(dump.status, 0) << dump.output;
            EXPECT_EQ(dump.output.find("W: "), std::string::npos) << dump.output;
            EXPECT_EQ(dump.output.find("E: "), std::string::npos) << dump.output;
            EXPECT_NE(dump.output.find("[Doe^John]"), std::string::npos) << dump.output;
            if (buffer != &treeFile)
                EXPECT_NE(dump.output.find("(0002,0016) AE [ZELTEST]"), std::string::npos) << dump.output;
            else
                EXPECT_NE(dump.output.find("(0002,0012) UI [1.2.826.0.1.3680043.2.1125]"), std::string::npos)
                    << dump.output;
            EXPECT_NE(dump.output.find("(0008,1155) UI [1.2.3.4.5]"), std::string::npos) << dump.output;
        }
        if (havePydicom) {
            Command read = RunShell("/usr/bin/python3 -W error -c \"import pydicom; from pydicom import config; "
                               "config.settings.reading_validation_mode = config.RAISE; "
                               "d = pydicom.dcmread('" + path + "'); "
                               "print(d.file_meta.TransferSyntaxUID, d.PatientName, "
                               "d.ReferencedImageSequence[0].ReferencedSOPInstanceUID, "
                               "d.file_meta.FileMetaInformationGroupLength)\"");
            EXPECT_EQ(read.status, 0) << read.output;
            std::string syntax = buffer == &implicitFile ? "1.2.840.10008.1.2 " : "1.2.840.10008.1.2.1 ";
            EXPECT_EQ(read.output.rfind(syntax + "Doe^John 1.2.3.4.5 ", 0), 0u) << read.output;
        }
        std::remove(path.c_str());
    }
}
