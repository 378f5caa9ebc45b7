#pragma once
// The facts about each value representation that readers and writers need:
// one row per VR of PS3.5 Table 6.2-1, consulted by the parser, the encoder,
// the raw scans and writers and the CLI.
#include <array>
#include <cstdint>
#include <string_view>

namespace zeldicom {

struct VRFacts {
    char code[3];
    // PS3.5 6.2: the byte that pads an odd-length value (blank for text, zero
    // for UI and binary VRs).
    unsigned char padding;
    // PS3.5 7.1.2: explicit VR header with two reserved bytes and a 32-bit length.
    bool longForm;
    // The value is characters rather than numbers or bytes.
    bool text;
    // PS3.5 6.1.2.3: the value's characters follow Specific Character Set.
    bool characterSetSensitive;
    // Text that is one value even when it holds a backslash (LT, ST, UT, UR).
    bool singleValued;
    // One of the 26 VRs of the library's fixed dictionary (CTagTable's VR
    // list). CTagTable::IsString and GetTrailingByte answer from these two
    // columns: their contract predates UC/UR and pads AS, DA, DT and LT with
    // a zero byte, which the element tree keeps for stored values.
    bool inFixedDictionary;
    unsigned char fixedDictionaryPadding;
};

// clang-format off
inline constexpr VRFacts kVRFacts[] = {
    // code  pad  long   text   charset single fixed  fixedPad
    {"AE", 0x20, false, true,  false, false, true,  0x20},
    {"AS", 0x20, false, true,  false, false, true,  0x00},
    {"AT", 0x00, false, false, false, false, true,  0x00},
    {"CS", 0x20, false, true,  false, false, true,  0x20},
    {"DA", 0x20, false, true,  false, false, true,  0x00},
    {"DS", 0x20, false, true,  false, false, true,  0x20},
    {"DT", 0x20, false, true,  false, false, true,  0x00},
    {"FD", 0x00, false, false, false, false, true,  0x00},
    {"FL", 0x00, false, false, false, false, true,  0x00},
    {"IS", 0x20, false, true,  false, false, true,  0x20},
    {"LO", 0x20, false, true,  true,  false, true,  0x20},
    {"LT", 0x20, false, true,  true,  true,  true,  0x00},
    {"OB", 0x00, true,  false, false, false, true,  0x00},
    {"OD", 0x00, true,  false, false, false, false, 0x00},
    {"OF", 0x00, true,  false, false, false, false, 0x00},
    {"OL", 0x00, true,  false, false, false, false, 0x00},
    {"OV", 0x00, true,  false, false, false, false, 0x00},
    {"OW", 0x00, true,  false, false, false, true,  0x00},
    {"PN", 0x20, false, true,  true,  false, true,  0x20},
    {"SH", 0x20, false, true,  true,  false, true,  0x20},
    {"SL", 0x00, false, false, false, false, true,  0x00},
    {"SQ", 0x00, true,  false, false, false, true,  0x00},
    {"SS", 0x00, false, false, false, false, true,  0x00},
    {"ST", 0x20, false, true,  true,  true,  true,  0x20},
    {"SV", 0x00, true,  false, false, false, false, 0x00},
    {"TM", 0x20, false, true,  false, false, true,  0x20},
    {"UC", 0x20, true,  true,  true,  false, false, 0x00},
    {"UI", 0x00, false, true,  false, false, true,  0x00},
    {"UL", 0x00, false, false, false, false, true,  0x00},
    {"UN", 0x00, true,  false, false, false, true,  0x00},
    {"UR", 0x20, true,  true,  false, true,  false, 0x00},
    {"US", 0x00, false, false, false, false, true,  0x00},
    {"UT", 0x20, true,  true,  true,  true,  true,  0x20},
    {"UV", 0x00, true,  false, false, false, false, 0x00},
};
// clang-format on

// PS3.5 7.3: the width of the numbers that a value of the VR holds, which
// is what changes between the byte orders (AT is two 16-bit numbers). Text,
// OB and UN values are bytes and have none (0).
struct VRNumberWidth {
    char code[3];
    uint8_t width;
};
inline constexpr VRNumberWidth kVRNumberWidths[] = {
    {"AT", 2}, {"OW", 2}, {"SS", 2}, {"US", 2},
    {"FL", 4}, {"OF", 4}, {"OL", 4}, {"SL", 4}, {"UL", 4},
    {"FD", 8}, {"OD", 8}, {"OV", 8}, {"SV", 8}, {"UV", 8},
};
constexpr unsigned NumberWidthOf(std::string_view vr)
{
    for (const VRNumberWidth& row : kVRNumberWidths)
        if (vr.size() == 2 && vr[0] == row.code[0] && vr[1] == row.code[1])
            return row.width;
    return 0;
}

namespace vrtable_detail {
constexpr std::array<int8_t, 26 * 26> BuildIndex()
{
    std::array<int8_t, 26 * 26> index{};
    for (auto& slot : index)
        slot = -1;
    for (size_t i = 0; i < std::size(kVRFacts); ++i)
        index[static_cast<size_t>((kVRFacts[i].code[0] - 'A') * 26 + (kVRFacts[i].code[1] - 'A'))] =
            static_cast<int8_t>(i);
    return index;
}
inline constexpr std::array<int8_t, 26 * 26> kIndex = BuildIndex();
}

// The row of the VR spelled by the two bytes, or null when they are no VR.
constexpr const VRFacts* FindVRFacts(unsigned char first, unsigned char second)
{
    if (first < 'A' || first > 'Z' || second < 'A' || second > 'Z')
        return nullptr;
    int8_t i = vrtable_detail::kIndex[static_cast<size_t>((first - 'A') * 26 + (second - 'A'))];
    return i < 0 ? nullptr : &kVRFacts[i];
}
constexpr const VRFacts* FindVRFacts(std::string_view vr)
{
    return vr.size() == 2 ? FindVRFacts(static_cast<unsigned char>(vr[0]), static_cast<unsigned char>(vr[1]))
                          : nullptr;
}

constexpr bool IsVRCode(unsigned char first, unsigned char second) { return FindVRFacts(first, second) != nullptr; }
constexpr bool IsLongFormVR(unsigned char first, unsigned char second)
{
    const VRFacts* facts = FindVRFacts(first, second);
    return facts && facts->longForm;
}
constexpr bool IsLongFormVR(std::string_view vr)
{
    const VRFacts* facts = FindVRFacts(vr);
    return facts && facts->longForm;
}
// PS3.5 7.1.2: the short explicit VR header carries a 16-bit length and
// values have even lengths, so 65,534 bytes is the most it can describe.
inline constexpr uint64_t kMaxShortFormLength = 0xFFFE;
// The VR written in an explicit VR header for a value of the given length:
// a longer value of a short-form VR goes out as UN with a 32-bit length
// (PS3.5 6.2.2, the note on values that do not fit their VR's length
// field); readers give such a standard element back its dictionary VR.
constexpr std::string_view ExplicitHeaderVR(std::string_view vr, uint64_t length)
{
    return length > kMaxShortFormLength && !IsLongFormVR(vr) ? std::string_view("UN") : vr;
}
// Zero for a VR the table does not know.
constexpr unsigned char PaddingByteOf(std::string_view vr)
{
    const VRFacts* facts = FindVRFacts(vr);
    return facts ? facts->padding : 0x00;
}
constexpr bool IsTextVR(std::string_view vr)
{
    const VRFacts* facts = FindVRFacts(vr);
    return facts && facts->text;
}
constexpr bool IsCharacterSetSensitiveVR(std::string_view vr)
{
    const VRFacts* facts = FindVRFacts(vr);
    return facts && facts->characterSetSensitive;
}
constexpr bool IsSingleValuedTextVR(std::string_view vr)
{
    const VRFacts* facts = FindVRFacts(vr);
    return facts && facts->singleValued;
}

}
