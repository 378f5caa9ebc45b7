#pragma once
// The element tree: every DICOM data set read, received or built by the
// library is a tree of CDicomItem nodes.
//
// Naming: an object root holds "Header" (preamble + group 0002) and "Data";
// a data set node holds group nodes "g%04X"; a group node holds element
// nodes "e%04X"; an element carries its value bytes and the attribute
// children "VR", "ParentVR", "Size", "Offset", "WriteSize" ("File" on a root
// loaded from a file). A sequence element holds a group node gFFFE with its
// items eE000 (each a data set node) and, for undefined length, eE0DD.
#include <cstdint>
#include <string>
#include <vector>

#include "dicomdata/tagheader.h"
#include "platform/dicomitemtosave.h"
#include "platform/lasterror.h"
#include "platform/xmlitem.h"

class CDataInMemory;
namespace zeldicom {
struct ByteOrderFault;
}

// Writer callback: takes count bytes, returns count or 0xFFFFFFFF on failure.
typedef uint32_t (*DICOM_WRITER_PROC)(const void* bytes, uint32_t count, void* context);

class CDicomItem : public CXmlItem, public CDicomItemToSave {
public:
    explicit CDicomItem(const std::u16string& name, const std::u16string& value = std::u16string());
    ~CDicomItem() override;
    CXmlItem* CreateCopy() const override;

    // --- raw value (dicomitem_value.cpp)
    const unsigned char* GetData() const { return m_pData; }
    int GetDataSize() const { return m_nDataSize; }
    bool IsToBeFree() const { return m_bToBeFree; }
    void SetData(const unsigned char* bytes, int size, bool owns);
    bool CopyData(const void* bytes, int size);
    bool CopyData(int group, int element, const void* bytes, int size);
    bool CopyData(const std::u16string& text);
    bool CopyData(int group, int element, const std::u16string& text);
    bool SetTagValue(int group, int element, uint16_t value);
    void FreeData();
    void SetUndefinedSize() { m_nDataSize = -1; }

    // --- attributes (dicomitem_tree.cpp)
    // The "VR" attribute as 8-bit text, empty when absent.
    std::string GetVR() const;
    bool HasAttribute(const char16_t* name) const { return GetChildItem(name) != nullptr; }
    void SetAttribute(const char16_t* name, const std::u16string& value);  // replaces
    void SetAttribute(const char16_t* name, long value);                   // replaces
    // Group and element numbers of group/element node names; -1 when the
    // name is not "gXXXX" / "eXXXX".
    static int ParseGroupName(const std::u16string& name);
    static int ParseElementName(const std::u16string& name);
    static std::u16string GroupName(int group);
    static std::u16string ElementName(int element);
    CDicomItem* GetDicomParent() const;

    // --- lookup (dicomitem_tree.cpp)
    CDicomItem* GetGroupItem(int group) const;
    CDicomItem* GetTagItem(int group, int element, int n = 0) const;
    int GetTagItemCount(int group, int element) const;
    CDicomItem* FindTag(int group, int element) const;

    // --- building (dicomitem_tree.cpp)
    CDicomItem* AddGroup(int group);
    void SetGroupNumber(int group);
    CDicomItem* AddTag(int group, int element, const void* bytes, int size, const std::u16string& vr);
    CDicomItem* InsertTag(int group, int element, const void* bytes, int size, const std::u16string& vr);
    CDicomItem* ReplaceTag(int group, int element, const void* bytes, int size, const std::u16string& vr);
    CDicomItem* AddTag(int group, int element, const std::u16string& text, const std::u16string& vr);
    CDicomItem* InsertTag(int group, int element, const std::u16string& text, const std::u16string& vr);
    CDicomItem* ReplaceTag(int group, int element, const std::u16string& text, const std::u16string& vr);
    CDicomItem* AddTag(int group, int element, uint16_t value);
    CDicomItem* AddTag(int group, int element, uint32_t value);
    CDicomItem* AddTagForFL(int group, int element, const std::vector<float>& values);
    CDicomItem* AddTagForSL(int group, int element, const std::vector<int32_t>& values);
    CDicomItem* AddTagForUS(int group, int element, const std::vector<uint16_t>& values);
    CDicomItem* AddTagForSS(int group, int element, const std::vector<int16_t>& values);
    int InsertDicomItem(CDicomItem* element, int group);
    bool RemoveTag(int group, int element);
    bool RemoveGroup(int group);

    // --- sequences (dicomitem_tree.cpp)
    CDicomItem* AddSequence(int group, int element);
    CDicomItem* InsertSequence(int group, int element);
    CDicomItem* InsertSequenceItem();
    CDicomItem* GetSequenceItem(int group, int element) const;
    int GetSequenceChildItemCount(int group, int element) const;
    CDicomItem* GetSequenceChildItemOptional(int group, int element, int index) const;
    CDicomItem* GetSequenceChildItemMandatory(int group, int element, int n) const;

    // --- typed reading (dicomitem_value.cpp)
    bool GetTagValue(const std::string& vr, std::u16string& text) const;
    bool GetTagValue(std::u16string& text) const;
    bool GetTagValue(int group, int element, std::u16string& text) const;
    bool GetTagValue(uint16_t& value) const;
    bool GetTagValue(int group, int element, uint16_t& value) const;
    bool GetTagValue(int group, int element, int& value) const;
    bool GetTagValueForUS(uint16_t& value, int index) const;
    bool GetTagValueForSS(int16_t& value, int index) const;
    bool GetTagValueForFL(float& value, int index) const;
    bool GetTagValueForSL(std::u16string& text) const;
    bool GetTagValueForDS(float& value, int index) const;
    bool GetTagValueForIS(int& value, int index) const;
    bool GetDateValue(int group, int element, long& value) const;
    bool GetTimeValue(int group, int element, long& value) const;
    static long DicomTimeToLong(const std::u16string& text);

    // --- identity and frames (dicomitem_misc.cpp)
    static std::u16string GetUID();
    uint32_t GetCompressedFrameData(int frame, unsigned char* out, uint32_t capacity) const;
    static std::u16string GetDicomImageType(const CDicomItem* node);

    // --- parsing (dicomitem_parse.cpp)
    static int GetLengthFormatByVR(uint16_t vr);
    // Decodes one header; available is how many header bytes may be read
    // (at least 8; 12 are needed for an explicit long form). False when the
    // header needs more bytes than are available.
    bool GetTagInfo(const TAG_HEADER_EX* header, bool explicitVR, std::u16string& vr, int& headerSize,
                    uint32_t& length, size_t available = sizeof(TAG_HEADER_EX)) const;
    uint32_t LoadTags(const unsigned char* bytes, int count, bool explicitVR, int groupFilter);
    bool LoadObject(const unsigned char* bytes, int count);
    bool LoadObject(const std::u16string& path, bool flag = false);
    static bool IsExplicitVR(const std::u16string& transferSyntax);
    static bool IsBigEndian(const std::u16string& transferSyntax);

    // Why the last LoadObject, SaveObject, SaveToFile, Recalc*/Save* or
    // refused edit on this node failed; cleared when one of them starts. A
    // damaged data set names the element and byte offset where reading
    // stopped; a data set that cannot be encoded names the element (tag,
    // keyword, VR, length) and why.
    const CLastError& GetLastError() const { return m_LastError; }
    // Whether a LoadObject that fails inside the data set keeps what it could
    // read ("Header" and the "Data" read so far) below this node, for display.
    void SetKeepPartialLoad(bool keep) { m_bKeepPartialLoad = keep; }
    // Whether LoadObject leaves a DICOMDIR's records in stored order (for
    // display) rather than in the order their links describe, parent first,
    // which is what saving the object again needs.
    void SetKeepStoredRecordOrder(bool keep) { m_bKeepStoredRecordOrder = keep; }
    // Where the last successful LoadObject found the data set in the loaded
    // bytes (behind the file meta information; for a deflated data set,
    // where its compressed stream starts), and whether it read it as
    // explicit VR: the encoding the bytes carry, which is not always the one
    // the meta information names. -1 and false before a load.
    int64_t GetDataSetOffset() const { return m_nDataSetOffset; }
    bool IsDataSetExplicitVR() const { return m_bDataSetExplicitVR; }
    // Whether the last successful LoadObject read an explicit VR big endian
    // data set (PS3.5 A.3). Its values were converted once on loading: the
    // tree holds little endian values like every tree, the meta information
    // still names the file's transfer syntax, and saving writes explicit VR
    // little endian unless (0002,0010) is set to another syntax.
    bool IsSourceBigEndian() const { return m_bSourceBigEndian; }
    // The offset in the loaded bytes at which a value of the loaded tree
    // stands (a big endian data set's values in their converted copy keep
    // their offsets); -1 for a value that is not there as read (built,
    // copied or inflated).
    int64_t GetLoadedOffset(const unsigned char* value) const;

    // --- encoding (dicomitem_encode.cpp)
    uint32_t RecalcTags(bool explicitVR, uint32_t offset);
    uint32_t RecalcGroup(bool explicitVR, uint32_t offset);
    uint32_t RecalcTag(int group, int element, bool explicitVR, uint32_t offset);
    uint32_t SaveTags(bool explicitVR, DICOM_WRITER_PROC writer, void* context);
    uint32_t SaveGroup(bool explicitVR, DICOM_WRITER_PROC writer, void* context);
    uint32_t SaveTag(int group, int element, bool explicitVR, DICOM_WRITER_PROC writer, void* context);
    bool SaveObject(DICOM_WRITER_PROC writer, void* context) const;
    bool SaveToFile(const std::u16string& path) const override;
    // The object is destroyed in every case; error (when given) says why
    // the file could not be replaced.
    static bool SaveModificationToExistingFile(CDicomItem*& root, const std::u16string& path,
                                               CLastError* error = nullptr);
    void RecalcDicomDirOffsets();

    // --- file meta information (dicomitem_meta.cpp)
    // A new "Header" node: preamble, "DICM" and group 0002 for the given UIDs.
    static CDicomItem* CreateMetaHeader(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID,
                                        const std::u16string& transferSyntax);

    // --- instance editing (dicomitem_edit.cpp)
    // Writes the attributes of a host attribute tree (nodes PATIENT, STUDY,
    // SERIES, IMAGE) into this data set node ("Data"); an absent attribute
    // leaves its element as it is. Any other node is left alone.
    void ModifyImageTags(const CXmlItem* patient, const CXmlItem* study, const CXmlItem* series,
                         const CXmlItem* image);
    // The same from the tree's root: PATIENT, its STUDY, its SERIES, its
    // IMAGE (first of each); nothing unless all four exist.
    void ModifyImageTags(const CXmlItem* root);
    // Adds (0008,1199) with one item naming the referenced instance; returns
    // the sequence element (null when it cannot be added).
    CDicomItem* AddRefSOPSequence(const std::u16string& classUID, const std::u16string& instanceUID);

    // --- text (dicomitem_text.cpp)
    static std::u16string TranslateTagValueFromDicomToUnicode(const std::string& bytes, const std::string& vr,
                                                              const std::u16string& characterSet);
    static std::string TranslateTagValueFromUnicodeToDicom(const std::u16string& text, const std::string& vr,
                                                           const std::u16string& characterSet);
    // The same, reporting whether the character set holds the whole text.
    static bool TranslateTagValueFromUnicodeToDicom(const std::u16string& text, const std::string& vr,
                                                    const std::u16string& characterSet, std::string& bytes);
    bool Format(int group, int element, std::u16string& text) const;

    CDataInMemory* m_pFileImage = nullptr;
    const unsigned char* m_pData = nullptr;
    int m_nDataSize = 0;
    bool m_bToBeFree = false;
    int m_nCopyChunkSize = 32;
    // For an undefined-length element or item read by the parser: the bytes
    // its content took in the parsed buffer, delimiter included; 0 otherwise.
    uint32_t m_nParsedLength = 0;

private:
    CDicomItem* CreateElement(int group, int element, const void* bytes, int size, const std::u16string& vr,
                              bool insertSorted);
    CDicomItem* FindOrAddGroup(int group);
    uint32_t ParseRun(const unsigned char* bytes, int64_t count, bool bounded, bool explicitVR, int groupFilter,
                      int depth, bool* endedAtDelimiter = nullptr);
    bool LoadDataSet(CDicomItem* header, CDicomItem* data, const unsigned char* body, int64_t size,
                     std::u16string transferSyntax, bool bare);
    bool EncodeTextValue(const std::u16string& text, const std::u16string& vr, std::string& bytes) const;
    bool LoadFailed(int code, const std::string& text);
    bool DataSetMalformed(uint16_t group, uint16_t element, size_t offset, const char* where);
    bool LoadBigEndianDataSet(CDicomItem* data, const unsigned char* body, int64_t size,
                              const unsigned char*& parsed, zeldicom::ByteOrderFault& fault);
    // Records why this element cannot be encoded (logged, and kept in
    // GetLastError()); returns the failure count 0xFFFFFFFF.
    uint32_t EncodingFailed(int group, int element, const char* why);
    // DICOMDIR records in the order their links describe (dicomitem_dicomdir.cpp).
    void OrderDicomDirRecords(const unsigned char* image, size_t size);
    void RemoveLoadedObject();
    mutable CLastError m_LastError;
    bool m_bKeepPartialLoad = false;
    bool m_bKeepStoredRecordOrder = false;
    int64_t m_nDataSetOffset = -1;
    bool m_bDataSetExplicitVR = false;
    bool m_bSourceBigEndian = false;
};

// Group/element pair used as a map key.
class CDicomTag {
public:
    CDicomTag(int group, int element) : m_nGroup(group), m_nElement(element) {}
    CDicomTag(const CDicomTag&) = default;
    CDicomTag& operator=(const CDicomTag&) = default;
    virtual ~CDicomTag() = default;
    bool operator<(const CDicomTag& other) const
    {
        return m_nGroup != other.m_nGroup ? m_nGroup < other.m_nGroup : m_nElement < other.m_nElement;
    }
    bool operator==(const CDicomTag& other) const
    {
        return m_nGroup == other.m_nGroup && m_nElement == other.m_nElement;
    }
    int32_t m_nGroup;
    int32_t m_nElement;
};
