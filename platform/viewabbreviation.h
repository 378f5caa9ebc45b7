#pragma once
// Short labels of mammography view and view modifier codes (the labels of
// the IHE mammography profile), by coding scheme designator and code value.
// Our table covers the views of DICOM CID 4014 and the modifiers of CID 4015
// under the designators "SRT" and "SCT"; other codes have no abbreviation.
#include <string>

class CAbbreviationReader {
public:
    static CAbbreviationReader* GetUniqueInstance();
    bool GetAbbreviation(const std::u16string& designator, const std::u16string& value,
                         std::u16string& abbreviation) const;
};

// The language whose texts the library shows: the two-letter code of the
// LC_ALL, LC_MESSAGES or LANG environment setting (lower case), "en" when
// none is set or it is "C"/"POSIX".
namespace zeldicom {
std::u16string CurrentLanguage();
}  // namespace zeldicom
