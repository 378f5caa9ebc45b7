// Coded entries read from and written to code items of an element tree.
#include "imageinfo/codesequence.h"

#include "dicomdata/dicomitem.h"

void CCodeSequenceMacro::FillCodeSequenceMacroFromCodeSequence(const CDicomItem* item)
{
    if (!item)
        return;
    // The item is a code sequence (its first item that holds each element
    // counts) or a code item itself.
    auto copy = [item](int element, std::u16string& field) {
        const CDicomItem* found = item->GetSequenceChildItemMandatory(0x0008, element, 0);
        if (!found)
            found = item->GetTagItem(0x0008, element);
        if (found)
            found->GetTagValue(field);
    };
    copy(0x0100, m_strCodeValue);
    copy(0x0102, m_strCodingSchemeDesignator);
    copy(0x0104, m_strCodeMeaning);
}

void CCodeSequenceMacro::SetCodeSequenceMacro(CDicomItem* item) const
{
    if (!item)
        return;
    item->ReplaceTag(0x0008, 0x0100, m_strCodeValue, u"SH");
    item->ReplaceTag(0x0008, 0x0102, m_strCodingSchemeDesignator, u"SH");
    item->ReplaceTag(0x0008, 0x0104, m_strCodeMeaning, u"LO");
}
