#pragma once
// The code dictionary (display meanings of codes by designator, value and
// version, read from "srcode.xml") and the view label formatter.
//
// Dictionary file: a root element holding "Scheme" elements; each has a
// "Designator", an optional "Version" and "Code" elements; each "Code" has a
// "Value" and its meaning per language as child elements named by the
// two-letter language code (<en>, <fr>, ...). The meaning shown is that of
// the current language (CurrentLanguage), else the English one, else the
// text of a language-neutral "Meaning" child.
#include <map>
#include <string>
#include <vector>

#include "imageinfo/codesequence.h"

class CCodeDictionary : public std::map<std::u16string, std::u16string> {
public:
    CCodeDictionary() = default;
    ~CCodeDictionary() = default;

    bool Load(const std::u16string& path);
    // The meaning (UTF-8) or empty text.
    std::string GetCodeMeaning(const std::string& designator, const std::string& value,
                               const std::string& version) const;
    static std::string CreateKey(const std::string& designator, const std::string& value, const std::string& version);
    bool IsLoaded() const { return m_nState == 1; }
    bool IsNotLoaded() const { return m_nState == 0; }
    void Free();

    int m_nState = 0;  // 0 not loaded, 2 load started or failed, 1 loaded
    std::u16string m_strPath;
};

class CAbbreviationFormatter {
public:
    // Laterality, then "M"/"S" modifier prefixes, the view, the other
    // modifiers (each group in ascending order); a single TAN, AT or CV
    // modifier stands for the whole label.
    static std::u16string GetViewAbbreviation(const std::u16string& laterality, const CCodeSequenceMacro& view,
                                              const std::vector<CCodeSequenceMacro>& modifiers);

private:
    CAbbreviationFormatter() = default;
    ~CAbbreviationFormatter() = default;
    static std::u16string ManageParticularModifier(const std::u16string& laterality,
                                                   const std::vector<std::u16string>& modifiers);
    static void GetAbbreviationSortedInAlphabeticOrder(const std::vector<CCodeSequenceMacro>& codes,
                                                       std::vector<std::u16string>& out);
};
