#pragma once
// The flat image information record.
#include <cstddef>
#include <cstdint>
#include <string>

#include "dicomdata/dicomsettings.h"
#include "dicomdata/tagheader.h"

class CDynBuffer;
class CXmlItem;

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
    // --- file meta information fields: the first seven form metaHeaderInfo
    // (CreateMetaHeaderBuffer reads them); ProcessMetaHeader sets
    // bHasMetaHeader, bBigEndian and sTransferSyntax. The record's image
    // fields take their places around these in the record's own order.
    int nMetaVersion = 0x0100;
    std::u16string sMediaStorageSOPClassUID;
    std::u16string sMediaStorageSOPInstanceUID;
    std::u16string sTransferSyntax = u"1.2.840.10008.1.2";
    std::u16string sImplementationClassUID = GetDicomRoot();
    std::u16string sImplementationVersionName = DefaultImplementationVersionName();
    std::u16string sSourceAETitle = GetDicomApplicationName();
    int bHasMetaHeader = 0;
    int bBigEndian = 0;

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
    const unsigned char* ProcessMetaHeader(const unsigned char* buffer, size_t size, bool& changed);
};
