// The code dictionary and the view label formatter.
#include "imageinfo/codedictionary.h"

#include <algorithm>

#include "platform/text.h"
#include "platform/viewabbreviation.h"
#include "platform/xmlitem.h"
#include "platform/xmlreader.h"

using namespace zeldicom;

namespace {

std::u16string ChildText(const CXmlItem* node, const std::u16string& name)
{
    const CXmlItem* child = node->GetChildItem(name);
    return child ? child->m_sValue : std::u16string();
}

std::u16string MeaningOf(const CXmlItem* code)
{
    for (const std::u16string& name : {CurrentLanguage(), std::u16string(u"en"), std::u16string(u"Meaning")}) {
        std::u16string text = ChildText(code, name);
        if (!text.empty())
            return text;
    }
    return {};
}

}  // namespace

std::string CCodeDictionary::CreateKey(const std::string& designator, const std::string& value,
                                       const std::string& version)
{
    return designator + " " + value + " " + version;
}

void CCodeDictionary::Free()
{
    clear();
    m_strPath.clear();
    m_nState = 0;
}

bool CCodeDictionary::Load(const std::u16string& path)
{
    if (path == m_strPath) {
        m_nState = 1;
        return true;
    }
    Free();
    m_strPath = path;
    m_nState = 2;
    std::unique_ptr<CXmlItem> root = CXmlFactory::ReadXmlDocumentFromFilePath(path);
    if (!root)
        return false;
    for (int s = 0; const CXmlItem* scheme = root->GetChildItem(u"Scheme", s); ++s) {
        std::string designator = Utf16ToUtf8(ChildText(scheme, u"Designator"));
        std::string version = Utf16ToUtf8(ChildText(scheme, u"Version"));
        for (int c = 0; const CXmlItem* code = scheme->GetChildItem(u"Code", c); ++c) {
            std::u16string meaning = MeaningOf(code);
            if (!meaning.empty())
                (*this)[Utf8ToUtf16(CreateKey(designator, Utf16ToUtf8(ChildText(code, u"Value")), version))] = meaning;
        }
    }
    m_nState = 1;
    return true;
}

std::string CCodeDictionary::GetCodeMeaning(const std::string& designator, const std::string& value,
                                            const std::string& version) const
{
    if (m_nState != 1)
        return {};
    auto found = find(Utf8ToUtf16(CreateKey(designator, value, version)));
    return found == end() ? std::string() : Utf16ToUtf8(found->second);
}

void CAbbreviationFormatter::GetAbbreviationSortedInAlphabeticOrder(const std::vector<CCodeSequenceMacro>& codes,
                                                                    std::vector<std::u16string>& out)
{
    for (const CCodeSequenceMacro& code : codes) {
        std::u16string abbreviation;
        if (!CAbbreviationReader::GetUniqueInstance()->GetAbbreviation(code.m_strCodingSchemeDesignator,
                                                                      code.m_strCodeValue, abbreviation))
            abbreviation = code.m_strCodeMeaning;
        out.insert(std::lower_bound(out.begin(), out.end(), abbreviation), abbreviation);
    }
}

std::u16string CAbbreviationFormatter::ManageParticularModifier(const std::u16string& laterality,
                                                                const std::vector<std::u16string>& modifiers)
{
    if (modifiers.size() != 1)
        return {};
    const std::u16string& modifier = modifiers.front();
    if (EqualsNoCase(modifier, u"TAN"))
        return u"TAN";
    if (EqualsNoCase(modifier, u"AT"))
        return laterality + u"AT";
    if (EqualsNoCase(modifier, u"CV"))
        return EqualsNoCase(laterality, u"B") ? u"CV" : laterality + u"CV";
    return {};
}

std::u16string CAbbreviationFormatter::GetViewAbbreviation(const std::u16string& laterality,
                                                           const CCodeSequenceMacro& view,
                                                           const std::vector<CCodeSequenceMacro>& modifiers)
{
    std::vector<std::u16string> sorted;
    GetAbbreviationSortedInAlphabeticOrder(modifiers, sorted);
    std::u16string particular = ManageParticularModifier(laterality, sorted);
    if (!particular.empty())
        return particular;
    std::u16string label;
    if (!CAbbreviationReader::GetUniqueInstance()->GetAbbreviation(view.m_strCodingSchemeDesignator,
                                                                  view.m_strCodeValue, label))
        label = view.m_strCodeMeaning;
    std::u16string prefix, suffix;
    for (const std::u16string& modifier : sorted)
        (EqualsNoCase(modifier, u"M") || EqualsNoCase(modifier, u"S") ? prefix : suffix) += modifier;
    return laterality + prefix + label + suffix;
}
