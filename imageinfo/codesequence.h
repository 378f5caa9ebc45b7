#pragma once
// Coded entries (PS3.3 Code Sequence Macro: code value, coding scheme
// designator, code meaning) as the image record and the structured report
// classes carry them.
#include <string>

class CDicomItem;

class CCodeSequenceMacro {
public:
    CCodeSequenceMacro() = default;
    CCodeSequenceMacro(const std::u16string& designator, const std::u16string& value, const std::u16string& meaning)
        : m_strCodingSchemeDesignator(designator), m_strCodeValue(value), m_strCodeMeaning(meaning)
    {
    }
    CCodeSequenceMacro(const CCodeSequenceMacro&) = default;
    CCodeSequenceMacro& operator=(const CCodeSequenceMacro&) = default;
    virtual ~CCodeSequenceMacro() = default;

    // Copies (0008,0100), (0008,0102) and (0008,0104) of a code item; a
    // missing element leaves its field as it was.
    void FillCodeSequenceMacroFromCodeSequence(const CDicomItem* item);
    // Replaces or adds the three elements in the code item.
    void SetCodeSequenceMacro(CDicomItem* item) const;

    std::u16string m_strCodingSchemeDesignator;
    std::u16string m_strCodeValue;
    std::u16string m_strCodeMeaning;
};
