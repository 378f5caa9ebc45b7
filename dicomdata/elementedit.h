#pragma once
// Setting any element of a data set from the text a user types, the way
// command-line editors take it: a keyword or tag names the element, the
// text is converted to the element's VR.
#include <cstdint>
#include <string>
#include <string_view>

class CDicomItem;

namespace zeldicom {

// An element named by its DICOM keyword ("PatientName", case-sensitive) or
// as gggg,eeee (hexadecimal, parentheses allowed). False for anything else.
bool ParseElementKey(std::string_view key, uint16_t& group, uint16_t& element);

// Replaces (or adds, in tag order) the element of the data set node from
// text. The VR is the existing element's, else the dictionary's (ambiguous
// VRs resolved by the data set). Text VRs take the text in the node's
// character set; multiple values are separated by backslashes for every
// VR: US, SS, UL, SL, FL, FD, SV, UV, OF, OD take numbers, AT takes
// gggg,eeee or ggggeeee, OB, UN take hexadecimal bytes and OW, OL, OV
// hexadecimal words. An empty text gives an empty value. False, with the
// element untouched and the reason in error, for a value that does not fit
// its VR, a sequence, a group length or an item, or a tag of unknown VR.
bool SetElementFromText(CDicomItem& dataSet, uint16_t group, uint16_t element, const std::u16string& text,
                        std::string& error);

}  // namespace zeldicom
