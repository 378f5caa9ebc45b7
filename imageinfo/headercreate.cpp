// Header creation: the bytes of a new image object's header written from the
// record, through the raw element writers, in tag order and without a tree.
// CreateHeader gives a Secondary Capture data set in implicit VR little
// endian (no meta information, no pixels); CreateHeaderCompressed gives a
// whole file head in explicit VR little endian that ends with the start of
// an encapsulated pixel data element (PS3.5 A.4).
#include <initializer_list>
#include <string>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr char16_t kLatin1[] = u"ISO_IR 100";
constexpr char16_t kUtf8[] = u"ISO_IR 192";
constexpr char16_t kSecondaryCaptureImageStorage[] = u"1.2.840.10008.5.1.4.1.1.7";
constexpr uint32_t kPreambleSize = 128;
constexpr unsigned char kMagic[4] = {'D', 'I', 'C', 'M'};

// Text elements of the modality LUT sequence: ASCII, written for ISO_IR 100.
void AddText(CDynBuffer& buffer, const char16_t* vr, uint16_t group, uint16_t element, const std::u16string& text)
{
    DICOMINFO::AddTagByVR(buffer, vr, group, element, text, kLatin1);
}

// The text elements of CreateHeader in one character set; remembers whether
// any value was one that the set cannot hold (and so was left out).
struct TextWriter {
    CDynBuffer& buffer;
    const char16_t* characterSet;
    bool explicitVR = false;
    bool complete = true;

    void operator()(const char16_t* vr, uint16_t group, uint16_t element, const std::u16string& text)
    {
        if (!explicitVR) {
            if (!DICOMINFO::AddTagByVR(buffer, vr, group, element, text, characterSet))
                complete = false;
            return;
        }
        std::string bytes;
        if (!CDicomItem::TranslateTagValueFromUnicodeToDicom(text, WideToAscii(vr), characterSet, bytes)) {
            complete = false;
            return;
        }
        DICOMINFO::AddTagExpVR(buffer, group, element, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    void Number(const char16_t* vr, uint16_t group, uint16_t element, int value)
    {
        (*this)(vr, group, element, AsciiToWide(FormatText("%d", value)));
    }
};

// Appends what write writes in ISO_IR 100 unless a value needs more: then
// all of it is written again in UTF-8 rather than without that value
// (PS3.3 C.12.1.1.2).
template <typename Write>
void WriteInFittingCharacterSet(CDynBuffer& buffer, bool explicitVR, Write write)
{
    for (const char16_t* characterSet : {kLatin1, kUtf8}) {
        CDynBuffer part;
        TextWriter text{part, characterSet, explicitVR};
        write(text);
        if (text.complete || characterSet == kUtf8) {
            buffer.Add(part.GetData(), part.m_nSize);
            return;
        }
    }
}

// The Photometric Interpretation to write. GetPhotometricString leaves the
// two YBR_FULL forms empty (the record's reader decodes them to RGB), but a
// header written for pixels still in those forms must name them
// (PS3.3 C.7.6.3.1.2: the attribute is Type 1).
std::u16string PhotometricText(int photometric)
{
    if (photometric == DICOMINFO::YBR_FULL)
        return u"YBR_FULL";
    if (photometric == DICOMINFO::YBR_FULL_422)
        return u"YBR_FULL_422";
    return DICOMINFO::GetPhotometricString(static_cast<DICOMINFO::PHOTOMETRIC>(photometric));
}

// PS3.4 B.5: a multi-frame capture takes the multi-frame Secondary Capture
// class that fits its pixels (PS3.3 A.8.2 to A.8.5); the single-frame class
// allows one frame only (PS3.3 C.8.6.2). 32-bit and rescaled pixels fit none
// of them (nor do signed greyscale ones) and keep the single-frame class
// with their frame count.
std::u16string SecondaryCaptureClass(const DICOMINFO& info)
{
    if (info.nNumberOfFrames <= 1 || info.nRescaleIntercept != 0 || info.ModalityLut.IsDataPresent())
        return kSecondaryCaptureImageStorage;
    if (info.wSamplesPerPixel == 3 && info.nBitsAllocated == 8)
        return u"1.2.840.10008.5.1.4.1.1.7.4";  // Multi-frame True Color
    // The greyscale ones hold unsigned pixels only (PS3.3 C.8.6.3).
    if (info.wSamplesPerPixel == 1 && info.wPixelRepresentation == 0 && info.nBitsAllocated == 8)
        return u"1.2.840.10008.5.1.4.1.1.7.2";  // Multi-frame Grayscale Byte
    if (info.wSamplesPerPixel == 1 && info.wPixelRepresentation == 0 && info.nBitsAllocated == 16)
        return u"1.2.840.10008.5.1.4.1.1.7.3";  // Multi-frame Grayscale Word
    return kSecondaryCaptureImageStorage;
}

// The Patient's Name as stored (PS3.5 6.2: components separated by "^").
// The record's reader keeps that form in sDicomPatientName and gives
// sPatientName with blanks for display; a name the host has changed since
// is written as the host gave it.
std::u16string StoredPatientName(const DICOMINFO& info)
{
    if (info.sDicomPatientName.empty())
        return info.sPatientName;
    std::u16string shown = info.sDicomPatientName;
    for (char16_t& c : shown)
        if (c == u'^')
            c = u' ';
    return shown == info.sPatientName ? info.sDicomPatientName : info.sPatientName;
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


// The Secondary Capture header up to the palette LUTs (PS3.3 A.8.1).
void WriteImageHead(const DICOMINFO& info, TextWriter& text)
{
    CDynBuffer& buffer = text.buffer;
    text(u"CS", 0x0008, 0x0005, text.characterSet);
    text(u"CS", 0x0008, 0x0008, u"DERIVED\\SECONDARY");
    std::u16string sopClass = SecondaryCaptureClass(info);
    bool multiFrameClass = sopClass != kSecondaryCaptureImageStorage;
    text(u"UI", 0x0008, 0x0016, sopClass);
    text(u"UI", 0x0008, 0x0018, info.sSOPInstanceUID);
    text(u"DA", 0x0008, 0x0020, DICOMINFO::ConvertDateToDicom(info.lStudyDate));
    text(u"DA", 0x0008, 0x0023, DICOMINFO::ConvertDateToDicom(info.lContentDate));
    text(u"TM", 0x0008, 0x0030, DICOMINFO::ConvertTimeToDicom(info.lStudyTime));
    text(u"TM", 0x0008, 0x0033, DICOMINFO::ConvertTimeToDicom(info.lContentTime));
    text(u"SH", 0x0008, 0x0050, info.sAccessionNumber);
    // PS3.3 A.8.1: Modality is Type 3 in the SC Equipment module, so an
    // unknown one is left out rather than written empty.
    if (!Trim(info.sModality).empty())
        text(u"CS", 0x0008, 0x0060, info.sModality);
    // PS3.3 C.8.6.1: Conversion Type is Type 1; the library makes workstation captures.
    text(u"CS", 0x0008, 0x0064, u"WSD");
    text(u"CS", 0x0008, 0x0068, info.sPresentationIntentType);
    text(u"LO", 0x0008, 0x0070, info.sManufacturer);
    text(u"LO", 0x0008, 0x0080, info.sInstitutionName);
    text(u"PN", 0x0008, 0x0090, info.sReferringPhysicianName);
    text(u"SH", 0x0008, 0x1010, info.sStationName);
    text(u"LO", 0x0008, 0x1030, info.sStudyDescription);
    text(u"LO", 0x0008, 0x1090, info.sManufacturerModelName);

    text(u"PN", 0x0010, 0x0010, StoredPatientName(info));
    text(u"LO", 0x0010, 0x0020, info.sPatientID);
    text(u"DA", 0x0010, 0x0030, DICOMINFO::ConvertDateToDicom(info.lPatientBirthDate));
    text(u"TM", 0x0010, 0x0032, u"");
    text(u"CS", 0x0010, 0x0040, SexCode(info.sPatientSex));
    text(u"CS", 0x0018, 0x0015, info.sBodyPartExamined);
    // PS3.3 C.7.6.5: the frames of a multi-frame capture are a cine run.
    if (multiFrameClass)
        text(u"DS", 0x0018, 0x1063, AsciiToWide(FormatText("%g", static_cast<double>(info.fFrameTime))));

    text(u"UI", 0x0020, 0x000D, info.sStudyInstanceUID);
    text(u"UI", 0x0020, 0x000E, info.sSeriesInstanceUID);
    text(u"SH", 0x0020, 0x0010, info.sStudyID);
    text(u"IS", 0x0020, 0x0011, info.sSeriesNumber);
    text(u"IS", 0x0020, 0x0012, info.sAcquisitionNumber);
    text(u"IS", 0x0020, 0x0013, info.sInstanceNumber);
    // PS3.3 C.7.6.1: Patient Orientation is Type 2C (no Image Orientation
    // here); PS3.3 C.7.3.1: Laterality is Type 2C (empty: not known).
    text(u"CS", 0x0020, 0x0020, info.sPatientOrientation);
    text(u"CS", 0x0020, 0x0060, info.sLaterality);

    DICOMINFO::AddTag(buffer, 0x0028, 0x0002, info.wSamplesPerPixel);
    text(u"CS", 0x0028, 0x0004, PhotometricText(info.nPhotometric));
    // PS3.3 C.7.6.3.1.3: Planar Configuration is Type 1C, present for more
    // than one sample per pixel.
    if (info.wSamplesPerPixel > 1)
        DICOMINFO::AddTag(buffer, 0x0028, 0x0006, info.wPlanarConfiguration);
    // Every frame of the pixel data counts: without Number of Frames a
    // reader sees one frame and the rest as surplus bytes (PS3.3 C.7.6.6).
    if (info.nNumberOfFrames > 1)
        text.Number(u"IS", 0x0028, 0x0008, info.nNumberOfFrames);
    if (multiFrameClass) {
        // Frame Increment Pointer: Frame Time (PS3.3 C.8.6.3).
        const unsigned char frameTime[4] = {0x18, 0x00, 0x63, 0x10};
        DICOMINFO::AddTagByVR(buffer, u"AT", 0x0028, 0x0009, frameTime, sizeof(frameTime));
    }
    DICOMINFO::AddTag(buffer, 0x0028, 0x0010, static_cast<uint16_t>(info.nRows));
    DICOMINFO::AddTag(buffer, 0x0028, 0x0011, static_cast<uint16_t>(info.nColumns));
    if (info.dRowSpacing != 0.0 && info.dColumnSpacing != 0.0)
        text(u"DS", 0x0028, 0x0030, AsciiToWide(FormatText("%f\\%f", info.dRowSpacing, info.dColumnSpacing)));
    DICOMINFO::AddTag(buffer, 0x0028, 0x0100, static_cast<uint16_t>(info.nBitsAllocated));
    DICOMINFO::AddTag(buffer, 0x0028, 0x0101, static_cast<uint16_t>(info.nBitsStored));
    DICOMINFO::AddTag(buffer, 0x0028, 0x0102, static_cast<uint16_t>(info.nHighBit));
    DICOMINFO::AddTag(buffer, 0x0028, 0x0103, info.wPixelRepresentation);
    // PS3.3 C.8.6.3: Type 1 in a multi-frame capture; a capture of a screen
    // may hold its text, so it is not said to be free of it.
    if (multiFrameClass)
        text(u"CS", 0x0028, 0x0301, u"YES");
    text.Number(u"DS", 0x0028, 0x1050, info.nWindowCenter);
    text.Number(u"DS", 0x0028, 0x1051, info.nWindowWidth);
    // A modality LUT replaces the rescale (PS3.3 C.11.1). PS3.3 C.8.6.2:
    // Rescale Slope and Rescale Type are Type 1C with the Rescale Intercept;
    // the record keeps no slope (its intercept is an integer), so 1, and
    // the type read from the source or "US" (unspecified).
    // PS3.3 C.8.6.3: a multi-frame colour capture has no rescale.
    if (!info.ModalityLut.IsDataPresent() && (!multiFrameClass || info.wSamplesPerPixel == 1)) {
        text.Number(u"DS", 0x0028, 0x1052, info.nRescaleIntercept);
        text(u"DS", 0x0028, 0x1053, u"1");
        text(u"LO", 0x0028, 0x1054, Trim(info.sRescaleType).empty() ? std::u16string(u"US") : info.sRescaleType);
    }

    const DICOM_LUT* palettes[3] = {&info.RedPaletteLut, &info.GreenPaletteLut, &info.BluePaletteLut};
    for (uint16_t i = 0; i < 3; ++i)
        if (PaletteHasData(*palettes[i]))
            AddWords(buffer, u"US", 0x0028, static_cast<uint16_t>(0x1101 + i),
                     {static_cast<uint16_t>(palettes[i]->nEntries), static_cast<uint16_t>(palettes[i]->nFirstMapped),
                      palettes[i]->wBits});
    for (uint16_t i = 0; i < 3; ++i)
        if (PaletteHasData(*palettes[i]))
            DICOMINFO::AddTagByVR(buffer, u"OW", 0x0028, static_cast<uint16_t>(0x1201 + i),
                                  palettes[i]->pData.get(), 2 * palettes[i]->nEntries);
}

// What follows the modality LUT sequence: the presentation LUT shape of a
// multi-frame greyscale capture and the overlay planes (PS3.3 C.9.2).
void WriteTail(const DICOMINFO& info, TextWriter& text)
{
    CDynBuffer& buffer = text.buffer;
    // PS3.3 C.8.6.3: Type 1C for greyscale, and IDENTITY there.
    if (SecondaryCaptureClass(info) != kSecondaryCaptureImageStorage && info.wSamplesPerPixel == 1)
        text(u"CS", 0x2050, 0x0020, u"IDENTITY");
    for (const std::unique_ptr<DICOM_OVERLAY>& overlay : info.aOverlays) {
        // Overlay groups are the even groups 6000 to 601E (PS3.3 C.9.2).
        if (!overlay || !overlay->pData || overlay->nDataSize <= 0 || overlay->nIndex < 0 ||
            overlay->nIndex > 0x1E || overlay->nIndex % 2 != 0)
            continue;
        uint16_t group = static_cast<uint16_t>(0x6000 + overlay->nIndex);
        DICOMINFO::AddTag(buffer, group, 0x0010, overlay->wRows);
        DICOMINFO::AddTag(buffer, group, 0x0011, overlay->wColumns);
        DICOMINFO::AddTag(buffer, group, 0x0012, overlay->wPlanes);
        text(u"CS", group, 0x0040, overlay->sType);
        AddWords(buffer, u"SS", group, 0x0050,
                 {static_cast<uint16_t>(overlay->nOriginRow), static_cast<uint16_t>(overlay->nOriginColumn)});
        DICOMINFO::AddTag(buffer, group, 0x0100, overlay->wBitsAllocated);
        DICOMINFO::AddTag(buffer, group, 0x0102, overlay->wBitPosition);
        DICOMINFO::AddTagByVR(buffer, u"OW", group, 0x3000, overlay->pData.get(),
                              static_cast<uint32_t>(overlay->nDataSize));
    }
}

// The data set of CreateHeaderCompressed, in explicit VR, up to the pixel data.
void WriteCompressedDataSet(const DICOMINFO& info, TextWriter& text)
{
    CDynBuffer& buffer = text.buffer;
    text(u"CS", 0x0008, 0x0005, text.characterSet);
    text(u"CS", 0x0008, 0x0008, info.sImageType);
    text(u"UI", 0x0008, 0x0016, info.sSOPClassUID);
    text(u"UI", 0x0008, 0x0018, info.sSOPInstanceUID);
    text(u"DA", 0x0008, 0x0020, DICOMINFO::ConvertDateToDicom(info.lStudyDate));
    text(u"DA", 0x0008, 0x0021, DICOMINFO::ConvertDateToDicom(info.lSeriesDate));
    text(u"DA", 0x0008, 0x0023, DICOMINFO::ConvertDateToDicom(info.lContentDate));
    text(u"TM", 0x0008, 0x0030, DICOMINFO::ConvertTimeToDicom(info.lStudyTime));
    text(u"TM", 0x0008, 0x0031, DICOMINFO::ConvertTimeToDicom(info.lSeriesTime));
    text(u"TM", 0x0008, 0x0033, DICOMINFO::ConvertTimeToDicom(info.lContentTime));
    text(u"SH", 0x0008, 0x0050, info.sAccessionNumber);
    if (!Trim(info.sModality).empty())  // as in WriteImageHead
        text(u"CS", 0x0008, 0x0060, info.sModality);
    // PS3.3 C.8.6.1: Conversion Type is Type 1 in the Secondary Capture IODs.
    if (info.sSOPClassUID.rfind(kSecondaryCaptureImageStorage, 0) == 0)
        text(u"CS", 0x0008, 0x0064, u"WSD");
    text(u"CS", 0x0008, 0x0068, info.sPresentationIntentType);
    text(u"LO", 0x0008, 0x0070, info.sManufacturer);
    text(u"LO", 0x0008, 0x0080, info.sInstitutionName);
    text(u"ST", 0x0008, 0x0081, info.sInstitutionAddress);
    text(u"PN", 0x0008, 0x0090, info.sReferringPhysicianName);
    text(u"LO", 0x0008, 0x1030, info.sStudyDescription);
    text(u"PN", 0x0008, 0x1050, info.sPerformingPhysicianName);
    text(u"LO", 0x0008, 0x1090, info.sManufacturerModelName);
    if (!info.sReferencedSOPClassUID.empty() && !info.sReferencedSOPInstanceUID.empty()) {
        // Referenced Image Sequence: one item, both of undefined length.
        DICOMINFO::AddTagExpVR(buffer, 0x0008, 0x1140);
        DICOMINFO::AddTag(buffer, 0xFFFE, 0xE000);
        text(u"UI", 0x0008, 0x1150, info.sReferencedSOPClassUID);
        text(u"UI", 0x0008, 0x1155, info.sReferencedSOPInstanceUID);
        AddDelimiter(buffer, 0xE00D);
        AddDelimiter(buffer, 0xE0DD);
    }

    text(u"PN", 0x0010, 0x0010, StoredPatientName(info));
    text(u"LO", 0x0010, 0x0020, info.sPatientID);
    text(u"DA", 0x0010, 0x0030, DICOMINFO::ConvertDateToDicom(info.lPatientBirthDate));
    text(u"CS", 0x0010, 0x0040, info.sPatientSex);
    text(u"LO", 0x0018, 0x0010, info.sContrastBolusAgent);
    text(u"DS", 0x0018, 0x0060, info.sKVP);
    bool multiFrame = info.nNumberOfFrames > 1;
    if (multiFrame)
        text(u"DS", 0x0018, 0x1063, AsciiToWide(FormatText("%f", static_cast<double>(info.fFrameTime))));
    text(u"IS", 0x0018, 0x1152, info.sExposure);
    text(u"CS", 0x0018, 0x1155, info.sRadiationSetting);
    text(u"CS", 0x0018, 0x1500, info.sPositionerType);
    text(u"DS", 0x0018, 0x1510, info.sPositionerPrimaryAngle);
    text(u"DS", 0x0018, 0x1511, info.sPositionerSecondaryAngle);

    text(u"UI", 0x0020, 0x000D, info.sStudyInstanceUID);
    text(u"UI", 0x0020, 0x000E, info.sSeriesInstanceUID);
    text(u"SH", 0x0020, 0x0010, info.sStudyID);
    text(u"IS", 0x0020, 0x0011, info.sSeriesNumber);
    text(u"IS", 0x0020, 0x0013, info.sInstanceNumber);
    text(u"CS", 0x0020, 0x0020, info.sPatientOrientation);
    text(u"CS", 0x0020, 0x0060, info.sLaterality);  // PS3.3 C.7.3.1: Type 2C
    text(u"LT", 0x0020, 0x4000, info.sImageComments);

    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0002, info.wSamplesPerPixel);
    text(u"CS", 0x0028, 0x0004, PhotometricText(info.nPhotometric));
    // PS3.3 C.7.6.3.1.3: Type 1C with more than one sample; PS3.5 8.2.1:
    // 0 for the JPEG processes.
    if (info.wSamplesPerPixel > 1)
        DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0006, info.wPlanarConfiguration);
    if (multiFrame) {
        text(u"IS", 0x0028, 0x0008, AsciiToWide(FormatText("%d", info.nNumberOfFrames)));
        // Frame Increment Pointer: the tag of Frame Time, group then element.
        const unsigned char frameTime[4] = {0x18, 0x00, 0x63, 0x10};
        DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0009, frameTime, sizeof(frameTime));
    }
    // The image's own size: a JPEG stream pads its last blocks but says how
    // many rows and columns it holds (ISO/IEC 10918-1 B.2.2), and DICOM's
    // Rows and Columns must equal them (PS3.5 8.2.1).
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0010, static_cast<uint16_t>(info.nRows));
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0011, static_cast<uint16_t>(info.nColumns));
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0100, static_cast<uint16_t>(info.nBitsAllocated));
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0101, static_cast<uint16_t>(info.nBitsStored));
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0102, static_cast<uint16_t>(info.nHighBit));
    DICOMINFO::AddTagExpVR(buffer, 0x0028, 0x0103, info.wPixelRepresentation);
    text(u"CS", 0x0028, 0x1040, info.sPixelIntensityRelationship);
    text(u"DS", 0x0028, 0x1050, AsciiToWide(FormatText("%d", info.nWindowCenter)));
    text(u"DS", 0x0028, 0x1051, AsciiToWide(FormatText("%d", info.nWindowWidth)));
    text(u"DS", 0x0028, 0x1052, AsciiToWide(FormatText("%d", info.nRescaleIntercept)));
    // PS3.3 C.11.1: Rescale Slope and Type come with the intercept.
    text(u"DS", 0x0028, 0x1053, u"1");
    text(u"LO", 0x0028, 0x1054, Trim(info.sRescaleType).empty() ? std::u16string(u"US") : info.sRescaleType);
    text(u"CS", 0x0050, 0x0004, info.sCalibrationImage);
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

std::u16string DICOMINFO::GetCreateHeaderSOPClassUID() const
{
    return SecondaryCaptureClass(*this);
}

int DICOMINFO::CreateHeader(CDynBuffer& buffer) const
{
    WriteInFittingCharacterSet(buffer, false, [this](TextWriter& text) {
        WriteImageHead(*this, text);
        AddModalityLutSequence(text.buffer);
        WriteTail(*this, text);
    });
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

    WriteInFittingCharacterSet(buffer, true, [this](TextWriter& text) { WriteCompressedDataSet(*this, text); });

    // Encapsulated pixel data is OB whatever the dictionary's OW says
    // (PS3.5 A.4; DCMTK warns about an OW of fragments). The caller appends
    // the Basic Offset Table item, the fragments and the sequence delimiter.
    const unsigned char pixelDataStart[12] = {0xE0, 0x7F, 0x10, 0x00, 'O', 'B', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF};
    buffer.Add(pixelDataStart, sizeof(pixelDataStart));
    return 1;
}
