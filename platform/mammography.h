#pragma once
// Whether an object is a mammography image in the sense of the IHE
// mammography profile. Our rule: modality MG, or modality CR/DX/DR/RG with
// body part examined BREAST (both compared without regard to case and
// surrounding blanks). The callers rely on nothing but the answer.
#include <string>

class CMammoIHE {
public:
    static CMammoIHE* GetUniqueInstance();
    bool IsMammo(const std::u16string& modality, const std::u16string& bodyPart) const;
};
