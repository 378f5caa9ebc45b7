#pragma once
// The flat image information record.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomsettings.h"
#include "dicomdata/tagheader.h"
#include "imageinfo/codesequence.h"
#include "imageinfo/lutoverlay.h"
#include "platform/lasterror.h"

class CDynBuffer;
class CXmlItem;
class CDicomItem;

// One entry of the record's link table: a displayable attribute and the
// field of the same record that holds it. nVR is the dictionary's VR code;
// it decides the field's type (DA/TM: date or time int; US: int, except
// (0018,1310) which is text; IS (0028,0008): int; SQ: a code field; else text).
struct TAGLINK {
    int nGroup;
    int nElement;
    int nVR;
    void* pValue;
};

struct DICOMINFO;

// One scalar field of the record by name, in declaration order, for callers
// that walk the record (copying, the JSON form of the info command). The
// member pointer in use is the one kind names.
struct INFOFIELD {
    enum Kind { Int, Word, Text, Double, Float, Byte };
    const char* name;
    Kind kind;
    union {
        int DICOMINFO::*n;
        uint16_t DICOMINFO::*w;
        std::u16string DICOMINFO::*s;
        double DICOMINFO::*d;
        float DICOMINFO::*f;
        uint8_t DICOMINFO::*b;
    } member;
};

// A display size in pixels.
struct ZOOM_SIZE {
    int cx;
    int cy;
};

// The file meta information from which a file head is written: the first
// seven fields of DICOMINFO, in the same order.
struct metaHeaderInfo {
    int nMetaVersion = 0x0100;  // low 16 bits written as (0002,0001)
    std::u16string sMediaStorageSOPClassUID;
    std::u16string sMediaStorageSOPInstanceUID;
    std::u16string sTransferSyntax;
    std::u16string sImplementationClassUID;
    std::u16string sImplementationVersionName;
    std::u16string sSourceAETitle;
};

// Element callback of the raw walkers: one element header (its value follows
// it in the buffer) and the caller's context.
typedef void (*DICOM_TAG_PROC)(TAG_HEADER* element, void* context);

struct DICOMINFO : public CDicomInfoStatics {
    enum PHOTOMETRIC {
        MONOCHROME1 = 0,
        MONOCHROME2 = 1,
        PALETTE_COLOR = 2,
        RGB = 3,
        YBR_FULL = 4,
        YBR_FULL_422 = 5,
        YBR_RCT = 6,
        YBR_ICT = 7,
        PHOTOMETRIC_OTHER = 8
    };

    DICOMINFO();
    // A copy is a fresh record assigned from other (see operator=).
    DICOMINFO(const DICOMINFO& other) : DICOMINFO() { *this = other; }
    DICOMINFO& operator=(const DICOMINFO& other);
    ~DICOMINFO();

    // --- the record, in its declared order (inforecord.cpp builds defaults and links)
    std::unique_ptr<TAGLINK[]> pLinks;
    int nLinkCount = 0;
    // File meta information: these seven form metaHeaderInfo
    // (CreateMetaHeaderBuffer reads them); ProcessMetaHeader sets
    // bHasMetaHeader, bBigEndian and sTransferSyntax.
    int nMetaVersion = 0x0100;
    std::u16string sMediaStorageSOPClassUID;
    std::u16string sMediaStorageSOPInstanceUID;
    std::u16string sTransferSyntax = u"1.2.840.10008.1.2";
    std::u16string sImplementationClassUID = GetDicomRoot();
    std::u16string sImplementationVersionName = DefaultImplementationVersionName();
    std::u16string sSourceAETitle = GetDicomApplicationName();
    int nColumns = -1;
    int nRows = -1;
    int nWindowCenter = 2048;
    int nWindowWidth = 4096;
    int nRescaleIntercept = 0;
    std::u16string sRescaleType;
    int nBitsAllocated = 16;
    int nBitsStored = 12;
    int nHighBit = 11;
    uint16_t wPixelRepresentation = 0;
    uint16_t wSamplesPerPixel = 1;
    int nPixelPaddingValue = -1;
    int nPhotometric = MONOCHROME2;
    double dRowSpacing = 0.0;
    double dColumnSpacing = 0.0;
    int nStartTrim = 1;
    int nStopTrim = 1;
    int nRecommendedFrameRate = 10;
    int nCineRate = 10;
    float fFrameTime = 100.0f;   // milliseconds
    float fFrameDelay = 100.0f;  // milliseconds
    int nImagesInAcquisition = 1;
    uint16_t wPlanarConfiguration = 0;
    int nNumberOfFrames = 1;
    int nCurrentFrame = 0;
    int nCompressionType = 0;
    int bBiplane = 0;
    std::u16string sBiplanePlane;
    int bHasMetaHeader = 0;
    std::u16string sSpecificCharacterSet;
    std::u16string sImageType;
    int lInstanceCreationDate = -1;
    int lInstanceCreationTime = -1;
    std::u16string sSOPClassUID;
    std::u16string sSOPInstanceUID;
    int lStudyDate = -1;
    int lSeriesDate = -1;
    int lAcquisitionDate = -1;
    int lContentDate = -1;
    int lContentDateAsRead = -1;
    int lStudyTime = -1;
    int lSeriesTime = -1;
    int lAcquisitionTime = -1;
    int lContentTime = -1;
    std::u16string sAccessionNumber;
    std::u16string sModality;
    std::u16string sPresentationIntentType;
    std::u16string sManufacturer;
    std::u16string sInstitutionName;
    std::u16string sInstitutionAddress;
    std::u16string sReferringPhysicianName;
    std::u16string sStationName;
    std::u16string sStudyDescription;
    std::u16string sSeriesDescription;
    std::u16string sInstitutionalDepartmentName;
    std::u16string sPerformingPhysicianName;
    std::u16string sReadingPhysicianName;
    std::u16string sOperatorsName;
    std::u16string sManufacturerModelName;
    std::u16string sReferencedSOPClassUID;
    std::u16string sReferencedSOPInstanceUID;
    std::u16string sPatientName;  // carets replaced by blanks
    std::u16string sDicomPatientName;
    std::u16string sPatientID;
    int lPatientBirthDate = -1;
    std::u16string sPatientSex;
    std::u16string sOtherPatientIDs;
    std::u16string sPatientAge;
    std::u16string sPatientComments;
    std::u16string sContrastBolusAgent;
    std::u16string sBodyPartExamined;
    std::u16string sScanOptions;
    std::u16string sSequenceName;
    std::u16string sSliceThickness;
    std::u16string sKVP;
    std::u16string sRepetitionTime;
    std::u16string sEchoTime;
    std::u16string sInversionTime;
    std::u16string sSpacingBetweenSlices;
    std::u16string sDeviceSerialNumber;
    std::u16string sSecondaryCaptureDeviceID;
    std::u16string sSecondaryCaptureDeviceManufacturer;
    std::u16string sSecondaryCaptureDeviceModelName;
    std::u16string sSoftwareVersions;
    std::u16string sFrameTimeVector;
    std::u16string sDistanceSourceToPatient;
    std::u16string sGantryDetectorTilt;
    std::u16string sExposureTime;
    std::u16string sExposure;
    std::u16string sRadiationSetting;
    std::u16string sImageAreaDoseProduct;
    std::u16string sAnodeTargetMaterial;
    std::u16string sBodyPartThickness;
    std::u16string sCompressionForce;
    std::u16string sAcquisitionMatrix;
    std::u16string sCassetteOrientation;
    std::u16string sCassetteSize;
    std::u16string sRelativeXRayExposure;
    std::u16string sExposureIndex;
    std::u16string sTargetExposureIndex;
    std::u16string sDeviationIndex;
    std::u16string sPositionerType;
    std::u16string sPositionerPrimaryAngle;
    std::u16string sPositionerSecondaryAngle;
    std::u16string sPatientPosition;
    std::u16string sViewPosition;
    std::u16string sDetectorID;
    int lDateOfLastDetectorCalibration = -1;
    std::u16string sFilterMaterial;
    std::u16string sStudyInstanceUID;
    std::u16string sSeriesInstanceUID;
    std::u16string sStudyID;
    std::u16string sSeriesNumber;
    std::u16string sAcquisitionNumber;
    std::u16string sInstanceNumber;
    std::u16string sPatientOrientation;
    std::u16string sImagePositionPatient;
    std::u16string sImageOrientationPatient;
    std::u16string sFrameOfReferenceUID;
    std::u16string sLaterality;
    std::u16string sImageLaterality;
    std::u16string sPositionReferenceIndicator;
    std::u16string sSliceLocation;
    std::u16string sImageComments;
    int nFrameIncrementPointerCount = 0;
    std::unique_ptr<uint32_t[]> pFrameIncrementPointers;
    std::u16string sPixelIntensityRelationship;
    std::u16string sSpatialLocationsPreserved;
    int nPixelAspectRatioH = 1;
    int nPixelAspectRatioV = 1;
    uint8_t bLossyCompressed = 0;
    std::u16string sStudyComments;
    std::u16string sCurrentPatientLocation;
    std::u16string sEntranceDose;
    std::u16string sOrganDose;
    std::u16string sCalibrationImage;
    std::u16string sPatientSpeciesDescription;
    std::u16string sPatientSexNeutered;
    std::u16string sPatientBreedDescription;
    std::u16string sResponsiblePerson;
    std::u16string sResponsiblePersonRole;
    std::u16string sResponsibleOrganization;
    CCodeSequenceMacro ViewCode;
    std::vector<CCodeSequenceMacro> aViewModifierCodes;
    CCodeSequenceMacro PatientSpeciesCode;
    CCodeSequenceMacro PatientBreedCode;
    std::vector<CCodeSequenceMacro> aBreedRegistryCodes;
    std::vector<std::unique_ptr<DICOM_OVERLAY>> aOverlays;  // the overlay list
    std::vector<std::unique_ptr<WINDOW>> aWindows;          // the window list
    int nFlags = 0;  // 1: centre known, 2: width known, 8: both spacings non-zero
    CModalityLutDesc ModalityLut;
    DICOM_LUT RedPaletteLut;
    DICOM_LUT GreenPaletteLut;
    DICOM_LUT BluePaletteLut;
    int bBigEndian = 0;
    int nPixelDataOffset = 0;
    // nNumberOfFrames + 1 entries (see GetFramesOffsetTable).
    std::unique_ptr<uint32_t[]> pFrameOffsets;
    std::u16string sFirstRefSourceImageSOPInstanceUID;

    // Number of entries pFrameOffsets holds (0 when none).
    int nFrameOffsetCount = 0;
    // The window and rescale values as the object gives them: the integer
    // fields above hold them truncated (40.5 as 40), these keep them exact.
    // Assigned wherever their integer fields are; no integer field holds the
    // slope (0028,1053).
    double dWindowCenter = 2048.0;
    double dWindowWidth = 4096.0;
    double dRescaleIntercept = 0.0;
    double dRescaleSlope = 1.0;
    // The VOI LUT: the first item of (0028,3010), descriptor (0028,3002) and
    // data (0028,3006), read as the modality LUT is.
    CModalityLutDesc VoiLut;
    // Elements present with an empty value (group << 16 | element) among
    // those the record takes a number from; reading treats them as absent.
    std::vector<uint32_t> aEmptyNumberElements;
    // Patient's Sex (0010,0040) as the file holds it, blanks trimmed
    // (sPatientSex is normalised to M, F or O); empty when absent.
    std::u16string sDicomPatientSex;

    // --- the record's own operations (inforecord.cpp)
    // Every scalar field, in declaration order; count in fieldCount.
    static const INFOFIELD* GetFieldTable(int& fieldCount);
    void SetCommonInfo(const DICOMINFO* source);
    std::u16string GetTagValue(int group, int element) const;
    const TAGLINK* GetLink(int group, int element) const;
    void InitLinkTable();
    std::u16string GetLaterality() const;
    std::u16string GetFirstRefSourceImageSOPInstanceUID() const { return sFirstRefSourceImageSOPInstanceUID; }
    std::u16string GetCodeMeaningFromCodeSequenceMacro(const TAGLINK* link, int group, int element) const;
    void FreeWindowData() { aWindows.clear(); }
    void FreeOverlayData() { aOverlays.clear(); }
    DICOM_OVERLAY* GetOverlay(int index) const;

    // --- pixel description (pixeldesc.cpp)
    static PHOTOMETRIC GetPhotometricIndex(const std::u16string& photometric, const std::u16string& transferSyntax);
    static std::u16string GetPhotometricString(PHOTOMETRIC photometric);
    static void GetPixelSpacing(const CDicomItem* data, double& rowSpacing, double& columnSpacing);
    // value: the first byte of the pixel data value; available: the bytes
    // from there to the end of the buffer. 1 when the table is complete.
    int GetFramesOffsetTable(const unsigned char* value, size_t available = SIZE_MAX);
    ZOOM_SIZE CalcZoomSize(ZOOM_SIZE box) const;
    static std::u16string GetDicomImageType(const unsigned char* buffer, size_t size);
    static std::u16string SetStringG0Compatible(const std::u16string& text, int maximum);

    // --- reading an image object (readinfo.cpp)
    // The whole object (preamble, "DICM", meta information, data set); 1 on
    // success, 0 (record untouched) when it cannot be parsed.
    int ReadInfo(const unsigned char* buffer, uint32_t size);
    int ReadFileInfo(const std::u16string& path);
    // Why the last ReadInfo or ReadFileInfo failed (cleared by success).
    const CLastError& GetLastError() const { return m_LastError; }

    // "%d_%d_%d" of the library version (major, minor, revision).
    static std::u16string DefaultImplementationVersionName();

    // --- raw element walkers over implicit VR little endian buffers (rawwalk.cpp)
    // Every walker is given the number of bytes it may read and never reads
    // beyond them. An element is handed to a callback only when its whole
    // value lies inside the buffer (for an undefined length: up to and
    // including its sequence delimiter), so a callback may read nLength
    // bytes after the header, or walk the value with ReadSequence and the
    // size that CalcSequenceSize gave. A length that points past the end,
    // or an undefined length without delimiter, ends the walk.
    static void ReadTags(const unsigned char* data, int size, DICOM_TAG_PROC callback, void* context);
    // Walks the items of a sequence value; returns the bytes walked (up to
    // and including the sequence delimiter, or size when the value ran out).
    static int ReadSequence(const unsigned char* data, int size, DICOM_TAG_PROC callback, void* context);
    // Byte length of an undefined-length value that starts right after the
    // header, delimiter included; -1 when no delimiter lies within the
    // available bytes (counted from the first value byte).
    static int CalcSequenceSize(const TAG_HEADER* element, int available);
    // Value text without trailing blanks; at most capacity - 1 bytes.
    static void GetStringTagValue(const TAG_HEADER* element, char* out, int capacity);
    static void GetStringTagValue(const TAG_HEADER* element, std::u16string& out);
    // Display items "TAG" (GROUP, ELEMENT, NAME, VR, VALUE) below parent, one
    // per known element; returns the bytes consumed.
    static uint32_t LoadDicomData(const unsigned char* data, int size, CXmlItem* parent);

    // --- raw element writers: append to (or insert into) a byte buffer (rawwrite.cpp)
    static void AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value);
    static void AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value);
    static void AddTag(CDynBuffer& buffer, uint16_t group, uint16_t element);
    static void InsertTag(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value, uint32_t position);
    static void AddTagByVR(CDynBuffer& buffer, const std::u16string& vr, uint16_t group, uint16_t element,
                           const void* bytes, uint32_t count);
    // The text forms write nothing and return false when the character set
    // cannot hold the text.
    static bool AddTagByVR(CDynBuffer& buffer, const std::u16string& vr, uint16_t group, uint16_t element,
                           const std::u16string& text, const std::u16string& characterSet);
    static void AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, const void* bytes,
                            uint32_t count);
    static bool AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, const std::u16string& text);
    static void AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, uint16_t value);
    static void AddTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element);
    static void InsertTagExpVR(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t value,
                               uint32_t position);
    static std::u16string GetTagVRString(uint16_t group, uint16_t element);

    // --- header creation (headercreate.cpp)
    // A Secondary Capture data set in implicit VR little endian, without
    // meta information and pixel data; returns 1.
    int CreateHeader(CDynBuffer& buffer) const;
    // The SOP Class UID that CreateHeader writes for this record: the
    // Secondary Capture class its pixels fit (PS3.4 B.5).
    std::u16string GetCreateHeaderSOPClassUID() const;
    // A whole file head for encapsulated pixel data into an empty buffer:
    // preamble, meta information, an explicit VR little endian data set and
    // the header of an undefined-length (7FE0,0010); returns 1. The caller
    // appends the offset table item, the fragments and the delimiter.
    int CreateHeaderCompressed(CDynBuffer& buffer) const;

    // --- file meta information: building (metaheader.cpp)
    static uint32_t FillMetaHeaderBuffer(CDynBuffer& buffer, const metaHeaderInfo* info);
    static uint32_t CreateMetaHeaderBuffer(CDynBuffer& buffer, const metaHeaderInfo* info);
    uint32_t CreateMetaHeaderBuffer(CDynBuffer& buffer) const;

    // --- file meta information and encoding: raw scans (metascan.cpp)
    // Every scan is given the buffer's length and stops at its end.
    int GetCompTypeFromTransferSyntax(const std::u16string& transferSyntax) const;
    static int HasDicomMetaHeader(const unsigned char* buffer, size_t size);
    static size_t GetMetaHeaderSize(const unsigned char* buffer, size_t size);
    // The element after the meta information as its group length announces
    // it; null when that lies outside the buffer.
    static const unsigned char* GetFirstTagAfterMetaHeader(const unsigned char* buffer, size_t size);
    // The raw header needs 12 readable bytes for the long form; with fewer
    // (available < 12) a long-form header is left unchanged.
    static int CheckExplicitVR(TAG_HEADER* copy, const TAG_HEADER* raw, size_t available = 12);
    static int FileHasDicomMetaHeader(const std::u16string& path);
    static int FileIsDicom(const std::u16string& path, int flag);
    static std::u16string GetFileTransferSyntax(const std::u16string& path);
    // The same tests on bytes already in memory (the file forms read the
    // file and ask these).
    static int BufferIsDicom(const unsigned char* buffer, size_t size, int flag);
    static std::u16string GetBufferTransferSyntax(const unsigned char* buffer, size_t size);
    // Whether the buffer holds whole file meta information: "DICM", then
    // one or more group 0002 elements that all end inside the buffer.
    static bool HasCompleteMetaHeader(const unsigned char* buffer, size_t size);
    static const unsigned char* GetDicomTag(const unsigned char* buffer, size_t size, uint16_t group,
                                            uint16_t element, std::u16string& text);
    static int FindTag(const unsigned char* buffer, size_t size, int group, int element, std::u16string& text);

protected:
    // The modality LUT as a (0028,3000) sequence of one item, implicit VR;
    // nothing when the LUT has no data.
    void AddModalityLutSequence(CDynBuffer& buffer) const;
    const unsigned char* ProcessMetaHeader(const unsigned char* buffer, size_t size, bool& changed);

    // Reading steps, in the order ReadInfo runs them (readinfo.cpp).
    void GetInfoFromMetaHeader(const CDicomItem* root);
    void GetInfoFromGroup0008(CDicomItem* data);
    void GetInfoFromGroup0010(const CDicomItem* data);
    void GetInfoFromGroup0018(const CDicomItem* data);
    void GetInfoFromGroup0020(const CDicomItem* data);
    void GetInfoFromGroup0028(const CDicomItem* data);
    void GetInfoFromPixelRatio(const CDicomItem* data);
    // Enhanced multi-frame objects (PS3.3 C.7.6.16): what the top level
    // lacks, from the shared functional groups, else the first frame's.
    void GetInfoFromFunctionalGroups(const CDicomItem* data);
    // (0028,1050) to (0028,1055) of a data set or functional group item.
    void ReadWindowAndRescale(const CDicomItem* from);
    // A LUT sequence's first item into lut.
    void ReadLutSequence(const CDicomItem* from, int element, CModalityLutDesc& lut) const;
    void ValidatePhotometric();
    void ValidateDates();
    void SpecialCTProcessing(const unsigned char* buffer, size_t size);
    void ExtractFirstRefSourceImageSOPInstanceUID(const CDicomItem* data);
    void ExtractFirstRefSourceImageSpatialLocationPreserved(const CDicomItem* data);
    void FillViewCodeSequence(const CDicomItem* data);
    void FillBreedRegistrationSequence(const CDicomItem*& data);
    CCodeSequenceMacro FillCodeSequence(const CDicomItem* data, int group, int element);
    static bool GetCodeSequenceMacro(const CDicomItem* sequence, CCodeSequenceMacro& code, int itemIndex);
    static int GetCodeSequenceMacroCount(const CDicomItem* sequence);
    void RegisterWindowing(const std::u16string& explanations, const std::u16string& centres,
                           const std::u16string& widths);
    void GetInfosFromGroupOverlays(const CDicomItem* data);

private:
    CLastError m_LastError;
};
