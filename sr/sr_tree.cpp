// The structured report document: loading, navigating the content tree and
// reading the values of its content items.
#include <cstdio>

#include "dicomdata/dictionary.h"
#include "platform/apppath.h"
#include "platform/datetools.h"
#include "platform/text.h"
#include "sr/sr.h"

using namespace zeldicom;

CCodeDictionary CSR::g_dictionary;

namespace {

// The element's value as UTF-8, trimmed; false when the element is absent.
bool ReadText(const CDicomItem* node, int group, int element, std::string& text)
{
    std::u16string wide;
    if (!node || !node->GetTagValue(group, element, wide))
        return false;
    text = Utf16ToUtf8(Trim(wide));
    return true;
}

std::string TextOf(const CDicomItem* node, int group, int element)
{
    std::string text;
    ReadText(node, group, element, text);
    return text;
}

// The items of a sequence element in order, in one pass over its children.
std::vector<CDicomItem*> ItemsOf(const CDicomItem* sequence)
{
    std::vector<CDicomItem*> items;
    const CDicomItem* group = sequence ? sequence->GetGroupItem(0xFFFE) : nullptr;
    if (!group)
        return items;
    for (CXmlItem* child : group->m_children)
        if (child->m_sName == u"eE000")
            items.push_back(static_cast<CDicomItem*>(child));
    return items;
}

CDicomItem* ContentSequence(const CDicomItem* node)
{
    return node ? node->GetTagItem(0x0040, 0xA730) : nullptr;
}

bool ConceptIs(const CDicomItem* item, const std::string& value, const std::string& scheme, bool ignoreCase)
{
    std::string itemValue, itemScheme;
    if (!CSR::GetConceptNameCodeData(item, itemValue, itemScheme))
        return false;
    if (ignoreCase)
        return EqualsNoCase(itemValue, value) && EqualsNoCase(itemScheme, scheme);
    return itemValue == value && itemScheme == scheme;
}

// A code's meaning for display: the document's, else the dictionary's, else
// the code value itself. Empty when the sequence holds no code.
std::string CodeForDisplay(const CDicomItem* node, int group, int element)
{
    std::string value, scheme, meaning;
    if (!CSR::GetCodeData(node, group, element, value, scheme, meaning))
        return {};
    if (meaning.empty()) {
        const CDicomItem* code = node->GetSequenceItem(group, element);
        meaning = CSR::GetCodeMeaning(scheme, value, TextOf(code, 0x0008, 0x0103));
    }
    return meaning.empty() ? value : meaning;
}

// "CT Image Storage 1.2.3" for a Referenced SOP Sequence item.
std::string ReferenceForDisplay(const CDicomItem* node)
{
    const CDicomItem* reference = node->GetSequenceItem(0x0008, 0x1199);
    if (!reference)
        return {};
    std::string sopClass = TextOf(reference, 0x0008, 0x1150);
    std::string instance = TextOf(reference, 0x0008, 0x1155);
    if (const UidEntry* known = FindUid(sopClass))
        sopClass = known->name();
    if (sopClass.empty())
        return instance;
    return instance.empty() ? sopClass : sopClass + " " + instance;
}

}  // namespace

CSR::~CSR()
{
    Free();
}

void CSR::Free()
{
    m_pRoot.reset();
    m_pHeader = nullptr;
    m_pData = nullptr;
}

bool CSR::Init(const std::string& sopClassUID)
{
    Free();
    m_pRoot = std::make_shared<CDicomItem>(u"Object");
    m_pHeader = CDicomItem::CreateMetaHeader(Utf8ToUtf16(sopClassUID), CDicomItem::GetUID(), u"1.2.840.10008.1.2");
    if (!m_pHeader)
        return false;
    m_pRoot->AddItem(m_pHeader);
    m_pData = new CDicomItem(u"Data");
    m_pRoot->AddItem(m_pData);
    return true;
}

bool CSR::Load(const std::u16string& path, bool flag)
{
    Free();
    auto root = std::make_shared<CDicomItem>(u"Object");
    bool loaded = root->LoadObject(path, flag);
    m_LastError = root->GetLastError();
    if (!loaded)
        return false;
    m_pRoot = root;
    m_pHeader = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Header")));
    m_pData = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
    return true;
}

bool CSR::Load(const unsigned char* bytes, int count)
{
    Free();
    auto root = std::make_shared<CDicomItem>(u"Object");
    bool loaded = root->LoadObject(bytes, count);
    m_LastError = root->GetLastError();
    if (!loaded)
        return false;
    m_pRoot = root;
    m_pHeader = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Header")));
    m_pData = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
    return true;
}

CSR* CSR::FromDicomItem(CDicomItem* root)
{
    if (!root)
        return nullptr;
    auto* document = new CSR;
    document->m_pRoot.reset(root);
    document->m_pHeader = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Header")));
    document->m_pData = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Data")));
    return document;
}

void CSR::FillImageList(std::vector<std::u16string>& list) const
{
    for (const CDicomItem* item : GetChildNodes(m_pData)) {
        const CDicomItem* reference = item->GetSequenceItem(0x0008, 0x1199);
        if (TextOf(item, 0x0040, 0xA040) == "IMAGE" && reference)
            list.insert(list.begin(), Utf8ToUtf16(TextOf(reference, 0x0008, 0x1155)));
    }
}

// --- navigation

std::vector<CDicomItem*> CSR::GetChildNodes(const CDicomItem* node)
{
    return ItemsOf(ContentSequence(node));
}

CDicomItem* CSR::GetNode(const CDicomItem* node, int index)
{
    const CDicomItem* sequence = ContentSequence(node);
    return sequence && index >= 0 ? sequence->GetTagItem(0xFFFE, 0xE000, index) : nullptr;
}

CDicomItem* CSR::GetNode(const CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                         int index)
{
    for (CDicomItem* item : GetChildNodes(node))
        if (ConceptIs(item, conceptValue, conceptScheme, true) && index-- == 0)
            return item;
    return nullptr;
}

CDicomItem* CSR::SearchNode(const CDicomItem* sequence, const std::string& conceptValue,
                            const std::string& conceptScheme)
{
    for (CDicomItem* item : ItemsOf(sequence))
        if (ConceptIs(item, conceptValue, conceptScheme, false))
            return item;
    return nullptr;
}

// --- codes

bool CSR::GetCodeData(const CDicomItem* node, int group, int element, std::string& codeValue, std::string& scheme,
                      std::string& meaning)
{
    codeValue.clear();
    scheme.clear();
    const CDicomItem* code = node ? node->GetSequenceItem(group, element) : nullptr;
    if (!code)
        return false;
    codeValue = TextOf(code, 0x0008, 0x0100);
    scheme = TextOf(code, 0x0008, 0x0102);
    meaning = TextOf(code, 0x0008, 0x0104);
    return true;
}

bool CSR::GetConceptNameCodeData(const CDicomItem* node, std::string& codeValue, std::string& scheme)
{
    std::string meaning;
    return GetCodeData(node, 0x0040, 0xA043, codeValue, scheme, meaning);
}

bool CSR::GetConceptNameCodeMeaning(const CDicomItem* node, std::string& meaning)
{
    std::string codeValue, scheme;
    return GetCodeData(node, 0x0040, 0xA043, codeValue, scheme, meaning);
}

bool CSR::GetConceptCodeData(const CDicomItem* node, std::string& codeValue, std::string& scheme)
{
    std::string meaning;
    return GetCodeData(node, 0x0040, 0xA168, codeValue, scheme, meaning);
}

std::u16string CSR::GetConfigPath()
{
    return CAppPath::GetAppPathInstance().GetPath(u"config");
}

std::string CSR::GetCodeMeaning(const std::string& designator, const std::string& value, const std::string& version)
{
    if (g_dictionary.IsNotLoaded()) {
        std::u16string folder = GetConfigPath();
        // Without a configuration folder there is no dictionary: the working
        // directory is no place to look for one.
        if (folder.empty()) {
            g_dictionary.m_nState = 2;
            return {};
        }
        if (!g_dictionary.Load(folder + u"srcode.xml"))
            return {};
    }
    return g_dictionary.GetCodeMeaning(designator, value, version);
}

// --- values

bool CSR::GetNodeData(const CDicomItem* node, std::string& text, bool formatted)
{
    if (!node)
        return false;
    std::string type = TextOf(node, 0x0040, 0xA040);
    if (type == "PNAME") {
        std::string name;
        if (!ReadText(node, 0x0040, 0xA123, name))
            return false;
        size_t caret = name.find('^');
        if (formatted && caret != std::string::npos) {
            size_t next = name.find('^', caret + 1);
            name = name.substr(0, caret) + " " +
                   name.substr(caret + 1, next == std::string::npos ? std::string::npos : next - caret - 1);
        }
        text = name;
        return true;
    }
    if (type == "TEXT")
        return ReadText(node, 0x0040, 0xA160, text);
    if (type == "DATE") {
        std::string date;
        if (!ReadText(node, 0x0040, 0xA121, date))
            return false;
        long number = 0;
        if (std::sscanf(date.c_str(), "%ld", &number) != 1)
            return false;
        std::u16string display;
        CDateTimeTools::Long2DateEx(number, display);
        if (display.empty())
            return false;
        text = Utf16ToUtf8(display);
        return true;
    }
    if (type == "TIME") {
        std::string time;
        if (!ReadText(node, 0x0040, 0xA122, time))
            return false;
        text = time.substr(0, 2) + ":" + (time.size() > 2 ? time.substr(2, 2) : std::string());
        return true;
    }
    if (type == "CODE") {
        std::string codeValue, scheme, meaning;
        if (!GetCodeData(node, 0x0040, 0xA168, codeValue, scheme, meaning))
            return false;
        text = formatted ? meaning : codeValue;
        return true;
    }
    if (type == "NUM") {
        const CDicomItem* measured = node->GetSequenceItem(0x0040, 0xA300);
        return measured && ReadText(measured, 0x0040, 0xA30A, text);
    }
    return false;
}

bool CSR::GetNodeData(const CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                      std::string& text, int index)
{
    text.clear();
    const CDicomItem* child = GetNode(node, conceptValue, conceptScheme, index);
    return child && GetNodeData(child, text, false);
}

bool CSR::GetNodeCodeData(const CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                          std::string& codeValue, std::string& scheme)
{
    codeValue.clear();
    scheme.clear();
    const CDicomItem* child = GetNode(node, conceptValue, conceptScheme, 0);
    return child && GetConceptCodeData(child, codeValue, scheme);
}

bool CSR::GetNodeCompositeData(const CDicomItem* node, const std::string& conceptValue,
                               const std::string& conceptScheme, std::string& sopClassUID,
                               std::string& sopInstanceUID)
{
    sopClassUID.clear();
    sopInstanceUID.clear();
    const CDicomItem* child = GetNode(node, conceptValue, conceptScheme, 0);
    const CDicomItem* reference = child ? child->GetSequenceItem(0x0008, 0x1199) : nullptr;
    if (!reference)
        return false;
    sopClassUID = TextOf(reference, 0x0008, 0x1150);
    sopInstanceUID = TextOf(reference, 0x0008, 0x1155);
    return true;
}

bool CSR::ReplaceNode(CDicomItem* node, const std::string& conceptValue, const std::string& conceptScheme,
                      const std::string& text)
{
    if (!node)
        return false;
    CDicomItem* match = SearchNode(ContentSequence(node), conceptValue, conceptScheme);
    return match && match->ReplaceTag(0x0040, 0xA160, Utf8ToUtf16(text), std::u16string()) != nullptr;
}

bool CSR::GetNodeDisplayText(const CDicomItem* node, std::string& text)
{
    if (!node)
        return false;
    // A by-reference relationship (PS3.3 C.17.3.2.5) points at another item
    // of the tree by its position: "1.2.3".
    if (const CDicomItem* reference = node->GetTagItem(0x0040, 0xDB73)) {
        std::string path;
        const unsigned char* bytes = reference->GetData();
        for (int i = 0; bytes && i + 4 <= reference->GetDataSize(); i += 4) {
            uint32_t number = bytes[i] | (bytes[i + 1] << 8) | (bytes[i + 2] << 16) | (uint32_t(bytes[i + 3]) << 24);
            path += (path.empty() ? "" : ".") + std::to_string(number);
        }
        text = "-> " + path;
        return true;
    }
    std::string type = TextOf(node, 0x0040, 0xA040);
    std::string value;
    if (type == "CODE") {
        value = CodeForDisplay(node, 0x0040, 0xA168);
    } else if (type == "NUM") {
        const CDicomItem* measured = node->GetSequenceItem(0x0040, 0xA300);
        if (measured) {
            value = TextOf(measured, 0x0040, 0xA30A);
            std::string unit = CodeForDisplay(measured, 0x0040, 0x08EA);
            if (!unit.empty())
                value += (value.empty() ? "" : " ") + unit;
        } else {
            // PS3.3 C.18.1: no measured value; the qualifier says why.
            value = CodeForDisplay(node, 0x0040, 0xA301);
        }
    } else if (type == "DATE" || type == "TIME" || type == "PNAME" || type == "TEXT") {
        if (!GetNodeData(node, value, true) && type == "DATE")
            value = TextOf(node, 0x0040, 0xA121);
    } else if (type == "DATETIME") {
        value = TextOf(node, 0x0040, 0xA120);
    } else if (type == "UIDREF") {
        value = TextOf(node, 0x0040, 0xA124);
    } else if (type == "IMAGE" || type == "COMPOSITE" || type == "WAVEFORM") {
        value = ReferenceForDisplay(node);
    } else if (type == "SCOORD" || type == "SCOORD3D") {
        value = TextOf(node, 0x0070, 0x0023);
    } else if (type == "TCOORD") {
        value = TextOf(node, 0x0040, 0xA130);
    } else {
        return false;
    }
    text = value;
    return true;
}
