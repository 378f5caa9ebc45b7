// Header creation: CreateHeader's Secondary Capture data set read back by
// the library's own record reader, and CreateHeaderCompressed's file head
// completed with fragments and read by pydicom and DCMTK.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <set>
#include <vector>
#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "support/dicomwriter.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "support/cli.h"
#include "support/tree.h"

using namespace testsupport;
using namespace zeldicom;

namespace {

// A record as a capturing application fills it: 16-bit greyscale with a
// modality LUT, an overlay in group 6002 and pixel spacing.
std::unique_ptr<DICOMINFO> CapturedRecord()
{
    auto info = std::make_unique<DICOMINFO>();
    info->sSOPInstanceUID = u"1.2.826.0.1.3680043.9.7.1";
    info->sStudyInstanceUID = u"1.2.826.0.1.3680043.9.7.2";
    info->sSeriesInstanceUID = u"1.2.826.0.1.3680043.9.7.3";
    info->lStudyDate = 20240105;
    info->lContentDate = 20240229;
    info->lStudyTime = 93000;
    info->lContentTime = 235959;
    info->lPatientBirthDate = 19700101;
    info->sPatientName = u"Doe^Jane";
    info->sPatientID = u"P-17";
    info->sPatientSex = u"female";
    info->sModality = u"OT";
    info->sSeriesNumber = u"4";
    info->sInstanceNumber = u"9";
    info->nRows = 3;
    info->nColumns = 5;
    info->nBitsAllocated = 16;
    info->nBitsStored = 12;
    info->nHighBit = 11;
    info->dRowSpacing = 0.5;
    info->dColumnSpacing = 0.25;
    info->nWindowCenter = 100;
    info->nWindowWidth = 300;
    const uint16_t descriptor[3] = {4, 10, 16};
    const uint16_t entries[4] = {7, 8, 900, 4095};
    info->ModalityLut.LoadDescriptor(descriptor, 0);
    info->ModalityLut.LoadData(entries, 0, 4);
    const uint16_t paletteDescriptor[3] = {3, 0, 16};
    const uint16_t shades[3][3] = {{1, 2, 3}, {40, 50, 60}, {700, 800, 65535}};
    DICOM_LUT* palettes[3] = {&info->RedPaletteLut, &info->GreenPaletteLut, &info->BluePaletteLut};
    for (int i = 0; i < 3; ++i) {
        palettes[i]->LoadDescriptor(paletteDescriptor, 0);
        palettes[i]->LoadData(shades[i], 0, 3);
    }
    auto overlay = std::make_unique<DICOM_OVERLAY>(2);
    overlay->wRows = 3;
    overlay->wColumns = 5;
    overlay->nOriginRow = 2;
    overlay->nOriginColumn = -3;
    overlay->wBitsAllocated = 1;
    const unsigned char bits[2] = {0x5A, 0x01};
    overlay->SetData(bits, 2);
    info->aOverlays.push_back(std::move(overlay));
    return info;
}

// The header behind meta information, with pixels: a whole file image.
Bytes WholeFile(const DICOMINFO& record, const Bytes& pixels)
{
    CDynBuffer header, file;
    EXPECT_EQ(record.CreateHeader(header), 1);
    // The meta information names the class the header chose.
    CDicomItem written(u"Data");
    written.LoadTags(header.GetData(), static_cast<int>(header.m_nSize), false, -1);
    metaHeaderInfo meta;
    written.GetTagValue(0x0008, 0x0016, meta.sMediaStorageSOPClassUID);
    meta.sMediaStorageSOPClassUID = Trim(meta.sMediaStorageSOPClassUID);
    meta.sMediaStorageSOPInstanceUID = record.sSOPInstanceUID;
    meta.sTransferSyntax = u"1.2.840.10008.1.2";
    meta.sImplementationClassUID = u"1.2.826.0.1.3680043.9.7";
    DICOMINFO::CreateMetaHeaderBuffer(file, &meta);
    file.Add(header.GetData(), header.m_nSize);
    DICOMINFO::AddTagByVR(file, u"OW", 0x7FE0, 0x0010, pixels.data(), static_cast<uint32_t>(pixels.size()));
    return Contents(file);
}

const std::string kOracle = std::string(ZELDICOM_SOURCE_DIR) + "/tests/tools/capture_edit_oracle.py";

// pydicom's verdict that b names the patient of a and decodes to its pixels.
std::string SameAsPydicomSees(const std::string& a, const std::string& b)
{
    CliResult same = RunCli({kOracle, "same", a, b}, "/usr/bin/python3");
    return same.out + same.err;
}

}  // namespace

TEST(HeaderCreation, SecondaryCaptureHeaderReadsBackIntoTheRecord)
{
    auto record = CapturedRecord();
    Bytes file = WholeFile(*record, Bytes(2 * 15, 0x11));

    // The library's own reader sees the record that was written: every
    // field the header carries comes back equal.
    DICOMINFO back;
    ASSERT_EQ(back.ReadInfo(file.data(), static_cast<uint32_t>(file.size())), 1) << back.GetLastError().GetText();
    const std::set<std::string> written = {
        "sSOPInstanceUID", "sStudyInstanceUID", "sSeriesInstanceUID", "lStudyDate", "lContentDate", "lStudyTime",
        "lContentTime", "lPatientBirthDate", "sPatientID", "sModality", "sSeriesNumber", "sInstanceNumber", "nRows",
        "nColumns", "nBitsAllocated", "nBitsStored", "nHighBit", "dRowSpacing", "dColumnSpacing", "nWindowCenter",
        "nWindowWidth"};
    int count = 0;
    const INFOFIELD* fields = DICOMINFO::GetFieldTable(count);
    int compared = 0;
    for (int i = 0; i < count; ++i) {
        const INFOFIELD& f = fields[i];
        if (!written.count(f.name))
            continue;
        ++compared;
        const DICOMINFO& sent = *record;
        if (f.kind == INFOFIELD::Int) {
            EXPECT_EQ(back.*f.member.n, sent.*f.member.n) << f.name;
        } else if (f.kind == INFOFIELD::Text) {
            EXPECT_EQ(back.*f.member.s, sent.*f.member.s) << f.name;
        } else {
            EXPECT_DOUBLE_EQ(back.*f.member.d, sent.*f.member.d) << f.name;
        }
    }
    EXPECT_EQ(compared, static_cast<int>(written.size()));
    EXPECT_EQ(back.sSOPClassUID, u"1.2.840.10008.5.1.4.1.1.7");
    EXPECT_EQ(back.sDicomPatientName, u"Doe^Jane");
    EXPECT_EQ(back.sPatientSex, u"F");
    ASSERT_TRUE(back.ModalityLut.IsDataPresent());
    EXPECT_EQ(std::vector<uint32_t>({back.ModalityLut.GetSize(), back.ModalityLut.GetFirstEntry(),
                                     back.ModalityLut.GetBitsNumber(), back.ModalityLut.GetData()[2]}),
              std::vector<uint32_t>({4, 10, 16, 900}));
    const DICOM_LUT* palettes[3] = {&back.RedPaletteLut, &back.GreenPaletteLut, &back.BluePaletteLut};
    for (const DICOM_LUT* lut : palettes) {
        ASSERT_NE(lut->pData, nullptr);
        EXPECT_EQ(lut->nEntries, 3u);
    }
    EXPECT_EQ(std::vector<int>({palettes[0]->pData[0], palettes[1]->pData[1], palettes[2]->pData[2]}),
              std::vector<int>({1, 50, 65535}));
    ASSERT_EQ(back.aOverlays.size(), 1u);
    const DICOM_OVERLAY& overlay = *back.aOverlays[0];
    EXPECT_EQ(std::vector<int>({overlay.nIndex, overlay.nOriginRow, overlay.nOriginColumn, overlay.pData[0]}),
              std::vector<int>({2, 2, -3, 0x5A}));  // group 6002, row first

    // Without spacing and LUT: no (0028,0030), and the rescale intercept
    // that a modality LUT replaces.
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(file.data(), static_cast<int>(file.size())));
    EXPECT_EQ(TextOf(ChildNode(&root, u"Data"), 0x0028, 0x1052), "<absent>");
    record->dRowSpacing = 0.0;
    record->ModalityLut = CModalityLutDesc();
    record->nRescaleIntercept = -1024;
    record->sPatientSex = u"x";
    Bytes plain = WholeFile(*record, Bytes(2 * 15, 0));
    CDicomItem plainRoot(u"Object");
    ASSERT_TRUE(plainRoot.LoadObject(plain.data(), static_cast<int>(plain.size())));
    CDicomItem* plainData = ChildNode(&plainRoot, u"Data");
    EXPECT_EQ(TextOf(plainData, 0x0028, 0x0030), "<absent>");
    EXPECT_EQ(TextOf(plainData, 0x0028, 0x1052), "-1024");
    EXPECT_EQ(TextOf(plainData, 0x0010, 0x0040), "O");
    EXPECT_EQ(plainData->GetTagItem(0x0028, 0x3000), nullptr);
}

TEST(HeaderCreation, CompressedHeadWithFragmentsIsReadByPydicomAndDcmtk)
{
    for (int frames : {1, 10}) {
        DICOMINFO record;
        record.sSOPClassUID = u"1.2.840.10008.5.1.4.1.1.7";
        record.sSOPInstanceUID = u"1.2.826.0.1.3680043.9.7.4";
        record.sTransferSyntax = u"1.2.840.10008.1.2.4.50";
        record.sImageType = u"DERIVED\\SECONDARY";
        record.sPatientName = u"Doe^Jane";
        record.sReferencedSOPClassUID = u"1.2.840.10008.5.1.4.1.1.2";
        record.sReferencedSOPInstanceUID = u"1.2.3.4";
        record.nRows = 1023;
        record.nColumns = 769;
        record.nBitsAllocated = record.nBitsStored = 8;
        record.nHighBit = 7;
        record.nNumberOfFrames = frames;
        record.fFrameTime = 40.0f;
        CDynBuffer buffer;
        ASSERT_EQ(record.CreateHeaderCompressed(buffer), 1);
        Bytes head = Contents(buffer);
        ASSERT_GT(head.size(), 144u);
        EXPECT_EQ(Bytes(head.begin(), head.begin() + 128), Bytes(128, 0));
        EXPECT_EQ(std::string(head.begin() + 128, head.begin() + 132), "DICM");
        // (0002,0000) UL counts the meta elements behind it.
        EXPECT_EQ(Bytes(head.begin() + 132, head.begin() + 140), (Bytes{2, 0, 0, 0, 'U', 'L', 4, 0}));
        uint32_t groupLength = head[140] | head[141] << 8 | head[142] << 16 | uint32_t{head[143]} << 24;
        EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(head.data(), head.size()), 144 + groupLength);

        // The application's part: an empty offset table, one fragment per
        // frame, the sequence delimiter.
        Bytes file = cat({head, ielem(0xFFFE, 0xE000, {})});
        std::string fragments;
        for (int i = 0; i < frames; ++i) {
            Bytes fragment = {0xFF, 0xD8, static_cast<uint8_t>(i), 0x00, 0xFF, 0xD9};
            file = cat({file, ielem(0xFFFE, 0xE000, fragment)});
            fragments += (i ? "," : "") + ToHex(std::string(fragment.begin(), fragment.end()));
        }
        file = cat({file, sequenceEnd()});
        std::string path = ScratchPath("compressed-" + std::to_string(frames) + ".dcm");
        ASSERT_TRUE(WriteFile(path, file));

        CDicomItem root(u"Object");
        ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(path))) << root.GetLastError().GetText();
        CDicomItem* data = ChildNode(&root, u"Data");
        uint16_t rows = 0, columns = 0;
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0010, rows));
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0011, columns));
        EXPECT_EQ(rows, 1023);  // the image's own size, not rounded to JPEG blocks
        EXPECT_EQ(columns, 769);
        bool multi = frames > 1;
        EXPECT_EQ(data->GetTagItem(0x0018, 0x1063) != nullptr, multi);
        EXPECT_EQ(data->GetTagItem(0x0028, 0x0008) != nullptr, multi);
        EXPECT_EQ(data->GetTagItem(0x0028, 0x0009) != nullptr, multi);
        CDicomItem* reference = data->GetSequenceItem(0x0008, 0x1140);
        ASSERT_NE(reference, nullptr);
        EXPECT_EQ(TextOf(reference, 0x0008, 0x1155), "1.2.3.4");

        // The peers: pydicom finds the same fragments and frame count, dcmdump
        // reads the file without complaint.
        CliResult py = RunCli({kOracle, "fragments", path, std::to_string(frames), fragments}, "/usr/bin/python3");
        EXPECT_EQ(py.status, 0) << py.out << py.err;
        EXPECT_EQ(py.out, "ok\n") << py.err;
        CliResult dump = RunCli({path}, "/usr/bin/dcmdump");
        EXPECT_EQ(dump.status, 0) << dump.err;
        EXPECT_EQ(dump.err, "");
        EXPECT_NE(dump.out.find("(fffe,e0dd)"), std::string::npos);
        unlink(path.c_str());
    }
}

// CreateHeader over objects nobody here wrote (pydicom's CT, MR, RGB, YBR
// and 15-frame RT dose samples): with the source's pixels behind it, the
// object passes dciodvfy and pydicom decodes the same pixels. Names read
// from pydicom's character set samples come back as stored, with their
// carets, in a character set that holds them.
TEST(HeaderCreation, HeadersOfPydicomSamplesAreValidAndKeepPixelsAndNames)
{
    PYDICOM_DATA_OR_FAIL(dataDir);
    ScratchFolder folder("header-samples");
    // A two-frame RGB object as DCMTK decodes pydicom's RLE sample.
    std::string twoFrames = folder.path + "/rgb-2frame.dcm";
    auto [decoded, why] =
        RunShell("/usr/bin/dcmdrle '" + dataDir + "/test_files/SC_rgb_rle_2frame.dcm' '" + twoFrames + "'");
    ASSERT_EQ(decoded, 0) << why;
    // A three-frame unsigned greyscale object as pydicom writes it from the
    // MR sample.
    std::string greyFrames = folder.path + "/mr-3frame.dcm";
    auto [written, said] = PydicomRewrite(dataDir + "/test_files/MR_small.dcm", greyFrames,
                                          "ds.PixelData, ds.NumberOfFrames = ds.PixelData * 3, 3\n"
                                          "ds.PixelRepresentation = 0");
    ASSERT_EQ(written, 0) << said;
    for (std::string name : {"test_files/CT_small.dcm", "test_files/MR_small.dcm", "test_files/SC_rgb_small_odd.dcm",
                             "test_files/rtdose.dcm", "charset_files/chrFren.dcm", "charset_files/chrRuss.dcm",
                             "charset_files/chrH31.dcm", "charset_files/chrX1.dcm", "rgb-2frame", "mr-3frame"}) {
        std::string source = name == "rgb-2frame" ? twoFrames : name == "mr-3frame" ? greyFrames : dataDir + "/" + name;
        DICOMINFO record;
        ASSERT_EQ(record.ReadFileInfo(Utf8ToUtf16(source)), 1) << name;
        CDicomItem root(u"Object");
        ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(source))) << name;
        const CDicomItem* pixels = ChildNode(&root, u"Data")->GetTagItem(0x7FE0, 0x0010);
        Bytes file = pixels ? WholeFile(record, Bytes(pixels->GetData(), pixels->GetData() + pixels->GetDataSize()))
                            : WholeFile(record, Bytes());
        if (!pixels)  // no image: only the name is compared, without the empty pixel data element
            file.resize(file.size() - 8);
        std::string path = folder.path + "/created.dcm";
        ASSERT_TRUE(WriteFile(path, file));
        // The host is told the class that was written.
        CDicomItem created(u"Object");
        ASSERT_TRUE(created.LoadObject(Utf8ToUtf16(path)));
        EXPECT_EQ(TextOf(ChildNode(&created, u"Data"), 0x0008, 0x0016), Utf16ToUtf8(record.GetCreateHeaderSOPClassUID()))
            << name;
        // dciodvfy stops on an assertion with 32 bits allocated (the RT
        // dose sample itself included); pydicom judges that one alone.
        if (pixels && record.nBitsAllocated <= 16) {
            EXPECT_EQ(IodErrorLines(path), std::set<std::string>{}) << name;
        }
        EXPECT_EQ(SameAsPydicomSees(source, path), "ok\n") << name;
    }
}

// CreateHeaderCompressed over JPEG objects nobody here wrote (pydicom's
// samples, greyscale, RGB and YBR_FULL, 3 x 3 among them, and a
// YBR_FULL_422 one made by DCMTK's dcmcjpeg), followed by the source's own
// fragments: dciodvfy finds no error that it does not find in the source
// (it refuses YBR_FULL in a Secondary Capture, which is what these JPEG
// streams hold), dcmdjpeg decodes it to the pixels it decodes from the
// source, as pydicom compares them.
TEST(HeaderCreation, CompressedHeadersOfJpegSamplesAreValidAndDecode)
{
    PYDICOM_DATA_OR_FAIL(dataDir);
    std::string samples = dataDir + "/test_files/";
    ScratchFolder folder("header-jpeg");
    std::string subsampled = folder.path + "/ybr422.dcm";
    auto [made, why] = RunShell("/usr/bin/dcmcjpeg '" + samples + "SC_rgb_small_odd.dcm' '" + subsampled + "'");
    ASSERT_EQ(made, 0) << why;
    const unsigned char pixelDataStart[12] = {0xE0, 0x7F, 0x10, 0x00, 'O', 'B', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    std::u16string root = CDicomInfoStatics::GetDicomRoot();
    CDicomInfoStatics::SetDicomRoot(u"1.2.826.0.1.3680043.9.7");
    for (std::string source : {samples + "SC_rgb_small_odd_jpeg.dcm", samples + "SC_rgb_jpeg_dcmtk.dcm",
                               samples + "JPEG-lossy.dcm", samples + "SC_jpeg_no_color_transform.dcm", subsampled}) {
        DICOMINFO record;
        ASSERT_EQ(record.ReadFileInfo(Utf8ToUtf16(source)), 1) << source;
        CDynBuffer buffer;
        ASSERT_EQ(record.CreateHeaderCompressed(buffer), 1);
        Bytes original = ReadFile(source);
        auto start = std::search(original.rbegin(), original.rend(), std::rbegin(pixelDataStart),
                                 std::rend(pixelDataStart));
        ASSERT_NE(start, original.rend()) << source;
        Bytes file = cat({Contents(buffer), Bytes(start.base(), original.end())});
        std::string path = folder.path + "/compressed.dcm", ours = folder.path + "/ours.dcm",
                    theirs = folder.path + "/theirs.dcm";
        ASSERT_TRUE(WriteFile(path, file));
        EXPECT_EQ(IodErrorsBeyond(source, path), std::set<std::string>{}) << source;
        auto [decodedOurs, oursSays] = RunShell("/usr/bin/dcmdjpeg '" + path + "' '" + ours + "'");
        EXPECT_EQ(decodedOurs, 0) << source << ": " << oursSays;
        auto [decodedTheirs, theirsSay] = RunShell("/usr/bin/dcmdjpeg '" + source + "' '" + theirs + "'");
        ASSERT_EQ(decodedTheirs, 0) << source << ": " << theirsSay;
        EXPECT_EQ(SameAsPydicomSees(theirs, ours), "ok\n") << source;
    }
    CDicomInfoStatics::SetDicomRoot(root);
}
