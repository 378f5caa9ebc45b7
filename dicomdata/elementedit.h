#pragma once
// Setting any element of a data set from the text a user types, the way
// command-line editors take it: a keyword or tag names the element, the
// text is converted to the element's VR.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

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

// The text checked against the form and length of its VR's values (PS3.5
// 6.2): a date YYYYMMDD, an AE title of at most 16 characters, a UID of
// digits and dots, ... Empty when it fits, else the reason. VRs without
// rules of form (binary ones, UN, SQ) always fit.
std::string CheckValueForm(std::string_view vr, const std::u16string& text);
// The VR that SetElementFromText would give the element in this data set
// (the existing element's, else the dictionary's); empty when unknown.
std::string EditedElementVR(const CDicomItem& dataSet, uint16_t group, uint16_t element);

// An element of a data set or of an item below it, as dcmodify -m names
// it: Keyword, gggg,eeee or (gggg,eeee), behind any number of
// Sequence[n]. steps (n from 0), as in
// ReferencedImageSequence[0].ReferencedSOPInstanceUID.
struct ElementPath {
    struct Step {
        uint16_t group = 0, element = 0;
        int item = -1;  // the item reached through this sequence; -1 on the last step
    };
    std::vector<Step> steps;
};
// False, with the reason in error, for a path of another shape.
bool ParseElementPath(std::string_view text, ElementPath& path, std::string& error);
// The data set node that holds the path's last element: the data set
// itself or an item. With create, a missing sequence is added and the item
// just behind the last one as well. Null, with the reason in error, when
// the path does not lead there.
CDicomItem* FindElementParent(CDicomItem& dataSet, const ElementPath& path, bool create, std::string& error);

}  // namespace zeldicom
