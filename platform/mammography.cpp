// The mammography classification (see mammography.h for the rule).
#include "platform/mammography.h"

#include "platform/text.h"

using namespace zeldicom;

CMammoIHE* CMammoIHE::GetUniqueInstance()
{
    static CMammoIHE instance;
    return &instance;
}

bool CMammoIHE::IsMammo(const std::u16string& modality, const std::u16string& bodyPart) const
{
    std::u16string m = Trim(modality);
    if (EqualsNoCase(m, u"MG"))
        return true;
    bool projection = EqualsNoCase(m, u"CR") || EqualsNoCase(m, u"DX") || EqualsNoCase(m, u"DR") ||
                      EqualsNoCase(m, u"RG");
    return projection && EqualsNoCase(Trim(bodyPart), u"BREAST");
}
