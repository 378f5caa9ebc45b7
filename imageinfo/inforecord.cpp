// The image record itself: defaults, the link table through which attributes
// are shown by tag, copying and SetCommonInfo.
#include <cstdio>
#include <cstdlib>

#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/datetools.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

const INFOFIELD kFields[] = {
    {"nLinkCount", INFOFIELD::Int, {.n = &DICOMINFO::nLinkCount}},
    {"nMetaVersion", INFOFIELD::Int, {.n = &DICOMINFO::nMetaVersion}},
    {"sMediaStorageSOPClassUID", INFOFIELD::Text, {.s = &DICOMINFO::sMediaStorageSOPClassUID}},
    {"sMediaStorageSOPInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sMediaStorageSOPInstanceUID}},
    {"sTransferSyntax", INFOFIELD::Text, {.s = &DICOMINFO::sTransferSyntax}},
    {"sImplementationClassUID", INFOFIELD::Text, {.s = &DICOMINFO::sImplementationClassUID}},
    {"sImplementationVersionName", INFOFIELD::Text, {.s = &DICOMINFO::sImplementationVersionName}},
    {"sSourceAETitle", INFOFIELD::Text, {.s = &DICOMINFO::sSourceAETitle}},
    {"nColumns", INFOFIELD::Int, {.n = &DICOMINFO::nColumns}},
    {"nRows", INFOFIELD::Int, {.n = &DICOMINFO::nRows}},
    {"nWindowCenter", INFOFIELD::Int, {.n = &DICOMINFO::nWindowCenter}},
    {"nWindowWidth", INFOFIELD::Int, {.n = &DICOMINFO::nWindowWidth}},
    {"nRescaleIntercept", INFOFIELD::Int, {.n = &DICOMINFO::nRescaleIntercept}},
    {"sRescaleType", INFOFIELD::Text, {.s = &DICOMINFO::sRescaleType}},
    {"nBitsAllocated", INFOFIELD::Int, {.n = &DICOMINFO::nBitsAllocated}},
    {"nBitsStored", INFOFIELD::Int, {.n = &DICOMINFO::nBitsStored}},
    {"nHighBit", INFOFIELD::Int, {.n = &DICOMINFO::nHighBit}},
    {"wPixelRepresentation", INFOFIELD::Word, {.w = &DICOMINFO::wPixelRepresentation}},
    {"wSamplesPerPixel", INFOFIELD::Word, {.w = &DICOMINFO::wSamplesPerPixel}},
    {"nPixelPaddingValue", INFOFIELD::Int, {.n = &DICOMINFO::nPixelPaddingValue}},
    {"nPhotometric", INFOFIELD::Int, {.n = &DICOMINFO::nPhotometric}},
    {"dRowSpacing", INFOFIELD::Double, {.d = &DICOMINFO::dRowSpacing}},
    {"dColumnSpacing", INFOFIELD::Double, {.d = &DICOMINFO::dColumnSpacing}},
    {"nStartTrim", INFOFIELD::Int, {.n = &DICOMINFO::nStartTrim}},
    {"nStopTrim", INFOFIELD::Int, {.n = &DICOMINFO::nStopTrim}},
    {"nRecommendedFrameRate", INFOFIELD::Int, {.n = &DICOMINFO::nRecommendedFrameRate}},
    {"nCineRate", INFOFIELD::Int, {.n = &DICOMINFO::nCineRate}},
    {"fFrameTime", INFOFIELD::Float, {.f = &DICOMINFO::fFrameTime}},
    {"fFrameDelay", INFOFIELD::Float, {.f = &DICOMINFO::fFrameDelay}},
    {"nImagesInAcquisition", INFOFIELD::Int, {.n = &DICOMINFO::nImagesInAcquisition}},
    {"wPlanarConfiguration", INFOFIELD::Word, {.w = &DICOMINFO::wPlanarConfiguration}},
    {"nNumberOfFrames", INFOFIELD::Int, {.n = &DICOMINFO::nNumberOfFrames}},
    {"nCurrentFrame", INFOFIELD::Int, {.n = &DICOMINFO::nCurrentFrame}},
    {"nCompressionType", INFOFIELD::Int, {.n = &DICOMINFO::nCompressionType}},
    {"bBiplane", INFOFIELD::Int, {.n = &DICOMINFO::bBiplane}},
    {"sBiplanePlane", INFOFIELD::Text, {.s = &DICOMINFO::sBiplanePlane}},
    {"bHasMetaHeader", INFOFIELD::Int, {.n = &DICOMINFO::bHasMetaHeader}},
    {"sSpecificCharacterSet", INFOFIELD::Text, {.s = &DICOMINFO::sSpecificCharacterSet}},
    {"sImageType", INFOFIELD::Text, {.s = &DICOMINFO::sImageType}},
    {"lInstanceCreationDate", INFOFIELD::Int, {.n = &DICOMINFO::lInstanceCreationDate}},
    {"lInstanceCreationTime", INFOFIELD::Int, {.n = &DICOMINFO::lInstanceCreationTime}},
    {"sSOPClassUID", INFOFIELD::Text, {.s = &DICOMINFO::sSOPClassUID}},
    {"sSOPInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sSOPInstanceUID}},
    {"lStudyDate", INFOFIELD::Int, {.n = &DICOMINFO::lStudyDate}},
    {"lSeriesDate", INFOFIELD::Int, {.n = &DICOMINFO::lSeriesDate}},
    {"lAcquisitionDate", INFOFIELD::Int, {.n = &DICOMINFO::lAcquisitionDate}},
    {"lContentDate", INFOFIELD::Int, {.n = &DICOMINFO::lContentDate}},
    {"lContentDateAsRead", INFOFIELD::Int, {.n = &DICOMINFO::lContentDateAsRead}},
    {"lStudyTime", INFOFIELD::Int, {.n = &DICOMINFO::lStudyTime}},
    {"lSeriesTime", INFOFIELD::Int, {.n = &DICOMINFO::lSeriesTime}},
    {"lAcquisitionTime", INFOFIELD::Int, {.n = &DICOMINFO::lAcquisitionTime}},
    {"lContentTime", INFOFIELD::Int, {.n = &DICOMINFO::lContentTime}},
    {"sAccessionNumber", INFOFIELD::Text, {.s = &DICOMINFO::sAccessionNumber}},
    {"sModality", INFOFIELD::Text, {.s = &DICOMINFO::sModality}},
    {"sPresentationIntentType", INFOFIELD::Text, {.s = &DICOMINFO::sPresentationIntentType}},
    {"sManufacturer", INFOFIELD::Text, {.s = &DICOMINFO::sManufacturer}},
    {"sInstitutionName", INFOFIELD::Text, {.s = &DICOMINFO::sInstitutionName}},
    {"sInstitutionAddress", INFOFIELD::Text, {.s = &DICOMINFO::sInstitutionAddress}},
    {"sReferringPhysicianName", INFOFIELD::Text, {.s = &DICOMINFO::sReferringPhysicianName}},
    {"sStationName", INFOFIELD::Text, {.s = &DICOMINFO::sStationName}},
    {"sStudyDescription", INFOFIELD::Text, {.s = &DICOMINFO::sStudyDescription}},
    {"sSeriesDescription", INFOFIELD::Text, {.s = &DICOMINFO::sSeriesDescription}},
    {"sInstitutionalDepartmentName", INFOFIELD::Text, {.s = &DICOMINFO::sInstitutionalDepartmentName}},
    {"sPerformingPhysicianName", INFOFIELD::Text, {.s = &DICOMINFO::sPerformingPhysicianName}},
    {"sReadingPhysicianName", INFOFIELD::Text, {.s = &DICOMINFO::sReadingPhysicianName}},
    {"sOperatorsName", INFOFIELD::Text, {.s = &DICOMINFO::sOperatorsName}},
    {"sManufacturerModelName", INFOFIELD::Text, {.s = &DICOMINFO::sManufacturerModelName}},
    {"sReferencedSOPClassUID", INFOFIELD::Text, {.s = &DICOMINFO::sReferencedSOPClassUID}},
    {"sReferencedSOPInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sReferencedSOPInstanceUID}},
    {"sPatientName", INFOFIELD::Text, {.s = &DICOMINFO::sPatientName}},
    {"sDicomPatientName", INFOFIELD::Text, {.s = &DICOMINFO::sDicomPatientName}},
    {"sPatientID", INFOFIELD::Text, {.s = &DICOMINFO::sPatientID}},
    {"lPatientBirthDate", INFOFIELD::Int, {.n = &DICOMINFO::lPatientBirthDate}},
    {"sPatientSex", INFOFIELD::Text, {.s = &DICOMINFO::sPatientSex}},
    {"sOtherPatientIDs", INFOFIELD::Text, {.s = &DICOMINFO::sOtherPatientIDs}},
    {"sPatientAge", INFOFIELD::Text, {.s = &DICOMINFO::sPatientAge}},
    {"sPatientComments", INFOFIELD::Text, {.s = &DICOMINFO::sPatientComments}},
    {"sContrastBolusAgent", INFOFIELD::Text, {.s = &DICOMINFO::sContrastBolusAgent}},
    {"sBodyPartExamined", INFOFIELD::Text, {.s = &DICOMINFO::sBodyPartExamined}},
    {"sScanOptions", INFOFIELD::Text, {.s = &DICOMINFO::sScanOptions}},
    {"sSequenceName", INFOFIELD::Text, {.s = &DICOMINFO::sSequenceName}},
    {"sSliceThickness", INFOFIELD::Text, {.s = &DICOMINFO::sSliceThickness}},
    {"sKVP", INFOFIELD::Text, {.s = &DICOMINFO::sKVP}},
    {"sRepetitionTime", INFOFIELD::Text, {.s = &DICOMINFO::sRepetitionTime}},
    {"sEchoTime", INFOFIELD::Text, {.s = &DICOMINFO::sEchoTime}},
    {"sInversionTime", INFOFIELD::Text, {.s = &DICOMINFO::sInversionTime}},
    {"sSpacingBetweenSlices", INFOFIELD::Text, {.s = &DICOMINFO::sSpacingBetweenSlices}},
    {"sDeviceSerialNumber", INFOFIELD::Text, {.s = &DICOMINFO::sDeviceSerialNumber}},
    {"sSecondaryCaptureDeviceID", INFOFIELD::Text, {.s = &DICOMINFO::sSecondaryCaptureDeviceID}},
    {"sSecondaryCaptureDeviceManufacturer", INFOFIELD::Text, {.s = &DICOMINFO::sSecondaryCaptureDeviceManufacturer}},
    {"sSecondaryCaptureDeviceModelName", INFOFIELD::Text, {.s = &DICOMINFO::sSecondaryCaptureDeviceModelName}},
    {"sSoftwareVersions", INFOFIELD::Text, {.s = &DICOMINFO::sSoftwareVersions}},
    {"sFrameTimeVector", INFOFIELD::Text, {.s = &DICOMINFO::sFrameTimeVector}},
    {"sDistanceSourceToPatient", INFOFIELD::Text, {.s = &DICOMINFO::sDistanceSourceToPatient}},
    {"sGantryDetectorTilt", INFOFIELD::Text, {.s = &DICOMINFO::sGantryDetectorTilt}},
    {"sExposureTime", INFOFIELD::Text, {.s = &DICOMINFO::sExposureTime}},
    {"sExposure", INFOFIELD::Text, {.s = &DICOMINFO::sExposure}},
    {"sRadiationSetting", INFOFIELD::Text, {.s = &DICOMINFO::sRadiationSetting}},
    {"sImageAreaDoseProduct", INFOFIELD::Text, {.s = &DICOMINFO::sImageAreaDoseProduct}},
    {"sAnodeTargetMaterial", INFOFIELD::Text, {.s = &DICOMINFO::sAnodeTargetMaterial}},
    {"sBodyPartThickness", INFOFIELD::Text, {.s = &DICOMINFO::sBodyPartThickness}},
    {"sCompressionForce", INFOFIELD::Text, {.s = &DICOMINFO::sCompressionForce}},
    {"sAcquisitionMatrix", INFOFIELD::Text, {.s = &DICOMINFO::sAcquisitionMatrix}},
    {"sCassetteOrientation", INFOFIELD::Text, {.s = &DICOMINFO::sCassetteOrientation}},
    {"sCassetteSize", INFOFIELD::Text, {.s = &DICOMINFO::sCassetteSize}},
    {"sRelativeXRayExposure", INFOFIELD::Text, {.s = &DICOMINFO::sRelativeXRayExposure}},
    {"sExposureIndex", INFOFIELD::Text, {.s = &DICOMINFO::sExposureIndex}},
    {"sTargetExposureIndex", INFOFIELD::Text, {.s = &DICOMINFO::sTargetExposureIndex}},
    {"sDeviationIndex", INFOFIELD::Text, {.s = &DICOMINFO::sDeviationIndex}},
    {"sPositionerType", INFOFIELD::Text, {.s = &DICOMINFO::sPositionerType}},
    {"sPositionerPrimaryAngle", INFOFIELD::Text, {.s = &DICOMINFO::sPositionerPrimaryAngle}},
    {"sPositionerSecondaryAngle", INFOFIELD::Text, {.s = &DICOMINFO::sPositionerSecondaryAngle}},
    {"sPatientPosition", INFOFIELD::Text, {.s = &DICOMINFO::sPatientPosition}},
    {"sViewPosition", INFOFIELD::Text, {.s = &DICOMINFO::sViewPosition}},
    {"sDetectorID", INFOFIELD::Text, {.s = &DICOMINFO::sDetectorID}},
    {"lDateOfLastDetectorCalibration", INFOFIELD::Int, {.n = &DICOMINFO::lDateOfLastDetectorCalibration}},
    {"sFilterMaterial", INFOFIELD::Text, {.s = &DICOMINFO::sFilterMaterial}},
    {"sStudyInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sStudyInstanceUID}},
    {"sSeriesInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sSeriesInstanceUID}},
    {"sStudyID", INFOFIELD::Text, {.s = &DICOMINFO::sStudyID}},
    {"sSeriesNumber", INFOFIELD::Text, {.s = &DICOMINFO::sSeriesNumber}},
    {"sAcquisitionNumber", INFOFIELD::Text, {.s = &DICOMINFO::sAcquisitionNumber}},
    {"sInstanceNumber", INFOFIELD::Text, {.s = &DICOMINFO::sInstanceNumber}},
    {"sPatientOrientation", INFOFIELD::Text, {.s = &DICOMINFO::sPatientOrientation}},
    {"sImagePositionPatient", INFOFIELD::Text, {.s = &DICOMINFO::sImagePositionPatient}},
    {"sImageOrientationPatient", INFOFIELD::Text, {.s = &DICOMINFO::sImageOrientationPatient}},
    {"sFrameOfReferenceUID", INFOFIELD::Text, {.s = &DICOMINFO::sFrameOfReferenceUID}},
    {"sLaterality", INFOFIELD::Text, {.s = &DICOMINFO::sLaterality}},
    {"sImageLaterality", INFOFIELD::Text, {.s = &DICOMINFO::sImageLaterality}},
    {"sPositionReferenceIndicator", INFOFIELD::Text, {.s = &DICOMINFO::sPositionReferenceIndicator}},
    {"sSliceLocation", INFOFIELD::Text, {.s = &DICOMINFO::sSliceLocation}},
    {"sImageComments", INFOFIELD::Text, {.s = &DICOMINFO::sImageComments}},
    {"nFrameIncrementPointerCount", INFOFIELD::Int, {.n = &DICOMINFO::nFrameIncrementPointerCount}},
    {"sPixelIntensityRelationship", INFOFIELD::Text, {.s = &DICOMINFO::sPixelIntensityRelationship}},
    {"sSpatialLocationsPreserved", INFOFIELD::Text, {.s = &DICOMINFO::sSpatialLocationsPreserved}},
    {"nPixelAspectRatioH", INFOFIELD::Int, {.n = &DICOMINFO::nPixelAspectRatioH}},
    {"nPixelAspectRatioV", INFOFIELD::Int, {.n = &DICOMINFO::nPixelAspectRatioV}},
    {"bLossyCompressed", INFOFIELD::Byte, {.b = &DICOMINFO::bLossyCompressed}},
    {"sStudyComments", INFOFIELD::Text, {.s = &DICOMINFO::sStudyComments}},
    {"sCurrentPatientLocation", INFOFIELD::Text, {.s = &DICOMINFO::sCurrentPatientLocation}},
    {"sEntranceDose", INFOFIELD::Text, {.s = &DICOMINFO::sEntranceDose}},
    {"sOrganDose", INFOFIELD::Text, {.s = &DICOMINFO::sOrganDose}},
    {"sCalibrationImage", INFOFIELD::Text, {.s = &DICOMINFO::sCalibrationImage}},
    {"sPatientSpeciesDescription", INFOFIELD::Text, {.s = &DICOMINFO::sPatientSpeciesDescription}},
    {"sPatientSexNeutered", INFOFIELD::Text, {.s = &DICOMINFO::sPatientSexNeutered}},
    {"sPatientBreedDescription", INFOFIELD::Text, {.s = &DICOMINFO::sPatientBreedDescription}},
    {"sResponsiblePerson", INFOFIELD::Text, {.s = &DICOMINFO::sResponsiblePerson}},
    {"sResponsiblePersonRole", INFOFIELD::Text, {.s = &DICOMINFO::sResponsiblePersonRole}},
    {"sResponsibleOrganization", INFOFIELD::Text, {.s = &DICOMINFO::sResponsibleOrganization}},
    {"nFlags", INFOFIELD::Int, {.n = &DICOMINFO::nFlags}},
    {"bBigEndian", INFOFIELD::Int, {.n = &DICOMINFO::bBigEndian}},
    {"nPixelDataOffset", INFOFIELD::Int, {.n = &DICOMINFO::nPixelDataOffset}},
    {"sFirstRefSourceImageSOPInstanceUID", INFOFIELD::Text, {.s = &DICOMINFO::sFirstRefSourceImageSOPInstanceUID}},
    {"dWindowCenter", INFOFIELD::Double, {.d = &DICOMINFO::dWindowCenter}},
    {"dWindowWidth", INFOFIELD::Double, {.d = &DICOMINFO::dWindowWidth}},
    {"dRescaleIntercept", INFOFIELD::Double, {.d = &DICOMINFO::dRescaleIntercept}},
    {"dRescaleSlope", INFOFIELD::Double, {.d = &DICOMINFO::dRescaleSlope}},
};

// Where a link points, by the kind of field.
struct LinkTarget {
    enum Kind { Text, Int, Code, Codes } kind;
    union {
        std::u16string DICOMINFO::*text;
        int DICOMINFO::*integer;
        CCodeSequenceMacro DICOMINFO::*code;
        std::vector<CCodeSequenceMacro> DICOMINFO::*codes;
    };
};
constexpr LinkTarget T(std::u16string DICOMINFO::*m) { return {LinkTarget::Text, {.text = m}}; }
constexpr LinkTarget I(int DICOMINFO::*m) { return {LinkTarget::Int, {.integer = m}}; }
LinkTarget C(CCodeSequenceMacro DICOMINFO::*m)
{
    LinkTarget t{LinkTarget::Code, {}};
    t.code = m;
    return t;
}
LinkTarget A(std::vector<CCodeSequenceMacro> DICOMINFO::*m)
{
    LinkTarget t{LinkTarget::Codes, {}};
    t.codes = m;
    return t;
}

struct LinkRow {
    uint16_t group, element;
    int vr;
    LinkTarget target;
};

// The displayable attributes, in the order GetLink searches them.
const LinkRow kLinks[] = {
    {0x0008, 0x0008, VR_CS, T(&DICOMINFO::sImageType)},
    {0x0008, 0x1010, VR_SH, T(&DICOMINFO::sStationName)},
    {0x0008, 0x0020, VR_DA, I(&DICOMINFO::lStudyDate)},
    {0x0008, 0x0022, VR_DA, I(&DICOMINFO::lAcquisitionDate)},
    {0x0008, 0x0023, VR_DA, I(&DICOMINFO::lContentDate)},
    {0x0008, 0x0030, VR_TM, I(&DICOMINFO::lStudyTime)},
    {0x0008, 0x0032, VR_TM, I(&DICOMINFO::lAcquisitionTime)},
    {0x0008, 0x0033, VR_TM, I(&DICOMINFO::lContentTime)},
    {0x0008, 0x0050, VR_SH, T(&DICOMINFO::sAccessionNumber)},
    {0x0008, 0x0060, VR_CS, T(&DICOMINFO::sModality)},
    {0x0008, 0x0070, VR_LO, T(&DICOMINFO::sManufacturer)},
    {0x0008, 0x0068, VR_CS, T(&DICOMINFO::sPresentationIntentType)},
    {0x0008, 0x0080, VR_LO, T(&DICOMINFO::sInstitutionName)},
    {0x0008, 0x0081, VR_ST, T(&DICOMINFO::sInstitutionAddress)},
    {0x0008, 0x0090, VR_PN, T(&DICOMINFO::sReferringPhysicianName)},
    {0x0008, 0x1030, VR_LO, T(&DICOMINFO::sStudyDescription)},
    {0x0008, 0x103E, VR_LO, T(&DICOMINFO::sSeriesDescription)},
    {0x0008, 0x1040, VR_LO, T(&DICOMINFO::sInstitutionalDepartmentName)},
    {0x0008, 0x1050, VR_PN, T(&DICOMINFO::sPerformingPhysicianName)},
    {0x0008, 0x1060, VR_PN, T(&DICOMINFO::sReadingPhysicianName)},
    {0x0008, 0x1070, VR_PN, T(&DICOMINFO::sOperatorsName)},
    {0x0008, 0x1090, VR_LO, T(&DICOMINFO::sManufacturerModelName)},
    {0x0010, 0x0010, VR_PN, T(&DICOMINFO::sDicomPatientName)},
    {0x0010, 0x0020, VR_LO, T(&DICOMINFO::sPatientID)},
    {0x0010, 0x0030, VR_DA, I(&DICOMINFO::lPatientBirthDate)},
    {0x0010, 0x0040, VR_CS, T(&DICOMINFO::sPatientSex)},
    {0x0010, 0x1000, VR_LO, T(&DICOMINFO::sOtherPatientIDs)},
    {0x0010, 0x1010, VR_AS, T(&DICOMINFO::sPatientAge)},
    {0x0010, 0x4000, VR_LT, T(&DICOMINFO::sPatientComments)},
    {0x0010, 0x2201, VR_LO, T(&DICOMINFO::sPatientSpeciesDescription)},
    {0x0010, 0x2202, VR_SQ, C(&DICOMINFO::PatientSpeciesCode)},
    {0x0010, 0x2203, VR_CS, T(&DICOMINFO::sPatientSexNeutered)},
    {0x0010, 0x2292, VR_LO, T(&DICOMINFO::sPatientBreedDescription)},
    {0x0010, 0x2293, VR_SQ, C(&DICOMINFO::PatientBreedCode)},
    {0x0010, 0x2294, VR_SQ, A(&DICOMINFO::aBreedRegistryCodes)},
    {0x0010, 0x2297, VR_CS, T(&DICOMINFO::sResponsiblePerson)},
    {0x0010, 0x2298, VR_CS, T(&DICOMINFO::sResponsiblePersonRole)},
    {0x0010, 0x2299, VR_LO, T(&DICOMINFO::sResponsibleOrganization)},
    {0x0018, 0x0010, VR_LO, T(&DICOMINFO::sContrastBolusAgent)},
    {0x0018, 0x0015, VR_CS, T(&DICOMINFO::sBodyPartExamined)},
    {0x0018, 0x0022, VR_CS, T(&DICOMINFO::sScanOptions)},
    {0x0018, 0x0024, VR_SH, T(&DICOMINFO::sSequenceName)},
    {0x0018, 0x0050, VR_DS, T(&DICOMINFO::sSliceThickness)},
    {0x0018, 0x0060, VR_DS, T(&DICOMINFO::sKVP)},
    {0x0018, 0x0080, VR_DS, T(&DICOMINFO::sRepetitionTime)},
    {0x0018, 0x0081, VR_DS, T(&DICOMINFO::sEchoTime)},
    {0x0018, 0x0082, VR_DS, T(&DICOMINFO::sInversionTime)},
    {0x0018, 0x0088, VR_DS, T(&DICOMINFO::sSpacingBetweenSlices)},
    {0x0018, 0x1000, VR_LO, T(&DICOMINFO::sDeviceSerialNumber)},
    {0x0018, 0x1008, VR_LO, T(&DICOMINFO::sSecondaryCaptureDeviceID)},
    {0x0018, 0x1020, VR_LO, T(&DICOMINFO::sSoftwareVersions)},
    {0x0018, 0x1120, VR_DS, T(&DICOMINFO::sGantryDetectorTilt)},
    {0x0018, 0x1150, VR_IS, T(&DICOMINFO::sExposureTime)},
    {0x0018, 0x1152, VR_IS, T(&DICOMINFO::sExposure)},
    {0x0018, 0x115E, VR_DS, T(&DICOMINFO::sImageAreaDoseProduct)},
    {0x0018, 0x1191, VR_CS, T(&DICOMINFO::sAnodeTargetMaterial)},
    {0x0018, 0x11A0, VR_DS, T(&DICOMINFO::sBodyPartThickness)},
    {0x0018, 0x11A2, VR_DS, T(&DICOMINFO::sCompressionForce)},
    {0x0018, 0x1310, VR_US, T(&DICOMINFO::sAcquisitionMatrix)},
    {0x0018, 0x1402, VR_CS, T(&DICOMINFO::sCassetteOrientation)},
    {0x0018, 0x1403, VR_CS, T(&DICOMINFO::sCassetteSize)},
    {0x0018, 0x1405, VR_IS, T(&DICOMINFO::sRelativeXRayExposure)},
    {0x0018, 0x1411, VR_DS, T(&DICOMINFO::sExposureIndex)},
    {0x0018, 0x1412, VR_DS, T(&DICOMINFO::sTargetExposureIndex)},
    {0x0018, 0x1413, VR_DS, T(&DICOMINFO::sDeviationIndex)},
    {0x0018, 0x5100, VR_CS, T(&DICOMINFO::sPatientPosition)},
    {0x0018, 0x5101, VR_CS, T(&DICOMINFO::sViewPosition)},
    {0x0018, 0x700A, VR_SH, T(&DICOMINFO::sDetectorID)},
    {0x0018, 0x700C, VR_DA, I(&DICOMINFO::lDateOfLastDetectorCalibration)},
    {0x0018, 0x7050, VR_CS, T(&DICOMINFO::sFilterMaterial)},
    {0x0018, 0x1500, VR_CS, T(&DICOMINFO::sPositionerType)},
    {0x0018, 0x1510, VR_DS, T(&DICOMINFO::sPositionerPrimaryAngle)},
    {0x0018, 0x1511, VR_DS, T(&DICOMINFO::sPositionerSecondaryAngle)},
    {0x0020, 0x0010, VR_SH, T(&DICOMINFO::sStudyID)},
    {0x0020, 0x0011, VR_IS, T(&DICOMINFO::sSeriesNumber)},
    {0x0020, 0x0012, VR_IS, T(&DICOMINFO::sAcquisitionNumber)},
    {0x0020, 0x0013, VR_IS, T(&DICOMINFO::sInstanceNumber)},
    {0x0020, 0x0020, VR_CS, T(&DICOMINFO::sPatientOrientation)},
    {0x0020, 0x0060, VR_CS, T(&DICOMINFO::sLaterality)},
    {0x0020, 0x0062, VR_CS, T(&DICOMINFO::sImageLaterality)},
    {0x0020, 0x1040, VR_LO, T(&DICOMINFO::sPositionReferenceIndicator)},
    {0x0020, 0x1041, VR_DS, T(&DICOMINFO::sSliceLocation)},
    {0x0020, 0x4000, VR_LT, T(&DICOMINFO::sImageComments)},
    {0x0028, 0x0008, VR_IS, I(&DICOMINFO::nNumberOfFrames)},
    {0x0028, 0x0010, VR_US, I(&DICOMINFO::nRows)},
    {0x0028, 0x0011, VR_US, I(&DICOMINFO::nColumns)},
    {0x0032, 0x4000, VR_LT, T(&DICOMINFO::sStudyComments)},
    {0x0038, 0x0300, VR_LO, T(&DICOMINFO::sCurrentPatientLocation)},
    {0x0040, 0x8302, VR_DS, T(&DICOMINFO::sEntranceDose)},
    {0x0040, 0x0316, VR_DS, T(&DICOMINFO::sOrganDose)},
    {0x0054, 0x0220, VR_SQ, C(&DICOMINFO::ViewCode)},
    {0x0054, 0x0222, VR_SQ, A(&DICOMINFO::aViewModifierCodes)},
};
constexpr int kLinkRows = sizeof(kLinks) / sizeof(kLinks[0]);
static_assert(kLinkRows == 92);

void* TargetOf(DICOMINFO& info, const LinkTarget& target)
{
    switch (target.kind) {
    case LinkTarget::Text:
        return &(info.*target.text);
    case LinkTarget::Int:
        return &(info.*target.integer);
    case LinkTarget::Code:
        return &(info.*target.code);
    case LinkTarget::Codes:
        return &(info.*target.codes);
    }
    return nullptr;
}

bool IsText(const TAGLINK& link, std::initializer_list<int> tags)
{
    for (int tag : tags)
        if (((link.nGroup << 16) | link.nElement) == tag)
            return true;
    return false;
}

// Leading decimal number of a DS/IS text, as a float; 0 when none.
double LeadingNumber(const std::u16string& text)
{
    std::string ascii = WideToAscii(Trim(text));
    return std::strtod(ascii.c_str(), nullptr);
}

std::u16string TrimLeft(const std::u16string& text)
{
    size_t start = 0;
    while (start < text.size() && (text[start] == u' ' || text[start] == u'\t' || text[start] == u'\r' ||
                                   text[start] == u'\n' || text[start] == 0))
        ++start;
    return text.substr(start);
}

}  // namespace

const INFOFIELD* DICOMINFO::GetFieldTable(int& fieldCount)
{
    fieldCount = static_cast<int>(sizeof(kFields) / sizeof(kFields[0]));
    return kFields;
}

DICOMINFO::DICOMINFO()
{
    InitLinkTable();
}

DICOMINFO::~DICOMINFO() = default;

void DICOMINFO::InitLinkTable()
{
    pLinks.reset(new TAGLINK[kLinkRows]);
    for (int i = 0; i < kLinkRows; ++i)
        pLinks[i] = {kLinks[i].group, kLinks[i].element, kLinks[i].vr, TargetOf(*this, kLinks[i].target)};
    nLinkCount = kLinkRows;
}

const TAGLINK* DICOMINFO::GetLink(int group, int element) const
{
    if (!pLinks || nLinkCount < 1)
        return nullptr;
    for (int i = 0; i < nLinkCount; ++i)
        if (pLinks[i].nGroup == group && pLinks[i].nElement == element)
            return &pLinks[i];
    return nullptr;
}

std::u16string DICOMINFO::GetTagValue(int group, int element) const
{
    const TAGLINK* link = GetLink(group, element);
    if (!link || link->nVR < VR_AS || link->nVR > VR_US || !link->pValue)
        return {};
    // Which fields hold text follows from the link's VR (see TAGLINK).
    bool holdsText = !(link->nVR == VR_DA || link->nVR == VR_TM || link->nVR == VR_SQ ||
                       (link->nVR == VR_US && !(group == 0x0018 && element == 0x1310)) ||
                       (group == 0x0028 && element == 0x0008));
    static const std::u16string kNoText;
    const std::u16string& text = holdsText ? *static_cast<const std::u16string*>(link->pValue) : kNoText;
    std::u16string out;
    switch (link->nVR) {
    case VR_AS:
    case VR_LO:
    case VR_LT:
    case VR_SH:
    case VR_ST:
        out = text;
        break;
    case VR_CS:
        if (group == 0x0008 && element == 0x0008) {
            std::u16string third = GetField(text, u'\\', 2);
            if (third.compare(0, 7, u"BIPLANE") == 0)
                out = third;
        } else {
            out = text;
        }
        break;
    case VR_DA:
        CDateTimeTools::Long2DateEx(*static_cast<const int*>(link->pValue), out);
        break;
    case VR_TM:
        CDateTimeTools::Long2Time(*static_cast<const int*>(link->pValue), out);
        break;
    case VR_DS:
    case VR_IS:
        if (IsText(*link, {0x00200011, 0x00200012, 0x00200013})) {
            if (!text.empty())
                out = FormatWide("%d", static_cast<int>(WideToLong(text)));
        } else if (IsText(*link, {0x00180050, 0x00180080, 0x00180081, 0x00201041})) {
            if (!text.empty())
                out = FormatWide("%g", LeadingNumber(text));
        } else if (group == 0x0028 && element == 0x0008) {
            if (nCurrentFrame >= 0 && nNumberOfFrames >= 2)
                out = FormatWide("%d / %d", nCurrentFrame + 1, nNumberOfFrames);
        } else {
            out = text;
        }
        break;
    case VR_PN: {
        std::u16string family, given;
        ConvertNameFromDicom(text, family, given);
        if (!family.empty())
            out = given.empty() ? family : family + u" " + given;
        break;
    }
    case VR_SQ:
        out = GetCodeMeaningFromCodeSequenceMacro(link, group, element);
        break;
    case VR_US:
        if (group == 0x0018 && element == 0x1310)
            out = text;
        else if (group == 0x0028 && (element == 0x0010 || element == 0x0011))
            out = FormatWide("%d", *static_cast<const int*>(link->pValue));
        break;
    default:
        break;
    }
    return TrimLeft(out);
}

std::u16string DICOMINFO::GetCodeMeaningFromCodeSequenceMacro(const TAGLINK* link, int group, int element) const
{
    if (!link || !link->pValue)
        return {};
    int tag = (group << 16) | element;
    if (tag == 0x00102202 || tag == 0x00102293 || tag == 0x00540220)
        return static_cast<const CCodeSequenceMacro*>(link->pValue)->m_strCodeMeaning;
    if (tag == 0x00102294 && !aBreedRegistryCodes.empty())
        return aBreedRegistryCodes.front().m_strCodeMeaning;
    return {};
}

std::u16string DICOMINFO::GetLaterality() const
{
    return sImageLaterality.empty() ? sLaterality : sImageLaterality;
}

DICOM_OVERLAY* DICOMINFO::GetOverlay(int index) const
{
    for (const auto& overlay : aOverlays)
        if (overlay->nIndex == index)
            return overlay.get();
    return nullptr;
}

DICOMINFO& DICOMINFO::operator=(const DICOMINFO& other)
{
    if (this == &other)
        return *this;
    // Each record's links point at its own fields; the character set, the
    // frame increment pointers, the lossy flag, the breed registry codes,
    // the lists, the LUTs and the frame offsets stay the target's own.
    for (const INFOFIELD& field : kFields) {
        std::string_view name = field.name;
        if (name == "sSpecificCharacterSet" || name == "nFrameIncrementPointerCount" || name == "bLossyCompressed")
            continue;
        switch (field.kind) {
        case INFOFIELD::Int:
            this->*field.member.n = other.*field.member.n;
            break;
        case INFOFIELD::Word:
            this->*field.member.w = other.*field.member.w;
            break;
        case INFOFIELD::Text:
            this->*field.member.s = other.*field.member.s;
            break;
        case INFOFIELD::Double:
            this->*field.member.d = other.*field.member.d;
            break;
        case INFOFIELD::Float:
            this->*field.member.f = other.*field.member.f;
            break;
        case INFOFIELD::Byte:
            this->*field.member.b = other.*field.member.b;
            break;
        }
    }
    ViewCode = other.ViewCode;
    aViewModifierCodes = other.aViewModifierCodes;
    PatientSpeciesCode = other.PatientSpeciesCode;
    PatientBreedCode = other.PatientBreedCode;
    aEmptyNumberElements = other.aEmptyNumberElements;
    sDicomPatientSex = other.sDicomPatientSex;
    return *this;
}

void DICOMINFO::SetCommonInfo(const DICOMINFO* source)
{
    if (!source || source == this)
        return;
    lStudyDate = source->lStudyDate;
    lStudyTime = source->lStudyTime;
    sModality = source->sModality;
    // The stored form, carets kept: the header writers write sPatientName.
    sPatientName = source->sDicomPatientName;
    sPatientID = source->sPatientID;
    lPatientBirthDate = source->lPatientBirthDate;
    sStudyInstanceUID = source->sStudyInstanceUID;
    sSeriesInstanceUID = source->sSeriesInstanceUID;
    sStudyID = source->sStudyID;
    sSeriesNumber = source->sSeriesNumber;
    wPixelRepresentation = source->wPixelRepresentation;
    nRescaleIntercept = source->nRescaleIntercept;
    dRescaleIntercept = source->dRescaleIntercept;
    dRescaleSlope = source->dRescaleSlope;
    nBitsAllocated = source->nBitsAllocated;
    nBitsStored = source->nBitsStored;
    nHighBit = source->nHighBit;
    nPhotometric = source->nPhotometric;
    nWindowWidth = source->nWindowWidth;
    dWindowWidth = source->dWindowWidth;
    dRowSpacing = source->dRowSpacing;
    dColumnSpacing = source->dColumnSpacing;
    ModalityLut = source->ModalityLut;
    RedPaletteLut = source->RedPaletteLut;
    GreenPaletteLut = source->GreenPaletteLut;
    BluePaletteLut = source->BluePaletteLut;
}
