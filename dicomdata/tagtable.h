#pragma once
// The library's fixed data dictionary and the VR classifications beside it.
#include <cstdint>
#include <string>

struct TAG_HEADER;

// VR codes in the dictionary's numbering (note UT/UL/US at 22..24).
enum DICOM_VR_CODE {
    VR_AE, VR_AS, VR_AT, VR_CS, VR_DA, VR_DS, VR_DT, VR_FL, VR_FD, VR_IS, VR_LO, VR_LT, VR_OB, VR_OW,
    VR_PN, VR_SH, VR_SL, VR_SQ, VR_SS, VR_ST, VR_TM, VR_UI, VR_UT, VR_UL, VR_US, VR_UN, VR_xx
};

struct TAGINFO {
    int32_t nGroup;
    int32_t nElement;
    uint32_t nDescriptionId;
    int32_t nVR;
    char szVR[4];

    TAGINFO& operator=(const TAGINFO& other) = default;
    // Index of the VR in the VR list (AE .. UL=22, US=23, UT=24, UN, xx), or -1.
    static int GetExplicitVR(const std::string& vr);
};

class CTagTable {
public:
    static constexpr int kTagCount = 990;
    static const TAGINFO Table[kTagCount];

    CTagTable() = default;
    CTagTable& operator=(const CTagTable&) { return *this; }

    int GetTagCount() const { return kTagCount; }
    int GetTagGroup(int index) const { return Table[index].nGroup; }
    int GetTagField(int index) const { return Table[index].nElement; }
    int GetTagVR(int index) const { return Table[index].nVR; }
    std::u16string GetTagVRString(int index) const;
    std::u16string GetTagDescString(int index) const;

    // 1 and the VR when the tag is known; 0 and an empty VR otherwise.
    static int GetVR(int group, int element, std::u16string& vr);
    static bool GetTagInfo(const TAG_HEADER& header, std::u16string& vr, std::u16string& description);
    static bool GetTagInfo(int group, int element, std::u16string& vr, std::u16string& description);
    static bool IsString(const std::u16string& vr);
    static unsigned char GetTrailingByte(const std::u16string& vr);

    // The entry for the tag, or null. The lookups above are built on it.
    static const TAGINFO* Find(int group, int element);
    // The VR text of a known tag ("" when unknown), without allocation.
    static const char* FindVR(int group, int element);
};
