// The image record on small hand-built objects: the rules that the corpus
// sweep cannot reach (repairs, windows, display texts, copying) and the LUT,
// overlay and orientation helpers at their edges.
#include <gtest/gtest.h>

#include <cstring>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/orientation.h"

using namespace testsupport;

namespace {

const char* kExplicit = "1.2.840.10008.1.2.1";

// The record of an explicit VR little endian object holding these elements
// (in tag order) and, when given, pixel data.
std::unique_ptr<DICOMINFO> Read(const Bytes& dataSet, const char* syntax = kExplicit)
{
    auto info = std::make_unique<DICOMINFO>();
    Bytes file = fileImage(syntax, dataSet);
    EXPECT_EQ(info->ReadInfo(file.data(), static_cast<uint32_t>(file.size())), 1) << info->GetLastError().GetText();
    return info;
}

Bytes words(std::initializer_list<uint16_t> values)
{
    Bytes out;
    for (uint16_t v : values)
        put16(out, v);
    return out;
}

}  // namespace

TEST(InfoRecord, RepairsDatesWindowsAndPhotometric)
{
    // No content or series date: both take the study date; CT without a
    // window gets 400/2000; a missing photometric is "other", not MONOCHROME2.
    auto ct = Read(cat({elem(0x0008, 0x0020, "DA", "20240102"), elem(0x0008, 0x0030, "TM", "101010"),
                        elem(0x0008, 0x0060, "CS", "CT"), elem(0x0010, 0x0010, "PN", "Doe^John"),
                        elem(0x0010, 0x0040, "CS", "m ")}));
    EXPECT_EQ(ct->lContentDate, 20240102);
    EXPECT_EQ(ct->lSeriesDate, 20240102);
    EXPECT_EQ(ct->lContentTime, 101010);
    EXPECT_EQ(ct->nWindowCenter, 400);
    EXPECT_EQ(ct->nWindowWidth, 2000);
    EXPECT_EQ(ct->nPhotometric, DICOMINFO::PHOTOMETRIC_OTHER);
    EXPECT_EQ(ct->sPatientName, u"Doe John");
    EXPECT_EQ(ct->sDicomPatientName, u"Doe^John");
    EXPECT_EQ(ct->sPatientSex, u"M");

    // RGB always ends at 128/256 and intercept 0; a frame rate sets the frame time.
    auto rgb = Read(cat({elem(0x0008, 0x2144, "IS", "25"), elem(0x0028, 0x0004, "CS", "RGB "),
                         elem(0x0028, 0x1050, "DS", "40\\400"), elem(0x0028, 0x1051, "DS", "400\\2000"),
                         elem(0x0028, 0x1052, "DS", "-1024 ")}));
    EXPECT_EQ(rgb->nWindowCenter, 128);
    EXPECT_EQ(rgb->nWindowWidth, 256);
    EXPECT_EQ(rgb->nRescaleIntercept, 0);
    EXPECT_EQ(rgb->nFlags & 3, 0);
    EXPECT_FLOAT_EQ(rgb->fFrameTime, 40.0f);
    EXPECT_EQ(rgb->sPatientSex, u"O");
}

TEST(InfoRecord, RegistersAlternativeWindows)
{
    auto info = Read(cat({elem(0x0028, 0x1050, "DS", "0\\40\\-600.7"), elem(0x0028, 0x1051, "DS", "400\\400\\1500"),
                          elem(0x0028, 0x1055, "LO", "SKIP\\\\LUNG ")}));
    ASSERT_EQ(info->aWindows.size(), 2u);  // the centre 0 is skipped
    EXPECT_EQ(info->aWindows[0]->sExplanation, u"Window 2");
    EXPECT_EQ(info->aWindows[0]->nCenter, 40);
    EXPECT_EQ(info->aWindows[1]->sExplanation, u"LUNG");
    EXPECT_EQ(info->aWindows[1]->nCenter, -600);  // truncated toward zero
    EXPECT_EQ(info->aWindows[1]->dCenter, -600.7);
    EXPECT_EQ(info->nWindowCenter, 0);
    EXPECT_EQ(info->nFlags & 3, 3);

    // An empty centre is absent; a width below 1 is no width: the defaults stay.
    auto empty = Read(cat({elem(0x0028, 0x1050, "DS", ""), elem(0x0028, 0x1051, "DS", "0.5")}));
    EXPECT_EQ(empty->nWindowCenter, 2048);
    EXPECT_EQ(empty->nWindowWidth, 4096);
    EXPECT_EQ(empty->nFlags & 3, 0);
    EXPECT_EQ(empty->aEmptyNumberElements, std::vector<uint32_t>{0x00281050});
}

TEST(InfoRecord, DisplaysLinkedAttributes)
{
    auto info = Read(cat({elem(0x0008, 0x0008, "CS", "DERIVED\\PRIMARY\\BIPLANE A "),
                          elem(0x0018, 0x0050, "DS", "2.50"), elem(0x0018, 0x1310, "US", words({0, 256, 256, 0})),
                          elem(0x0020, 0x0013, "IS", "0012"), elem(0x0028, 0x0008, "IS", "12"),
                          elem(0x0028, 0x0010, "US", us(512))}));
    EXPECT_EQ(info->bBiplane, 1);
    EXPECT_EQ(info->sBiplanePlane, u"A");
    EXPECT_EQ(info->GetTagValue(0x0008, 0x0008), u"BIPLANE A");
    EXPECT_EQ(info->GetTagValue(0x0018, 0x0050), u"2.5");
    EXPECT_EQ(info->GetTagValue(0x0018, 0x1310), u"0 256 256 0 ");
    EXPECT_EQ(info->GetTagValue(0x0020, 0x0013), u"12");
    EXPECT_EQ(info->GetTagValue(0x0028, 0x0008), u"1 / 12");
    EXPECT_EQ(info->GetTagValue(0x0028, 0x0010), u"512");
    EXPECT_EQ(info->GetTagValue(0x0028, 0x0100), u"");  // not linked

    // Copies keep their own links, lists and LUTs; SetCommonInfo keeps the centre.
    DICOMINFO copy;
    copy.RedPaletteLut.nEntries = 7;
    copy = *info;
    EXPECT_EQ(copy.GetTagValue(0x0020, 0x0013), u"12");
    EXPECT_NE(copy.GetLink(0x0020, 0x0013)->pValue, info->GetLink(0x0020, 0x0013)->pValue);
    EXPECT_EQ(copy.RedPaletteLut.nEntries, 7u);
    DICOMINFO common;
    common.nWindowCenter = 99;
    common.SetCommonInfo(info.get());
    EXPECT_EQ(common.nWindowCenter, 99);
    EXPECT_EQ(common.sPatientName, info->sDicomPatientName);
}

TEST(InfoRecord, ReadsLutsOverlaysAndFrameOffsetsWithinTheirBytes)
{
    // A palette whose data hold fewer words than its descriptor announces
    // gets no data; a segmented one that runs past its entries is dropped;
    // an overlay's data are copied with their size.
    auto info = Read(cat({elem(0x0028, 0x0008, "IS", "2"), elem(0x0028, 0x0010, "US", us(2)),
                          elem(0x0028, 0x0011, "US", us(2)), elem(0x0028, 0x0100, "US", us(8)),
                          elem(0x0028, 0x1101, "US", words({4, 0, 16})), elem(0x0028, 0x1102, "US", words({4, 0, 16})),
                          elem(0x0028, 0x1103, "US", words({2, 0, 16})), elem(0x0028, 0x1201, "OW", words({1, 2, 3})),
                          elem(0x0028, 0x1222, "OW", words({0, 2, 5, 6, 1, 2, 10})),
                          elem(0x0028, 0x1223, "OW", words({0, 1, 7, 1, 1, 9})),
                          elem(0x6002, 0x0010, "US", us(2)), elem(0x6002, 0x0011, "US", us(8)),
                          elem(0x6002, 0x0050, "SS", words({0xFFFF, 3})), elem(0x6002, 0x0100, "US", us(1)),
                          elem(0x6002, 0x0102, "US", us(0)), elem(0x6002, 0x3000, "OW", Bytes{0xAA, 0x55}),
                          elem(0x7FE0, 0x0010, "OB", Bytes(8, 1))}));
    EXPECT_FALSE(info->RedPaletteLut.pData);
    ASSERT_TRUE(info->BluePaletteLut.pData);
    EXPECT_EQ(info->BluePaletteLut.GetEntry(1), 9);
    ASSERT_TRUE(info->GreenPaletteLut.pData);  // discrete 5, 6 then linear 8, 10
    EXPECT_EQ(info->GreenPaletteLut.GetEntry(2), 8);
    ASSERT_EQ(info->aOverlays.size(), 1u);
    const DICOM_OVERLAY* overlay = info->GetOverlay(2);
    ASSERT_TRUE(overlay);
    EXPECT_EQ(overlay->nOriginRow, -1);
    EXPECT_EQ(overlay->nOriginColumn, 3);
    EXPECT_EQ(overlay->nDataSize, 2);
    ASSERT_EQ(info->nFrameOffsetCount, 3);
    EXPECT_EQ(info->pFrameOffsets[1], 4u);

    // Encapsulated data without an offset table: frame offsets from the
    // fragment lengths; a table with the wrong count is refused.
    Bytes fragments = cat({item({}), item(Bytes(1000, 0)), item(Bytes(10, 0)), sequenceEnd()});
    auto jpeg = Read(cat({elem(0x0028, 0x0008, "IS", "2"), elem(0x7FE0, 0x0010, "OB", fragments, kUndefined)}),
                     "1.2.840.10008.1.2.4.50");
    ASSERT_TRUE(jpeg->pFrameOffsets);
    EXPECT_EQ(jpeg->pFrameOffsets[1], 1008u);
    DICOMINFO manual;
    manual.nNumberOfFrames = 3;
    manual.nCompressionType = 1;
    Bytes table = cat({item(words({0, 0, 8, 0})), item(Bytes(4, 0))});
    EXPECT_EQ(manual.GetFramesOffsetTable(table.data(), table.size()), 0);
}

TEST(LutsAndOverlays, Edges)
{
    DICOM_LUT lut;
    uint16_t descriptor[3] = {0, 0, 16};
    lut.LoadDescriptor(descriptor, 0);
    EXPECT_EQ(lut.nEntries, 65536u);
    uint16_t twelveBits[3] = {256, 100, 12};
    lut.LoadDescriptor(twelveBits, 0);
    uint16_t values[256];
    for (int i = 0; i < 256; ++i)
        values[i] = static_cast<uint16_t>(i * 10);
    EXPECT_EQ(lut.LoadData(values, 0, 256), 0);  // neither 8 nor 16 bits: described, no data
    // 8-bit entries one a word (in the high byte too) or packed two a word.
    lut.wBits = 8;
    lut.nEntries = 4;
    const uint16_t low[] = {1, 2, 3, 255}, high[] = {0x100, 0x200, 0x300, 0xFF00}, packed[] = {0x0201, 0xFF03};
    for (const uint16_t* data : {low, high, packed}) {
        ASSERT_EQ(lut.LoadData(data, 0, data == packed ? 2 : 4), 1);
        EXPECT_EQ(lut.GetEntry(103), 255);
        EXPECT_EQ(lut.GetEntry(101), 2);
    }
    EXPECT_EQ(lut.LoadData(packed, 0, 1), 0);  // fewer bytes than entries
    lut.nEntries = 256;
    lut.wBits = 16;
    ASSERT_EQ(lut.LoadData(values, 0, 256), 1);
    EXPECT_EQ(lut.GetEntry(50), 0);
    EXPECT_EQ(lut.GetEntry(355), 2550);
    EXPECT_EQ(lut.GetEntry(100000), 2550);
    EXPECT_EQ(lut.LoadData(values, 0, 255), 0);  // fewer words than entries

    // Discrete 0, 1000; linear to 2000 in 4; an indirect copy of the first
    // segment; a byte-swapped descriptor; a segment after the end fails.
    uint16_t segments[] = {0, 2, 0, 1000, 1, 4, 2000, 2, 1, 0, 0};
    lut.nEntries = 8;
    lut.nFirstMapped = 0;
    ASSERT_EQ(lut.LoadSegmentedData(segments, 0, 11), 1);
    const uint16_t expected[] = {0, 1000, 1250, 1500, 1750, 2000, 0, 1000};
    for (uint32_t i = 0; i < 8; ++i)
        EXPECT_EQ(lut.GetEntry(i), expected[i]) << i;
    lut.nEntries = 7;
    EXPECT_EQ(lut.LoadSegmentedData(segments, 0, 11), 0);
    EXPECT_FALSE(lut.pData);
    uint16_t linearFirst[] = {1, 2, 100};
    lut.nEntries = 2;
    EXPECT_EQ(lut.LoadSegmentedData(linearFirst, 0, 3), 0);
    // 8-bit segments are bytes: discrete 255, then down to 0 in 3 steps.
    const uint16_t descending[] = {0x0100, 0x01FF, 0x0003};
    lut.wBits = 8;
    lut.nEntries = 4;
    ASSERT_EQ(lut.LoadSegmentedData(descending, 0, 3), 1);
    const uint16_t ramp[] = {255, 170, 85, 0};
    for (uint32_t i = 0; i < 4; ++i)
        EXPECT_EQ(lut.GetEntry(i), ramp[i]) << i;
    uint8_t bytes[4];
    ASSERT_EQ(lut.FillTable(bytes, 4), 1);
    EXPECT_EQ(bytes[1], 170);  // 8-bit entries are their own high byte

    CModalityLutDesc modality;
    uint16_t swapped[3] = {0x0004, 0x0100, 0x1000};
    modality.LoadDescriptor(swapped, 1);
    EXPECT_EQ(modality.nEntries, 1024u);
    EXPECT_EQ(modality.nFirstMapped, 1u);
    EXPECT_EQ(modality.nBits, 16u);

    // An ROI overlay whose bits lie in the pixel data.
    CDicomItem dataSet(u"Data");
    Bytes run = cat({elem(0x6000, 0x0010, "US", us(4)), elem(0x6000, 0x0011, "US", us(4)),
                     elem(0x6000, 0x0040, "CS", "R "), elem(0x6000, 0x0050, "SS", words({2, 3})),
                     elem(0x6000, 0x0100, "US", us(16)), elem(0x6000, 0x0102, "US", us(15)),
                     elem(0x7FE0, 0x0010, "OW", Bytes(32, 0))});
    ASSERT_NE(dataSet.LoadTags(run.data(), static_cast<int>(run.size()), true, -1), 0xFFFFFFFFu);
    CDicomOverlayDesc desc(&dataSet, 0x6000);
    EXPECT_TRUE(desc.Exists());
    EXPECT_EQ(desc.GetOverlayType(), CDicomOverlayDesc::OVERLAY_ROI);
    EXPECT_FALSE(desc.IsDataInGroup());
    OVERLAY_RECT rect = desc.GetEnglobingRect();
    EXPECT_EQ(rect.left, 3);
    EXPECT_EQ(rect.bottom, 6);
    EXPECT_FALSE(CDicomOverlayDesc(&dataSet, 0x6002).Exists());
}

TEST(PixelDescription, PhotometricSpacingZoomAndText)
{
    EXPECT_EQ(DICOMINFO::GetPhotometricIndex(u"ybr_rct", u"1.2.840.10008.1.2.4.90"), DICOMINFO::YBR_RCT);
    EXPECT_EQ(DICOMINFO::GetPhotometricIndex(u"YBR_RCT", u"1.2.840.10008.1.2.4.70"), DICOMINFO::PHOTOMETRIC_OTHER);
    EXPECT_EQ(DICOMINFO::GetPhotometricString(DICOMINFO::YBR_FULL), u"");

    auto spacing = [](const Bytes& run) {
        CDicomItem data(u"Data");
        data.LoadTags(run.data(), static_cast<int>(run.size()), true, -1);
        double row = -1, column = -1;
        DICOMINFO::GetPixelSpacing(&data, row, column);
        return std::make_pair(row, column);
    };
    auto imager = elem(0x0018, 0x1164, "DS", "0.2\\0.2 ");
    EXPECT_NEAR(spacing(cat({elem(0x0018, 0x1114, "DS", "1.25"), imager})).first, 0.16, 1e-7);
    EXPECT_NEAR(spacing(cat({elem(0x0018, 0x1114, "DS", "0 "), imager})).second, 0.2, 1e-7);
    auto mammo = elem(0x0008, 0x0060, "CS", "MG");
    EXPECT_EQ(spacing(cat({mammo, elem(0x0028, 0x0030, "DS", "0.1\\0.1 ")})).first, 0.0);
    EXPECT_NEAR(spacing(cat({mammo, imager})).first, 0.2, 1e-7);

    DICOMINFO info;
    info.nColumns = 1000;
    info.nRows = 500;
    ZOOM_SIZE wide = info.CalcZoomSize({300, 300});
    EXPECT_EQ(wide.cx, 300);
    EXPECT_EQ(wide.cy, 150);
    ZOOM_SIZE flat = info.CalcZoomSize({302, 100});
    EXPECT_EQ(flat.cx, 200);
    EXPECT_EQ(flat.cy, 100);
    EXPECT_EQ(DICOMINFO::SetStringG0Compatible(u"ct-scan 1", -1), u"CT_SCAN_1");
    EXPECT_EQ(DICOMINFO::SetStringG0Compatible(u"ct-scan 1", 2), u"CT");
    for (auto [types, expected] : {std::pair{"DERIVED\\PRIMARY\\AXIAL\\LOCALIZER", u"AXIAL"},
                                   {"DERIVED\\PRIMARY\\AXIAL", u"AXIAL"}, {"DERIVED\\PRIMARY", u"PRIMARY"},
                                   {"DERIVED", u"DERIVED"}}) {
        Bytes file = fileImage(kExplicit, elem(0x0008, 0x0008, "CS", std::string(types) + (strlen(types) % 2 ? " " : "")));
        EXPECT_EQ(DICOMINFO::GetDicomImageType(file.data(), file.size()), expected) << types;
    }
}

namespace {
struct RecordingCanvas : COrientationCanvas {
    int GetTextHeight() const override { return 12; }
    void SelectBoldFont(int height) override { selected = height; }
    void RestoreFont() override { restored = true; }
    int GetTextWidth(const std::u16string& text) const override { return 8 * static_cast<int>(text.size()); }
    void ShadowTextOut(int x, int y, const std::u16string& text) override { drawn.push_back({x, y, text}); }
    struct Call {
        int x, y;
        std::u16string text;
    };
    std::vector<Call> drawn;
    int selected = 0;
    bool restored = false;
};
}  // namespace

TEST(PatientOrientation, LabelsTransformsAndGeometry)
{
    CPatientOrientation orientation;
    ASSERT_TRUE(orientation.FromDicom("L\\P", 5));
    EXPECT_EQ(orientation.sRight + orientation.sBottom + orientation.sLeft + orientation.sTop, u"PLAR");
    ASSERT_TRUE(orientation.FromDicom("L\\P", 2));
    EXPECT_EQ(orientation.sRight + orientation.sBottom, u"RP");
    RecordingCanvas canvas;
    EXPECT_EQ(orientation.Draw(canvas, {0, 0, 100, 100}), 100 - 3 - 8);
    EXPECT_EQ(canvas.selected, 15);
    EXPECT_TRUE(canvas.restored);
    EXPECT_EQ(canvas.drawn.size(), 4u);
    EXPECT_FALSE(orientation.FromDicom("L", 0));
    EXPECT_EQ(orientation.ToDicom(), u"");
    EXPECT_EQ(orientation.Draw(canvas, {0, 0, 100, 100}), 0x7FFFFFFF);

    EXPECT_EQ(CPatientOrientation::ImageToPatientOrientation("0.7071\\0.7071\\0\\0\\0\\-1"), u"LP\\F");
    EXPECT_EQ(CPatientOrientation::ImageToPatientOrientation("0\\0\\0\\0\\0\\0"), u"");
    // The principal direction first (PS3.3 C.7.6.1.1.1).
    EXPECT_EQ(CPatientOrientation::ImageToPatientOrientation("0.5\\0.866\\0\\0.1\\-0.2\\-0.97"), u"PL\\FAL");
    std::u16string cosines = u"1\\0\\0\\0\\1\\0";
    EXPECT_TRUE(CPatientOrientation::UpdateImageOrientation(cosines, 2));
    EXPECT_EQ(cosines, u"-1\\-0\\-0\\0\\1\\0");
    std::u16string five = u"1\\0\\0\\0\\1";
    EXPECT_FALSE(CPatientOrientation::UpdateImageOrientation(five, 2));
    std::u16string position = u"0\\0\\0";
    EXPECT_TRUE(CPatientOrientation::UpdateImagePosition(position, u"1\\0\\0\\0\\1\\0", 512, 256, u"0.5\\0.5", 3));
    EXPECT_EQ(position, u"255.5\\127.5\\0");
    // Rows 0.5 apart, columns 0.25 apart: the last column lies 511 x 0.25
    // along the row vector, the last row 255 x 0.5 down the column vector.
    position = u"0\\0\\0";
    EXPECT_TRUE(CPatientOrientation::UpdateImagePosition(position, u"1\\0\\0\\0\\1\\0", 512, 256, u"0.5\\0.25", 3));
    EXPECT_EQ(position, u"127.75\\127.5\\0");
    std::u16string spacing = u"0.3\\0.4";
    EXPECT_FALSE(CPatientOrientation::UpdatePixelSpacing(spacing, 1));
    EXPECT_TRUE(CPatientOrientation::UpdatePixelSpacing(spacing, 5));
    EXPECT_EQ(spacing, u"0.4\\0.3");

    EXPECT_EQ(CDicomConversion::ConvertToSigned(12, 4095), -1);
    EXPECT_EQ(CDicomConversion::ConvertToSigned(12, 2047), 2047);
    EXPECT_EQ(CDicomConversion::ConvertIntToWord(12, false, -5), 4091);
    EXPECT_EQ(CDicomConversion::ConvertIntToWord(12, false, 5000), 2047);
    EXPECT_EQ(CDicomConversion::ConvertIntToWord(8, true, 300), 255);
    EXPECT_EQ(CDicomConversion::NormalizePatientName(u"DOE^JOHN^^  "), u"DOE^JOHN");
}
