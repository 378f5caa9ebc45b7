// Reading an image object into the record: the buffer is parsed into an
// element tree and values are copied out group by group. The pixel data are
// never read: only their position and, for encapsulated data, the item
// headers of the offset table and fragments.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/orientation.h"
#include "platform/datainmemory.h"
#include "platform/language.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
// LUT and palette values come from the element tree, which holds little
// endian values whatever the byte order of the object it was read from.
constexpr bool kTreeIsBigEndian = false;

// A decimal number held as text, as the float it reads as; 0 when the text
// is no number.
float StringToFloat(const std::u16string& text)
{
    std::string ascii = WideToAscii(Trim(text));
    return std::strtof(ascii.c_str(), nullptr);
}

// The exact number a decimal string gives; 0 when the text is no number.
double StringToDouble(const std::u16string& text)
{
    std::string ascii = WideToAscii(Trim(text));
    double value = std::strtod(ascii.c_str(), nullptr);
    return std::isfinite(value) ? value : 0.0;
}

// Truncation toward zero of a float, kept inside the int range.
int TruncateToInt(float value)
{
    if (!(value == value))
        return 0;
    if (value >= 2147483647.0f)
        return INT32_MAX;
    if (value <= -2147483648.0f)
        return INT32_MIN;
    return static_cast<int>(value);
}

long ReadDate(const CDicomItem* data, int group, int element)
{
    std::u16string text;
    if (!data->GetTagValue(group, element, text))
        return -1;
    return CDicomInfoStatics::ConvertDateFromDicom(text);
}

long ReadTime(const CDicomItem* data, int group, int element)
{
    std::u16string text;
    if (!data->GetTagValue(group, element, text))
        return -1;
    return CDicomItem::DicomTimeToLong(Trim(text));
}

void ReadText(const CDicomItem* data, int group, int element, std::u16string& field)
{
    data->GetTagValue(group, element, field);
}

void ReadInt16(const CDicomItem* data, int group, int element, int& field)
{
    uint16_t value;
    if (data->GetTagValue(group, element, value))
        field = value;
}

void ReadIS(const CDicomItem* data, int group, int element, int& field)
{
    const CDicomItem* item = data->GetTagItem(group, element);
    int value;
    if (item && item->GetTagValueForIS(value, 0))
        field = value;
}

// PS3.5 7.4: an element of zero length (or, for text, only padding) has no
// value. Where the record takes a number from an element, such an element
// counts as absent: several vendors write empty Window Center and Width into
// their JPEG objects, and a width of 0 is no window (PS3.3 C.11.2.1.2).
bool HasEmptyValue(const CDicomItem* item)
{
    if (!item || item->GetDataSize() < 0)
        return false;
    if (item->GetDataSize() == 0 || !item->GetData())
        return true;
    std::u16string text;
    return CTagTable::IsString(AsciiToWide(item->GetVR())) && item->GetTagValue(text) && Trim(text).empty();
}

// The elements of the data set whose numbers the record takes.
constexpr uint32_t kNumberElements[] = {
    0x00082142, 0x00082143, 0x00082144, 0x00180050, 0x00180088, 0x00181063, 0x00181066, 0x00181114,
    0x00181164, 0x00200032, 0x00200037, 0x00201002, 0x00280002, 0x00280006, 0x00280008, 0x00280010,
    0x00280011, 0x00280030, 0x00280034, 0x00280100, 0x00280101, 0x00280102, 0x00280103, 0x00280120,
    0x00281050, 0x00281051, 0x00281052, 0x00281053,
};

// The first value of a decimal string element as text; false when the
// element is absent or that value is empty.
bool FirstDecimal(const CDicomItem* from, int group, int element, std::u16string& all, std::u16string& first)
{
    if (!from->GetTagValue(group, element, all))
        return false;
    first = Trim(GetField(all, u'\\', 0));
    return !first.empty();
}

// A LUT element's words: the value pointer and how many whole words it holds.
struct Words {
    const uint16_t* values = nullptr;
    size_t count = 0;
};
Words WordsOf(const CDicomItem* item)
{
    Words words;
    if (item && item->GetData() && item->GetDataSize() > 0) {
        words.values = reinterpret_cast<const uint16_t*>(item->GetData());
        words.count = static_cast<size_t>(item->GetDataSize()) / 2;
    }
    return words;
}

// Three descriptor words; false when the element holds fewer.
bool Descriptor(const CDicomItem* item, uint16_t out[3])
{
    Words words = WordsOf(item);
    if (words.count < 3)
        return false;
    std::memcpy(out, words.values, 6);
    return true;
}

}  // namespace

int DICOMINFO::ReadFileInfo(const std::u16string& path)
{
    CDataInMemory file(path);
    if (!file.IsValid()) {
        m_LastError.Set(file.GetErrorCode() > 0 ? file.GetErrorCode() : CLastError::kNotDicom,
                        file.GetError().empty() ? "cannot open the file" : file.GetError());
        return 0;
    }
    if (file.GetSize() > UINT32_MAX) {
        m_LastError.Set(CLastError::kUnsupported, "file larger than 4 GiB");
        return 0;
    }
    return ReadInfo(file.GetData(), static_cast<uint32_t>(file.GetSize()));
}

int DICOMINFO::ReadInfo(const unsigned char* buffer, uint32_t size)
{
    m_LastError.Clear();
    if (size > INT32_MAX) {
        m_LastError.Set(CLastError::kUnsupported, "object larger than 2 GiB");
        return 0;
    }
    CDicomItem root(u"Root");
    if (!root.LoadObject(buffer, static_cast<int>(size))) {
        m_LastError = root.GetLastError();
        if (!m_LastError.IsSet())
            m_LastError.Set(CLastError::kMalformed, "cannot parse the object");
        return 0;
    }
    auto* data = static_cast<CDicomItem*>(root.GetChildItem(u"Data"));
    if (!data) {
        m_LastError.Set(CLastError::kMalformed, "the object has no data set");
        return 0;
    }
    bool changed = false;
    ProcessMetaHeader(buffer, size, changed);
    GetInfoFromMetaHeader(&root);
    GetInfoFromGroup0008(data);
    GetInfoFromGroup0010(data);
    GetInfoFromGroup0018(data);
    GetInfoFromGroup0020(data);
    GetInfoFromGroup0028(data);
    for (uint32_t tag : kNumberElements)
        if (HasEmptyValue(data->GetTagItem(static_cast<int>(tag >> 16), static_cast<int>(tag & 0xFFFF))))
            aEmptyNumberElements.push_back(tag);
    GetPixelSpacing(data, dRowSpacing, dColumnSpacing);
    GetInfoFromFunctionalGroups(data);
    if (dRowSpacing != 0.0 && dColumnSpacing != 0.0)
        nFlags |= 8;
    ReadText(data, 0x0032, 0x4000, sStudyComments);
    ReadText(data, 0x0038, 0x0300, sCurrentPatientLocation);
    ReadText(data, 0x0040, 0x8302, sEntranceDose);
    ReadText(data, 0x0040, 0x0316, sOrganDose);
    ReadText(data, 0x0050, 0x0004, sCalibrationImage);
    GetInfosFromGroupOverlays(data);
    FillViewCodeSequence(data);
    PatientSpeciesCode = FillCodeSequence(data, 0x0010, 0x2202);
    PatientBreedCode = FillCodeSequence(data, 0x0010, 0x2293);
    const CDicomItem* constData = data;
    FillBreedRegistrationSequence(constData);

    // The pixel data's offset in the buffer (a big endian object's converted
    // copy keeps it); its value is read from the tree, in little endian.
    if (const CDicomItem* pixels = data->GetTagItem(0x7FE0, 0x0010)) {
        int64_t pixelOffset = root.GetLoadedOffset(pixels->GetData());
        if (pixelOffset >= 0 && static_cast<uint64_t>(pixelOffset) <= size) {
            nPixelDataOffset = static_cast<int>(pixelOffset);
            size_t available = size - static_cast<size_t>(nPixelDataOffset);
            // Encapsulated data are walked item by item; for native data the
            // offsets follow from the frame size, checked against the value.
            if (pixels->GetDataSize() == -1)
                GetFramesOffsetTable(pixels->GetData(), available);
            else if (nCompressionType == 0)
                GetFramesOffsetTable(pixels->GetData(), static_cast<size_t>(pixels->GetDataSize()));
        }
    }
    // The record describes the object as it lies in the buffer: raw reads
    // of a big endian one swap.
    if (root.IsSourceBigEndian())
        bBigEndian = 1;
    SpecialCTProcessing(buffer, size);
    ValidatePhotometric();
    ValidateDates();
    if (sPatientOrientation.empty() && !sImageOrientationPatient.empty())
        sPatientOrientation = CPatientOrientation::ImageToPatientOrientation(WideToAscii(sImageOrientationPatient));
    return 1;
}

void DICOMINFO::GetInfoFromMetaHeader(const CDicomItem* root)
{
    const auto* header = root ? static_cast<const CDicomItem*>(root->GetChildItem(u"Header")) : nullptr;
    if (!header)
        return;
    int version;
    if (header->GetTagValue(0x0002, 0x0001, version))
        nMetaVersion = version;
    else if (const CDicomItem* item = header->GetTagItem(0x0002, 0x0001); item && item->GetDataSize() >= 2)
        nMetaVersion = ByteCursor::loadUint16LE(item->GetData());
    ReadText(header, 0x0002, 0x0002, sMediaStorageSOPClassUID);
    ReadText(header, 0x0002, 0x0003, sMediaStorageSOPInstanceUID);
    ReadText(header, 0x0002, 0x0010, sTransferSyntax);
    sTransferSyntax = Trim(sTransferSyntax);
    nCompressionType = GetCompTypeFromTransferSyntax(sTransferSyntax);
    ReadText(header, 0x0002, 0x0012, sImplementationClassUID);
    ReadText(header, 0x0002, 0x0013, sImplementationVersionName);
    ReadText(header, 0x0002, 0x0016, sSourceAETitle);
}

void DICOMINFO::GetInfoFromGroup0008(CDicomItem* data)
{
    if (!data)
        return;
    std::string characterSet = ExtractCharacterSet(data);
    sSpecificCharacterSet = AsciiToWide(characterSet);
    // The parser labels the tree with the data set's character set already;
    // relabelling walks the whole tree, so only a different label is applied.
    if (!characterSet.empty() && data->m_sCharacterSet != characterSet)
        data->ChangeCharacterSet(characterSet);

    if (data->GetTagValue(0x0008, 0x0008, sImageType) && !sImageType.empty()) {
        size_t last = sImageType.rfind(u'\\');
        std::u16string value = last == std::u16string::npos ? sImageType : sImageType.substr(last + 1);
        if (value.compare(0, 7, u"BIPLANE") == 0) {
            bBiplane = 1;
            sBiplanePlane = value.substr(value.size() - 1);
        }
    }
    lInstanceCreationDate = static_cast<int>(ReadDate(data, 0x0008, 0x0012));
    lInstanceCreationTime = static_cast<int>(ReadTime(data, 0x0008, 0x0013));
    ReadText(data, 0x0008, 0x0016, sSOPClassUID);
    ReadText(data, 0x0008, 0x0018, sSOPInstanceUID);
    lStudyDate = static_cast<int>(ReadDate(data, 0x0008, 0x0020));
    lSeriesDate = static_cast<int>(ReadDate(data, 0x0008, 0x0021));
    lAcquisitionDate = static_cast<int>(ReadDate(data, 0x0008, 0x0022));
    lContentDate = lContentDateAsRead = static_cast<int>(ReadDate(data, 0x0008, 0x0023));
    lStudyTime = static_cast<int>(ReadTime(data, 0x0008, 0x0030));
    lSeriesTime = static_cast<int>(ReadTime(data, 0x0008, 0x0031));
    lAcquisitionTime = static_cast<int>(ReadTime(data, 0x0008, 0x0032));
    lContentTime = static_cast<int>(ReadTime(data, 0x0008, 0x0033));
    ReadText(data, 0x0008, 0x0050, sAccessionNumber);
    ReadText(data, 0x0008, 0x0060, sModality);
    ReadText(data, 0x0008, 0x0068, sPresentationIntentType);
    ReadText(data, 0x0008, 0x0070, sManufacturer);
    ReadText(data, 0x0008, 0x0080, sInstitutionName);
    ReadText(data, 0x0008, 0x0081, sInstitutionAddress);
    ReadText(data, 0x0008, 0x0090, sReferringPhysicianName);
    ReadText(data, 0x0008, 0x1010, sStationName);
    ReadText(data, 0x0008, 0x1030, sStudyDescription);
    ReadText(data, 0x0008, 0x103E, sSeriesDescription);
    ReadText(data, 0x0008, 0x1040, sInstitutionalDepartmentName);
    ReadText(data, 0x0008, 0x1050, sPerformingPhysicianName);
    ReadText(data, 0x0008, 0x1060, sReadingPhysicianName);
    ReadText(data, 0x0008, 0x1070, sOperatorsName);
    ReadText(data, 0x0008, 0x1090, sManufacturerModelName);
    if (const CDicomItem* references = data->GetTagItem(0x0008, 0x1140)) {
        if (const CDicomItem* item = references->GetSequenceChildItemMandatory(0x0008, 0x1150, 0))
            item->GetTagValue(sReferencedSOPClassUID);
        if (const CDicomItem* item = references->GetSequenceChildItemMandatory(0x0008, 0x1155, 0))
            item->GetTagValue(sReferencedSOPInstanceUID);
    }
    ExtractFirstRefSourceImageSOPInstanceUID(data);
    ExtractFirstRefSourceImageSpatialLocationPreserved(data);
    ReadIS(data, 0x0008, 0x2142, nStartTrim);
    ReadIS(data, 0x0008, 0x2143, nStopTrim);
    ReadIS(data, 0x0008, 0x2144, nRecommendedFrameRate);
    if (nRecommendedFrameRate > 0)
        fFrameTime = fFrameDelay = static_cast<float>(1000.0 / nRecommendedFrameRate);
    nCineRate = nRecommendedFrameRate;
}

void DICOMINFO::ExtractFirstRefSourceImageSOPInstanceUID(const CDicomItem* data)
{
    const CDicomItem* sources = data ? data->GetTagItem(0x0008, 0x2112) : nullptr;
    if (!sources)
        return;
    if (const CDicomItem* item = sources->GetSequenceChildItemMandatory(0x0008, 0x1155, 0))
        item->GetTagValue(sFirstRefSourceImageSOPInstanceUID);
}

void DICOMINFO::ExtractFirstRefSourceImageSpatialLocationPreserved(const CDicomItem* data)
{
    const CDicomItem* sources = data ? data->GetTagItem(0x0008, 0x2112) : nullptr;
    if (!sources)
        return;
    if (const CDicomItem* item = sources->GetSequenceChildItemOptional(0x0028, 0x135A, 0))
        item->GetTagValue(sSpatialLocationsPreserved);
}

void DICOMINFO::GetInfoFromGroup0010(const CDicomItem* data)
{
    if (!data)
        return;
    if (data->GetTagValue(0x0010, 0x0010, sPatientName)) {
        sDicomPatientName = sPatientName;
        for (char16_t& c : sPatientName)
            if (c == u'^')
                c = u' ';
    }
    ReadText(data, 0x0010, 0x0020, sPatientID);
    lPatientBirthDate = static_cast<int>(ReadDate(data, 0x0010, 0x0030));
    std::u16string sex;
    data->GetTagValue(0x0010, 0x0040, sex);
    sex = Trim(sex);
    sDicomPatientSex = sex;
    char16_t first = sex.empty() ? u' ' : sex[0];
    sPatientSex = first == u'F' || first == u'f' ? u"F" : first == u'M' || first == u'm' ? u"M" : u"O";
    ReadText(data, 0x0010, 0x1000, sOtherPatientIDs);
    ReadText(data, 0x0010, 0x4000, sPatientComments);
    ReadText(data, 0x0010, 0x2201, sPatientSpeciesDescription);
    ReadText(data, 0x0010, 0x2203, sPatientSexNeutered);
    ReadText(data, 0x0010, 0x2292, sPatientBreedDescription);
    ReadText(data, 0x0010, 0x2297, sResponsiblePerson);
    ReadText(data, 0x0010, 0x2299, sResponsibleOrganization);
    ReadText(data, 0x0010, 0x2298, sResponsiblePersonRole);
}

void DICOMINFO::GetInfoFromGroup0018(const CDicomItem* data)
{
    if (!data)
        return;
    struct TextRow {
        uint16_t element;
        std::u16string DICOMINFO::*field;
    };
    static const TextRow kRows[] = {
        {0x0010, &DICOMINFO::sContrastBolusAgent},
        {0x0015, &DICOMINFO::sBodyPartExamined},
        {0x0022, &DICOMINFO::sScanOptions},
        {0x0024, &DICOMINFO::sSequenceName},
        {0x0050, &DICOMINFO::sSliceThickness},
        {0x0060, &DICOMINFO::sKVP},
        {0x0080, &DICOMINFO::sRepetitionTime},
        {0x0081, &DICOMINFO::sEchoTime},
        {0x0082, &DICOMINFO::sInversionTime},
        {0x0088, &DICOMINFO::sSpacingBetweenSlices},
        {0x1000, &DICOMINFO::sDeviceSerialNumber},
        {0x1008, &DICOMINFO::sSecondaryCaptureDeviceID},
        {0x1016, &DICOMINFO::sSecondaryCaptureDeviceManufacturer},
        {0x1018, &DICOMINFO::sSecondaryCaptureDeviceModelName},
        {0x1020, &DICOMINFO::sSoftwareVersions},
        {0x1065, &DICOMINFO::sFrameTimeVector},
        {0x1111, &DICOMINFO::sDistanceSourceToPatient},
        {0x1120, &DICOMINFO::sGantryDetectorTilt},
        {0x1150, &DICOMINFO::sExposureTime},
        {0x1152, &DICOMINFO::sExposure},
        {0x1155, &DICOMINFO::sRadiationSetting},
        {0x115E, &DICOMINFO::sImageAreaDoseProduct},
        {0x1191, &DICOMINFO::sAnodeTargetMaterial},
        {0x11A0, &DICOMINFO::sBodyPartThickness},
        {0x11A2, &DICOMINFO::sCompressionForce},
        {0x1402, &DICOMINFO::sCassetteOrientation},
        {0x1403, &DICOMINFO::sCassetteSize},
        {0x1405, &DICOMINFO::sRelativeXRayExposure},
        {0x1411, &DICOMINFO::sExposureIndex},
        {0x1412, &DICOMINFO::sTargetExposureIndex},
        {0x1413, &DICOMINFO::sDeviationIndex},
        {0x1500, &DICOMINFO::sPositionerType},
        {0x1510, &DICOMINFO::sPositionerPrimaryAngle},
        {0x1511, &DICOMINFO::sPositionerSecondaryAngle},
        {0x5100, &DICOMINFO::sPatientPosition},
        {0x5101, &DICOMINFO::sViewPosition},
        {0x700A, &DICOMINFO::sDetectorID},
        {0x7050, &DICOMINFO::sFilterMaterial},
    };
    for (const TextRow& row : kRows)
        ReadText(data, 0x0018, row.element, this->*row.field);
    float value;
    if (const CDicomItem* item = data->GetTagItem(0x0018, 0x1063); item && item->GetTagValueForDS(value, 0))
        fFrameTime = value;
    if (const CDicomItem* item = data->GetTagItem(0x0018, 0x1066); item && item->GetTagValueForDS(value, 0))
        fFrameDelay = value;
    if (const CDicomItem* matrix = data->GetTagItem(0x0018, 0x1310)) {
        for (int i = 0; i < 4; ++i) {
            uint16_t number;
            if (matrix->GetTagValueForUS(number, i))
                sAcquisitionMatrix += FormatWide("%hu ", number);
        }
    }
    if (data->GetTagItem(0x0018, 0x700C))
        lDateOfLastDetectorCalibration = static_cast<int>(ReadDate(data, 0x0018, 0x700C));
}

void DICOMINFO::GetInfoFromGroup0020(const CDicomItem* data)
{
    if (!data)
        return;
    struct TextRow {
        uint16_t element;
        std::u16string DICOMINFO::*field;
    };
    static const TextRow kRows[] = {
        {0x000D, &DICOMINFO::sStudyInstanceUID},    {0x000E, &DICOMINFO::sSeriesInstanceUID},
        {0x0010, &DICOMINFO::sStudyID},             {0x0011, &DICOMINFO::sSeriesNumber},
        {0x0012, &DICOMINFO::sAcquisitionNumber},   {0x0013, &DICOMINFO::sInstanceNumber},
        {0x0020, &DICOMINFO::sPatientOrientation},  {0x0032, &DICOMINFO::sImagePositionPatient},
        {0x0037, &DICOMINFO::sImageOrientationPatient}, {0x0052, &DICOMINFO::sFrameOfReferenceUID},
        {0x0060, &DICOMINFO::sLaterality},          {0x0062, &DICOMINFO::sImageLaterality},
        {0x1040, &DICOMINFO::sPositionReferenceIndicator}, {0x1041, &DICOMINFO::sSliceLocation},
        {0x4000, &DICOMINFO::sImageComments},
    };
    for (const TextRow& row : kRows)
        ReadText(data, 0x0020, row.element, this->*row.field);
    if (sStudyInstanceUID.empty())
        sStudyInstanceUID = sStudyID;
    if (sSeriesInstanceUID.empty())
        sSeriesInstanceUID = sSeriesNumber;
    ReadIS(data, 0x0020, 0x1002, nImagesInAcquisition);
}

void DICOMINFO::GetInfoFromGroup0028(const CDicomItem* data)
{
    if (!data)
        return;
    uint16_t word;
    if (data->GetTagValue(0x0028, 0x0002, word))
        wSamplesPerPixel = word;
    if (data->GetTagValue(0x0028, 0x0006, word))
        wPlanarConfiguration = word;
    std::u16string photometric;
    data->GetTagValue(0x0028, 0x0004, photometric);
    nPhotometric = GetPhotometricIndex(photometric, sTransferSyntax);
    ReadIS(data, 0x0028, 0x0008, nNumberOfFrames);
    if (const CDicomItem* pointers = data->GetTagItem(0x0028, 0x0009)) {
        nFrameIncrementPointerCount = pointers->GetDataSize() > 0 ? pointers->GetDataSize() / 4 : 0;
        if (nFrameIncrementPointerCount > 0) {
            pFrameIncrementPointers.reset(new uint32_t[static_cast<size_t>(nFrameIncrementPointerCount)]);
            std::memcpy(pFrameIncrementPointers.get(), pointers->GetData(),
                        static_cast<size_t>(nFrameIncrementPointerCount) * 4);
        }
    }
    ReadInt16(data, 0x0028, 0x0010, nRows);
    ReadInt16(data, 0x0028, 0x0011, nColumns);
    GetInfoFromPixelRatio(data);
    ReadInt16(data, 0x0028, 0x0100, nBitsAllocated);
    ReadInt16(data, 0x0028, 0x0101, nBitsStored);
    ReadInt16(data, 0x0028, 0x0102, nHighBit);
    if (data->GetTagValue(0x0028, 0x0103, word))
        wPixelRepresentation = word;
    ReadInt16(data, 0x0028, 0x0120, nPixelPaddingValue);
    ReadText(data, 0x0028, 0x1040, sPixelIntensityRelationship);
    ReadWindowAndRescale(data);

    uint16_t descriptor[3];
    DICOM_LUT* palettes[3] = {&RedPaletteLut, &GreenPaletteLut, &BluePaletteLut};
    for (int i = 0; i < 3; ++i)
        if (Descriptor(data->GetTagItem(0x0028, 0x1101 + i), descriptor))
            palettes[i]->LoadDescriptor(descriptor, kTreeIsBigEndian);
    std::u16string lossy;
    data->GetTagValue(0x0028, 0x2110, lossy);
    bLossyCompressed = EqualsNoCase(Trim(lossy), u"01") ? 1 : 0;
    ReadLutSequence(data, 0x3000, ModalityLut);
    ReadLutSequence(data, 0x3010, VoiLut);
    for (int i = 0; i < 3; ++i) {
        Words plain = WordsOf(data->GetTagItem(0x0028, 0x1201 + i));
        if (plain.values)
            palettes[i]->LoadData(plain.values, kTreeIsBigEndian, plain.count);
        Words segmented = WordsOf(data->GetTagItem(0x0028, 0x1221 + i));
        if (segmented.values)
            palettes[i]->LoadSegmentedData(segmented.values, kTreeIsBigEndian, segmented.count);
    }
}

void DICOMINFO::ReadWindowAndRescale(const CDicomItem* from)
{
    std::u16string centres, widths, explanations, text, first;
    if (FirstDecimal(from, 0x0028, 0x1050, centres, first)) {
        nWindowCenter = TruncateToInt(StringToFloat(first));
        dWindowCenter = StringToDouble(first);
        nFlags |= 1;
    }
    // PS3.3 C.11.2.1.2: a window is at least 1 wide; a smaller width leaves
    // the record's default.
    if (FirstDecimal(from, 0x0028, 0x1051, widths, first) && StringToFloat(first) >= 1.0f) {
        nWindowWidth = TruncateToInt(StringToFloat(first));
        dWindowWidth = StringToDouble(first);
        nFlags |= 2;
    }
    if (FirstDecimal(from, 0x0028, 0x1052, text, first)) {
        nRescaleIntercept = TruncateToInt(StringToFloat(first));
        dRescaleIntercept = StringToDouble(first);
    }
    if (FirstDecimal(from, 0x0028, 0x1053, text, first))
        dRescaleSlope = StringToDouble(first);
    ReadText(from, 0x0028, 0x1054, sRescaleType);
    from->GetTagValue(0x0028, 0x1055, explanations);
    RegisterWindowing(explanations, centres, widths);
}

void DICOMINFO::ReadLutSequence(const CDicomItem* from, int element, CModalityLutDesc& lut) const
{
    const CDicomItem* sequence = from->GetTagItem(0x0028, element);
    if (!sequence)
        return;
    const CDicomItem* lutDescriptor = sequence->GetSequenceChildItemMandatory(0x0028, 0x3002, 0);
    uint16_t descriptor[3];
    if (!Descriptor(lutDescriptor, descriptor))
        return;
    // PS3.3 C.11.1.1.1: the first value mapped has the sign of the stored
    // values (SS in explicit VR).
    lut.LoadDescriptor(descriptor, kTreeIsBigEndian, wPixelRepresentation == 1 || lutDescriptor->GetVR() == "SS");
    Words words = WordsOf(sequence->GetSequenceChildItemMandatory(0x0028, 0x3006, 0));
    if (words.values)
        lut.LoadData(words.values, kTreeIsBigEndian, words.count);
}

namespace {

// The first item of a functional group macro (group, element): from the
// Shared Functional Groups Sequence, else from the first item of the
// Per-frame Functional Groups Sequence (PS3.3 C.7.6.16).
const CDicomItem* FunctionalGroup(const CDicomItem* data, int group, int element)
{
    for (int sequence : {0x9229, 0x9230})
        if (const CDicomItem* frame = data->GetSequenceItem(0x5200, sequence))
            if (const CDicomItem* macro = frame->GetSequenceItem(group, element))
                return macro;
    return nullptr;
}

}  // namespace

void DICOMINFO::GetInfoFromFunctionalGroups(const CDicomItem* data)
{
    if (!data || (!data->GetTagItem(0x5200, 0x9229) && !data->GetTagItem(0x5200, 0x9230)))
        return;
    if (const CDicomItem* measures = FunctionalGroup(data, 0x0028, 0x9110)) {  // Pixel Measures
        if (dRowSpacing == 0.0 || dColumnSpacing == 0.0)
            GetPixelSpacing(measures, dRowSpacing, dColumnSpacing);
        if (sSliceThickness.empty())
            ReadText(measures, 0x0018, 0x0050, sSliceThickness);
        if (sSpacingBetweenSlices.empty())
            ReadText(measures, 0x0018, 0x0088, sSpacingBetweenSlices);
    }
    const CDicomItem* position = FunctionalGroup(data, 0x0020, 0x9113);  // Plane Position (Patient)
    if (position && sImagePositionPatient.empty())
        ReadText(position, 0x0020, 0x0032, sImagePositionPatient);
    const CDicomItem* orientation = FunctionalGroup(data, 0x0020, 0x9116);  // Plane Orientation (Patient)
    if (orientation && sImageOrientationPatient.empty())
        ReadText(orientation, 0x0020, 0x0037, sImageOrientationPatient);
    // Frame VOI LUT and Pixel Value Transformation: the window and rescale
    // where the top level gives none.
    const CDicomItem* voi = FunctionalGroup(data, 0x0028, 0x9132);
    if (voi && (nFlags & 3) == 0) {
        ReadWindowAndRescale(voi);
        if (!VoiLut.IsDataPresent())
            ReadLutSequence(voi, 0x3010, VoiLut);
    }
    const CDicomItem* rescale = FunctionalGroup(data, 0x0028, 0x9145);
    if (rescale && !data->GetTagItem(0x0028, 0x1052) && !data->GetTagItem(0x0028, 0x1053))
        ReadWindowAndRescale(rescale);
}

void DICOMINFO::RegisterWindowing(const std::u16string& explanations, const std::u16string& centres,
                                  const std::u16string& widths)
{
    if (centres.empty() || widths.empty())
        return;
    int count = std::min(CharCount(centres, u'\\') + 1, CharCount(widths, u'\\') + 1);
    if (count <= 1)
        return;
    for (int i = 0; i < count; ++i) {
        int centre = TruncateToInt(StringToFloat(GetField(centres, u'\\', i)));
        int width = TruncateToInt(StringToFloat(GetField(widths, u'\\', i)));
        if (centre == 0 || width == 0)
            continue;
        auto window = std::make_unique<WINDOW>();
        window->nCenter = centre;
        window->nWidth = width;
        window->dCenter = StringToDouble(GetField(centres, u'\\', i));
        window->dWidth = StringToDouble(GetField(widths, u'\\', i));
        window->sExplanation = Trim(GetField(explanations, u'\\', i));
        if (window->sExplanation.empty()) {
            // The translation is a format text with one integer placeholder;
            // without one the library's own wording is used.
            std::u16string format = CLanguageProvider::GetTranslationTextFromDll(u"DICOMINFO", u"IDS_IMAGE_WINDOW");
            if (format.empty() || format == u"IDS_IMAGE_WINDOW" || CharCount(format, u'%') != 1 ||
                format.find(u"%d") == std::u16string::npos)
                format = u"Window %d";
            window->sExplanation = FormatWide(WideToAscii(format).c_str(), i + 1);
        }
        aWindows.push_back(std::move(window));
    }
}

void DICOMINFO::GetInfosFromGroupOverlays(const CDicomItem* data)
{
    if (!data)
        return;
    for (int group = 0x6000; group <= 0x601E; group += 2) {
        const CDicomItem* origin = data->GetTagItem(group, 0x0050);
        uint16_t rows, columns, bitsAllocated, bitPosition;
        if (!data->GetTagValue(group, 0x0010, rows) || !data->GetTagValue(group, 0x0011, columns) || !origin ||
            !data->GetTagValue(group, 0x0100, bitsAllocated) || !data->GetTagValue(group, 0x0102, bitPosition))
            continue;
        DICOM_OVERLAY* overlay = GetOverlay(group - 0x6000);
        if (!overlay) {
            aOverlays.push_back(std::make_unique<DICOM_OVERLAY>(group - 0x6000));
            overlay = aOverlays.back().get();
        }
        overlay->wRows = rows;
        overlay->wColumns = columns;
        uint16_t planes;
        if (data->GetTagValue(group, 0x0012, planes))
            overlay->wPlanes = planes;
        data->GetTagValue(group, 0x0040, overlay->sType);
        int16_t row, column;
        if (origin->GetTagValueForSS(row, 0))
            overlay->nOriginRow = row;
        if (origin->GetTagValueForSS(column, 1))
            overlay->nOriginColumn = column;
        overlay->wBitsAllocated = bitsAllocated;
        overlay->wBitPosition = bitPosition;
        const CDicomItem* bits = data->GetTagItem(group, 0x3000);
        if (bits && bits->GetDataSize() > 0)
            overlay->SetData(bits->GetData(), bits->GetDataSize());
    }
}

void DICOMINFO::ValidateDates()
{
    constexpr int kNoDate = 18000000;
    if (lContentDate < kNoDate && lInstanceCreationDate > kNoDate)
        lContentDate = lInstanceCreationDate;
    if (lContentDate < kNoDate) {
        if (lSeriesDate > kNoDate)
            lContentDate = lSeriesDate;
        else if (lStudyDate > kNoDate)
            lContentDate = lSeriesDate = lStudyDate;
    } else if (lSeriesDate < kNoDate) {
        lSeriesDate = lContentDate;
    }
    if (lContentTime < 0 && lInstanceCreationTime >= 0)
        lContentTime = lInstanceCreationTime;
    if (lContentTime < 0) {
        if (lSeriesTime >= 0)
            lContentTime = lSeriesTime;
        else if (lStudyTime >= 0)
            lContentTime = lSeriesTime = lStudyTime;
    } else if (lSeriesTime < 0) {
        lSeriesTime = lContentTime;
    }
}

void DICOMINFO::ValidatePhotometric()
{
    // Colour images carry no rescale: their stored values are shown as they are.
    if (nPhotometric != MONOCHROME1 && nPhotometric != MONOCHROME2) {
        nRescaleIntercept = 0;
        dRescaleIntercept = 0.0;
        dRescaleSlope = 1.0;
    }
    if (nPhotometric == YBR_FULL_422 && wPlanarConfiguration == 1)
        wPlanarConfiguration = 0;
    if (nPhotometric == RGB) {
        nFlags &= ~3;
        nWindowCenter = 128;
        nWindowWidth = 256;
        dWindowCenter = 128.0;
        dWindowWidth = 256.0;
        nRescaleIntercept = 0;
    }
}

void DICOMINFO::SpecialCTProcessing(const unsigned char* buffer, size_t size)
{
    if (sModality != u"CT")
        return;
    // Some GE CT writers mark padding in the first pixel without saying so.
    if (sManufacturer.compare(0, 2, u"GE") == 0 && nPixelDataOffset > 0 &&
        static_cast<size_t>(nPixelDataOffset) + 2 <= size) {
        const unsigned char* p = buffer + nPixelDataOffset;
        uint16_t first = bBigEndian ? static_cast<uint16_t>((p[0] << 8) | p[1]) : ByteCursor::loadUint16LE(p);
        if (first >= 32768)
            nPixelPaddingValue = first;
    }
    if ((nFlags & 3) != 3) {
        nFlags |= 3;
        nWindowCenter = 400;
        nWindowWidth = 2000;
        dWindowCenter = 400.0;
        dWindowWidth = 2000.0;
    }
}

// --- code sequences

bool DICOMINFO::GetCodeSequenceMacro(const CDicomItem* sequence, CCodeSequenceMacro& code, int itemIndex)
{
    if (!sequence)
        return false;
    const CDicomItem* value = sequence->GetSequenceChildItemMandatory(0x0008, 0x0100, itemIndex);
    if (!value)
        return false;
    value->GetTagValue(code.m_strCodeValue);
    const CDicomItem* designator = sequence->GetSequenceChildItemMandatory(0x0008, 0x0102, itemIndex);
    if (!designator)
        return false;
    designator->GetTagValue(code.m_strCodingSchemeDesignator);
    const CDicomItem* meaning = sequence->GetSequenceChildItemMandatory(0x0008, 0x0104, itemIndex);
    if (!meaning)
        return false;
    meaning->GetTagValue(code.m_strCodeMeaning);
    return true;
}

int DICOMINFO::GetCodeSequenceMacroCount(const CDicomItem* sequence)
{
    if (!sequence)
        return 0;
    int values = sequence->GetSequenceChildItemCount(0x0008, 0x0100);
    return values == sequence->GetSequenceChildItemCount(0x0008, 0x0102) ? values : 0;
}

CCodeSequenceMacro DICOMINFO::FillCodeSequence(const CDicomItem* data, int group, int element)
{
    CCodeSequenceMacro code;
    if (data)
        GetCodeSequenceMacro(data->GetTagItem(group, element), code, 0);
    return code;
}

void DICOMINFO::FillViewCodeSequence(const CDicomItem* data)
{
    const CDicomItem* view = data ? data->GetTagItem(0x0054, 0x0220) : nullptr;
    if (!view)
        return;
    CCodeSequenceMacro code;
    if (GetCodeSequenceMacro(view, code, 0))
        ViewCode = code;
    const CDicomItem* modifiers = view->GetSequenceChildItemOptional(0x0054, 0x0222, 0);
    for (int i = 0, n = GetCodeSequenceMacroCount(modifiers); i < n; ++i) {
        CCodeSequenceMacro modifier;
        if (GetCodeSequenceMacro(modifiers, modifier, i))
            aViewModifierCodes.push_back(modifier);
    }
}

void DICOMINFO::FillBreedRegistrationSequence(const CDicomItem*& data)
{
    const CDicomItem* registrations = data ? data->GetTagItem(0x0010, 0x2294) : nullptr;
    if (!registrations)
        return;
    const CDicomItem* codes = registrations->GetSequenceChildItemOptional(0x0010, 0x2296, 0);
    for (int i = 0, n = GetCodeSequenceMacroCount(codes); i < n; ++i) {
        CCodeSequenceMacro code;
        if (GetCodeSequenceMacro(codes, code, i))
            aBreedRegistryCodes.push_back(code);
    }
}
