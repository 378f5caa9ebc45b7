// Header creation: the bytes of a new image object's header written from the
// record, through the raw element writers, in tag order and without a tree.
// CreateHeader gives a Secondary Capture data set in implicit VR little
// endian (no meta information, no pixels); CreateHeaderCompressed gives a
// whole file head in explicit VR little endian that ends with the start of
// an encapsulated pixel data element (PS3.5 A.4).
#include <initializer_list>
#include <string>

#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr char16_t kLatin1[] = u"ISO_IR 100";
constexpr char16_t kSecondaryCaptureImageStorage[] = u"1.2.840.10008.5.1.4.1.1.7";
constexpr uint32_t kPreambleSize = 128;
constexpr unsigned char kMagic[4] = {'D', 'I', 'C', 'M'};

// Text elements of CreateHeader: the value converted for ISO_IR 100.
void AddText(CDynBuffer& buffer, const char16_t* vr, uint16_t group, uint16_t element, const std::u16string& text)
{
    DICOMINFO::AddTagByVR(buffer, vr, group, element, text, kLatin1);
}

void AddNumber(CDynBuffer& buffer, const char16_t* vr, uint16_t group, uint16_t element, int value)
{
    AddText(buffer, vr, group, element, AsciiToWide(FormatText("%d", value)));
}

// Several 16-bit values as one little-endian value.
void AddWords(CDynBuffer& buffer, const char16_t* vr, uint16_t group, uint16_t element,
              std::initializer_list<uint16_t> values)
{
    unsigned char bytes[16];
    uint32_t count = 0;
    for (uint16_t value : values) {
        bytes[count++] = static_cast<unsigned char>(value);
        bytes[count++] = static_cast<unsigned char>(value >> 8);
    }
    DICOMINFO::AddTagByVR(buffer, vr, group, element, bytes, count);
}

// Item and sequence delimitation items: (FFFE,E00D) / (FFFE,E0DD), length 0.
void AddDelimiter(CDynBuffer& buffer, uint16_t element)
{
    DICOMINFO::AddTagByVR(buffer, u"", 0xFFFE, element, nullptr, 0);
}

// PS3.3 C.7.1.1: the single-letter code of a typed sex.
std::u16string SexCode(const std::u16string& sex)
{
    if (sex.empty())
        return {};
    if (sex[0] == u'F' || sex[0] == u'f')
        return u"F";
    if (sex[0] == u'M' || sex[0] == u'm')
        return u"M";
    return u"O";
}

// The descriptor and the data of one palette colour LUT, when it has data.
bool PaletteHasData(const DICOM_LUT& lut)
{
    return lut.pData != nullptr && lut.nEntries > 0;
}

}  // namespace

void DICOMINFO::AddModalityLutSequence(CDynBuffer& buffer) const
{
    if (!ModalityLut.IsDataPresent())
        return;
    // (0028,3000) and its one item, both of undefined length.
    AddTag(buffer, 0x0028, 0x3000);
    AddTag(buffer, 0xFFFE, 0xE000);
    // The entry count is written as 16 bits: 65536 entries become 0 (PS3.3 C.11.1.1).
    AddWords(buffer, u"US", 0x0028, 0x3002,
             {static_cast<uint16_t>(ModalityLut.nEntries), static_cast<uint16_t>(ModalityLut.GetFirstEntry()),
              static_cast<uint16_t>(ModalityLut.GetBitsNumber())});
    AddText(buffer, u"LO", 0x0028, 0x3003, u"");
    AddText(buffer, u"LO", 0x0028, 0x3004, u"US");
    AddTagByVR(buffer, u"US", 0x0028, 0x3006, ModalityLut.GetData(), 2 * ModalityLut.nEntries);
    AddDelimiter(buffer, 0xE00D);
    AddDelimiter(buffer, 0xE0DD);
}

int DICOMINFO::CreateHeader(CDynBuffer& buffer) const
{
    AddText(buffer, u"CS", 0x0008, 0x0005, kLatin1);
    AddText(buffer, u"CS", 0x0008, 0x0008, u"DERIVED\\SECONDARY");
    AddText(buffer, u"UI", 0x0008, 0x0016, kSecondaryCaptureImageStorage);
    AddText(buffer, u"UI", 0x0008, 0x0018, sSOPInstanceUID);
    AddText(buffer, u"DA", 0x0008, 0x0020, ConvertDateToDicom(lStudyDate));
    AddText(buffer, u"DA", 0x0008, 0x0023, ConvertDateToDicom(lContentDate));
    AddText(buffer, u"TM", 0x0008, 0x0030, ConvertTimeToDicom(lStudyTime));
    AddText(buffer, u"TM", 0x0008, 0x0033, ConvertTimeToDicom(lContentTime));
    AddText(buffer, u"SH", 0x0008, 0x0050, sAccessionNumber);
    AddText(buffer, u"CS", 0x0008, 0x0060, sModality);
    AddText(buffer, u"CS", 0x0008, 0x0068, sPresentationIntentType);
    AddText(buffer, u"LO", 0x0008, 0x0070, sManufacturer);
    AddText(buffer, u"LO", 0x0008, 0x0080, sInstitutionName);
    AddText(buffer, u"PN", 0x0008, 0x0090, sReferringPhysicianName);
    AddText(buffer, u"SH", 0x0008, 0x1010, sStationName);
    AddText(buffer, u"LO", 0x0008, 0x1030, sStudyDescription);
    AddText(buffer, u"LO", 0x0008, 0x1090, sManufacturerModelName);

    AddText(buffer, u"PN", 0x0010, 0x0010, sPatientName);
    AddText(buffer, u"LO", 0x0010, 0x0020, sPatientID);
    AddText(buffer, u"DA", 0x0010, 0x0030, ConvertDateToDicom(lPatientBirthDate));
    AddText(buffer, u"TM", 0x0010, 0x0032, u"");
    AddText(buffer, u"CS", 0x0010, 0x0040, SexCode(sPatientSex));
    AddText(buffer, u"CS", 0x0018, 0x0015, sBodyPartExamined);

    AddText(buffer, u"UI", 0x0020, 0x000D, sStudyInstanceUID);
    AddText(buffer, u"UI", 0x0020, 0x000E, sSeriesInstanceUID);
    AddText(buffer, u"SH", 0x0020, 0x0010, sStudyID);
    AddText(buffer, u"IS", 0x0020, 0x0011, sSeriesNumber);
    AddText(buffer, u"IS", 0x0020, 0x0012, sAcquisitionNumber);
    AddText(buffer, u"IS", 0x0020, 0x0013, sInstanceNumber);

    AddTag(buffer, 0x0028, 0x0002, wSamplesPerPixel);
    AddText(buffer, u"CS", 0x0028, 0x0004, GetPhotometricString(static_cast<PHOTOMETRIC>(nPhotometric)));
    AddTag(buffer, 0x0028, 0x0010, static_cast<uint16_t>(nRows));
    AddTag(buffer, 0x0028, 0x0011, static_cast<uint16_t>(nColumns));
    if (dRowSpacing != 0.0 && dColumnSpacing != 0.0)
        AddText(buffer, u"DS", 0x0028, 0x0030, AsciiToWide(FormatText("%f\\%f", dRowSpacing, dColumnSpacing)));
    AddTag(buffer, 0x0028, 0x0100, static_cast<uint16_t>(nBitsAllocated));
    AddTag(buffer, 0x0028, 0x0101, static_cast<uint16_t>(nBitsStored));
    AddTag(buffer, 0x0028, 0x0102, static_cast<uint16_t>(nHighBit));
    AddTag(buffer, 0x0028, 0x0103, wPixelRepresentation);
    AddNumber(buffer, u"DS", 0x0028, 0x1050, nWindowCenter);
    AddNumber(buffer, u"DS", 0x0028, 0x1051, nWindowWidth);
    // A modality LUT replaces the rescale (PS3.3 C.11.1).
    if (!ModalityLut.IsDataPresent())
        AddNumber(buffer, u"DS", 0x0028, 0x1052, nRescaleIntercept);

    const DICOM_LUT* palettes[3] = {&RedPaletteLut, &GreenPaletteLut, &BluePaletteLut};
    for (uint16_t i = 0; i < 3; ++i)
        if (PaletteHasData(*palettes[i]))
            AddWords(buffer, u"US", 0x0028, static_cast<uint16_t>(0x1101 + i),
                     {static_cast<uint16_t>(palettes[i]->nEntries), static_cast<uint16_t>(palettes[i]->nFirstMapped),
                      palettes[i]->wBits});
    for (uint16_t i = 0; i < 3; ++i)
        if (PaletteHasData(*palettes[i]))
            AddTagByVR(buffer, u"OW", 0x0028, static_cast<uint16_t>(0x1201 + i), palettes[i]->pData.get(),
                       2 * palettes[i]->nEntries);
    AddModalityLutSequence(buffer);

    for (const std::unique_ptr<DICOM_OVERLAY>& overlay : aOverlays) {
        // Overlay groups are the even groups 6000 to 601E (PS3.3 C.9.2).
        if (!overlay || !overlay->pData || overlay->nDataSize <= 0 || overlay->nIndex < 0 ||
            overlay->nIndex > 0x1E || overlay->nIndex % 2 != 0)
            continue;
        uint16_t group = static_cast<uint16_t>(0x6000 + overlay->nIndex);
        AddTag(buffer, group, 0x0010, overlay->wRows);
        AddTag(buffer, group, 0x0011, overlay->wColumns);
        AddTag(buffer, group, 0x0012, overlay->wPlanes);
        AddText(buffer, u"CS", group, 0x0040, overlay->sType);
        AddWords(buffer, u"SS", group, 0x0050,
                 {static_cast<uint16_t>(overlay->nOriginRow), static_cast<uint16_t>(overlay->nOriginColumn)});
        AddTag(buffer, group, 0x0100, overlay->wBitsAllocated);
        AddTag(buffer, group, 0x0102, overlay->wBitPosition);
        AddTagByVR(buffer, u"OW", group, 0x3000, overlay->pData.get(), static_cast<uint32_t>(overlay->nDataSize));
    }
    return 1;
}

int DICOMINFO::CreateHeaderCompressed(CDynBuffer& buffer) const
{
    // File meta information (PS3.10 7.1), then its group length, "DICM" and
    // the preamble in front of it.
    AddTagExpVR(buffer, 0x0002, 0x0001, static_cast<uint16_t>(0x0100));
    AddTagExpVR(buffer, 0x0002, 0x0002, sSOPClassUID);
    AddTagExpVR(buffer, 0x0002, 0x0003, sSOPInstanceUID);
    AddTagExpVR(buffer, 0x0002, 0x0010, sTransferSyntax);
    AddTagExpVR(buffer, 0x0002, 0x0012, GetDicomRoot() + u".1");
    AddTagExpVR(buffer, 0x0002, 0x0013,
                AsciiToWide(FormatText("%d_%d_%d", GetVersionMajor(), GetVersionMinor(), GetVersionRev())));
    InsertTagExpVR(buffer, 0x0002, 0x0000, buffer.m_nSize, 0);
    buffer.Insert(kMagic, sizeof(kMagic), 0);
    buffer.Insert(nullptr, kPreambleSize, 0);

    AddTagExpVR(buffer, 0x0008, 0x0008, sImageType);
    AddTagExpVR(buffer, 0x0008, 0x0016, sSOPClassUID);
    AddTagExpVR(buffer, 0x0008, 0x0018, sSOPInstanceUID);
    AddTagExpVR(buffer, 0x0008, 0x0020, ConvertDateToDicom(lStudyDate));
    AddTagExpVR(buffer, 0x0008, 0x0021, ConvertDateToDicom(lSeriesDate));
    AddTagExpVR(buffer, 0x0008, 0x0023, ConvertDateToDicom(lContentDate));
    AddTagExpVR(buffer, 0x0008, 0x0030, ConvertTimeToDicom(lStudyTime));
    AddTagExpVR(buffer, 0x0008, 0x0031, ConvertTimeToDicom(lSeriesTime));
    AddTagExpVR(buffer, 0x0008, 0x0033, ConvertTimeToDicom(lContentTime));
    AddTagExpVR(buffer, 0x0008, 0x0050, sAccessionNumber);
    AddTagExpVR(buffer, 0x0008, 0x0060, sModality);
    AddTagExpVR(buffer, 0x0008, 0x0068, sPresentationIntentType);
    AddTagExpVR(buffer, 0x0008, 0x0070, sManufacturer);
    AddTagExpVR(buffer, 0x0008, 0x0080, sInstitutionName);
    AddTagExpVR(buffer, 0x0008, 0x0081, sInstitutionAddress);
    AddTagExpVR(buffer, 0x0008, 0x0090, sReferringPhysicianName);
    AddTagExpVR(buffer, 0x0008, 0x1030, sStudyDescription);
    AddTagExpVR(buffer, 0x0008, 0x1050, sPerformingPhysicianName);
    AddTagExpVR(buffer, 0x0008, 0x1090, sManufacturerModelName);
    if (!sReferencedSOPClassUID.empty() && !sReferencedSOPInstanceUID.empty()) {
        // Referenced Image Sequence: one item, both of undefined length.
        AddTagExpVR(buffer, 0x0008, 0x1140);
        AddTag(buffer, 0xFFFE, 0xE000);
        AddTagExpVR(buffer, 0x0008, 0x1150, sReferencedSOPClassUID);
        AddTagExpVR(buffer, 0x0008, 0x1155, sReferencedSOPInstanceUID);
        AddDelimiter(buffer, 0xE00D);
        AddDelimiter(buffer, 0xE0DD);
    }

    AddTagExpVR(buffer, 0x0010, 0x0010, sPatientName);
    AddTagExpVR(buffer, 0x0010, 0x0020, sPatientID);
    AddTagExpVR(buffer, 0x0010, 0x0030, ConvertDateToDicom(lPatientBirthDate));
    AddTagExpVR(buffer, 0x0010, 0x0040, sPatientSex);
    AddTagExpVR(buffer, 0x0018, 0x0010, sContrastBolusAgent);
    AddTagExpVR(buffer, 0x0018, 0x0060, sKVP);
    bool multiFrame = nNumberOfFrames > 1;
    if (multiFrame)
        AddTagExpVR(buffer, 0x0018, 0x1063, AsciiToWide(FormatText("%f", static_cast<double>(fFrameTime))));
    AddTagExpVR(buffer, 0x0018, 0x1152, sExposure);
    AddTagExpVR(buffer, 0x0018, 0x1155, sRadiationSetting);
    AddTagExpVR(buffer, 0x0018, 0x1500, sPositionerType);
    AddTagExpVR(buffer, 0x0018, 0x1510, sPositionerPrimaryAngle);
    AddTagExpVR(buffer, 0x0018, 0x1511, sPositionerSecondaryAngle);

    AddTagExpVR(buffer, 0x0020, 0x000D, sStudyInstanceUID);
    AddTagExpVR(buffer, 0x0020, 0x000E, sSeriesInstanceUID);
    AddTagExpVR(buffer, 0x0020, 0x0010, sStudyID);
    AddTagExpVR(buffer, 0x0020, 0x0011, sSeriesNumber);
    AddTagExpVR(buffer, 0x0020, 0x0013, sInstanceNumber);
    AddTagExpVR(buffer, 0x0020, 0x0020, sPatientOrientation);
    AddTagExpVR(buffer, 0x0020, 0x4000, sImageComments);

    AddTagExpVR(buffer, 0x0028, 0x0002, wSamplesPerPixel);
    AddTagExpVR(buffer, 0x0028, 0x0004, GetPhotometricString(static_cast<PHOTOMETRIC>(nPhotometric)));
    if (multiFrame) {
        AddTagExpVR(buffer, 0x0028, 0x0008, AsciiToWide(FormatText("%d", nNumberOfFrames)));
        // Frame Increment Pointer: the tag of Frame Time, group then element.
        const unsigned char frameTime[4] = {0x18, 0x00, 0x63, 0x10};
        AddTagExpVR(buffer, 0x0028, 0x0009, frameTime, sizeof(frameTime));
    }
    // Rows and columns rounded down to a multiple of 8, as the block codecs
    // that produce these images leave them.
    AddTagExpVR(buffer, 0x0028, 0x0010, static_cast<uint16_t>(nRows & ~7));
    AddTagExpVR(buffer, 0x0028, 0x0011, static_cast<uint16_t>(nColumns & ~7));
    AddTagExpVR(buffer, 0x0028, 0x0100, static_cast<uint16_t>(nBitsAllocated));
    AddTagExpVR(buffer, 0x0028, 0x0101, static_cast<uint16_t>(nBitsStored));
    AddTagExpVR(buffer, 0x0028, 0x0102, static_cast<uint16_t>(nHighBit));
    AddTagExpVR(buffer, 0x0028, 0x0103, wPixelRepresentation);
    AddTagExpVR(buffer, 0x0028, 0x1040, sPixelIntensityRelationship);
    AddTagExpVR(buffer, 0x0028, 0x1050, AsciiToWide(FormatText("%d", nWindowCenter)));
    AddTagExpVR(buffer, 0x0028, 0x1051, AsciiToWide(FormatText("%d", nWindowWidth)));
    AddTagExpVR(buffer, 0x0028, 0x1052, AsciiToWide(FormatText("%d", nRescaleIntercept)));
    AddTagExpVR(buffer, 0x0050, 0x0004, sCalibrationImage);

    // Encapsulated pixel data is OB whatever the dictionary's OW says
    // (PS3.5 A.4; DCMTK warns about an OW of fragments). The caller appends
    // the Basic Offset Table item, the fragments and the sequence delimiter.
    const unsigned char pixelDataStart[12] = {0xE0, 0x7F, 0x10, 0x00, 'O', 'B', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    buffer.Add(pixelDataStart, sizeof(pixelDataStart));
    return 1;
}
