#pragma once
// Structured Report documents (PS3.3 C.17: SR Document General and SR
// Document Content modules): the document as an element tree, reading its
// content tree, building and saving reports, and drawing them as text lines.
//
// A content item is an item of a Content Sequence (0040,A730) with a
// Relationship Type (0040,A010), a Value Type (0040,A040), a Concept Name
// Code Sequence (0040,A043) and the value elements of its type; the data
// set itself is the root content item (its concept name is the title).
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "imageinfo/codedictionary.h"
#include "sr/srdraw.h"

class CInstanceData;
class CXmlItem;

class CSR {
public:
    CSR() = default;
    // Copies share the tree (not duplicated); it goes with the last of them.
    CSR(const CSR& other) = default;
    CSR& operator=(const CSR& other) = default;
    virtual ~CSR();

    // --- the document (sr_tree.cpp)
    // A new empty document of the given SOP class: meta information with a
    // new SOP Instance UID in implicit VR little endian, and an empty "Data".
    bool Init(const std::string& sopClassUID);
    bool Load(const std::u16string& path, bool flag = false);
    // The same from a file image in memory, which must outlive the document.
    bool Load(const unsigned char* bytes, int count);
    void Free();
    CDicomItem* GetDataItem() const { return m_pData; }
    CDicomItem* GetHeaderItem() const { return m_pHeader; }
    // Why the last Load failed (the loader's reason).
    const CLastError& GetLastError() const { return m_LastError; }
    // Referenced SOP Instance UIDs of the top-level IMAGE items, last first.
    void FillImageList(std::vector<std::u16string>& list) const;

    // A document owning the given object root (children "Header", "Data").
    static CSR* FromDicomItem(CDicomItem* root);

    // --- navigation and values (sr_tree.cpp)
    static CDicomItem* GetNode(const CDicomItem* node, int index);
    // The index-th child whose concept name has this code value and scheme
    // (compared without regard to case).
    static CDicomItem* GetNode(const CDicomItem* node, const std::string& conceptValue,
                               const std::string& conceptScheme, int index);
    // The first item of the sequence whose concept name matches exactly.
    static CDicomItem* SearchNode(const CDicomItem* sequence, const std::string& conceptValue,
                                  const std::string& conceptScheme);
    static bool GetCodeData(const CDicomItem* node, int group, int element, std::string& codeValue,
                            std::string& scheme, std::string& meaning);
    static bool GetConceptNameCodeData(const CDicomItem* node, std::string& codeValue, std::string& scheme);
    static bool GetConceptNameCodeMeaning(const CDicomItem* node, std::string& meaning);
    static bool GetConceptCodeData(const CDicomItem* node, std::string& codeValue, std::string& scheme);
    static bool GetNodeData(const CDicomItem* node, std::string& text, bool formatted);
    static bool GetNodeData(const CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                            std::string& text, int index);
    static bool GetNodeCodeData(const CDicomItem* node, const std::string& conceptValue,
                                const std::string& conceptScheme, std::string& codeValue, std::string& scheme);
    static bool GetNodeCompositeData(const CDicomItem* node, const std::string& conceptValue,
                                     const std::string& conceptScheme, std::string& sopClassUID,
                                     std::string& sopInstanceUID);
    static bool ReplaceNode(CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                            const std::string& text);
    // The items of a node's Content Sequence, in order (one pass over them).
    static std::vector<CDicomItem*> GetChildNodes(const CDicomItem* node);
    // What a reader of the report sees as the item's value, for every value
    // type of PS3.3 C.17.3 (NUM with its unit, references with their UIDs);
    // false when the item has no value to show (a CONTAINER).
    static bool GetNodeDisplayText(const CDicomItem* node, std::string& text);

    // --- the code dictionary (sr_tree.cpp)
    static std::u16string GetConfigPath();
    static std::string GetCodeMeaning(const std::string& designator, const std::string& value,
                                      const std::string& version);
    static CCodeDictionary g_dictionary;

    // --- building (sr_build.cpp)
    static CDicomItem* AddNode(CDicomItem* parent, const std::string& relationship, const std::string& valueType,
                               const std::string& conceptValue, const std::string& conceptScheme,
                               const std::string& value);
    static CDicomItem* AddCodeNode(CDicomItem* parent, const std::string& relationship,
                                   const std::string& conceptValue, const std::string& conceptScheme,
                                   const std::string& codeValue, const std::string& codeScheme);
    static CDicomItem* AddNumNode(CDicomItem* parent, const std::string& relationship,
                                  const std::string& conceptValue, const std::string& conceptScheme,
                                  const std::string& unitValue, const std::string& unitScheme,
                                  const std::string& unitVersion, const std::string& numericValue);
    static CDicomItem* AddContainer(CDicomItem* parent, const std::string& relationship,
                                    const std::string& continuity, const std::string& conceptValue,
                                    const std::string& conceptScheme);
    static CDicomItem* AddCompositeNode(CDicomItem* parent, const std::string& relationship,
                                        const std::string& conceptValue, const std::string& conceptScheme,
                                        const std::string& sopClassUID, const std::string& sopInstanceUID);
    static CDicomItem* AddImageNode(CDicomItem* parent, const std::string& relationship,
                                    const std::string& sopClassUID, const std::string& sopInstanceUID);
    static CDicomItem* InsertCodeItem(CDicomItem* sequence, const std::string& value, const std::string& designator,
                                      const std::string& version);
    // The general modules (patient, study, series, equipment, SR document
    // general) from the host's study item, whose parent describes the patient.
    bool FillGeneralData(const CXmlItem* study, const std::u16string& characterSet);
    // Appends a new record (owned by the caller) per top-level IMAGE item.
    void FillInstanceFinding(std::vector<CInstanceData*>& instances) const;
    // Writes the document as a Part 10 file. The file at path is replaced
    // only once the new one is complete.
    bool Save(const std::u16string& path) const;

    // --- drawing (sr_render.cpp)
    // The header lines, a blank line, then one line per content item in
    // document order; the extent of what was drawn.
    SR_EXTENT Draw(CSRDrawContext& context) const;
    SR_EXTENT Draw(CSRDrawContext& context, const SR_LAYOUT& layout) const;
    static void DrawNode(CSRDrawContext& context, const CDicomItem* node, SR_EXTENT& extent);
    static int DrawTextW(CSRDrawContext& context, const std::u16string& text, SR_EXTENT& extent);

protected:
    // Writer callback of Save: the context is the open FILE.
    static uint32_t WriteProc(const void* bytes, uint32_t count, void* file);

private:
    static void DrawNode(CSRDrawContext& context, const CDicomItem* node, const SR_LAYOUT& layout, int depth,
                         SR_EXTENT& extent);

    std::shared_ptr<CDicomItem> m_pRoot;
    CDicomItem* m_pHeader = nullptr;
    CDicomItem* m_pData = nullptr;
    CLastError m_LastError;
};
