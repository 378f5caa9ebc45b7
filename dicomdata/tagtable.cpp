#include "dicomdata/tagtable.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "dicomdata/tagheader.h"
#include "dicomdata/vrtable.h"
#include "platform/resstring.h"
#include "platform/text.h"

using namespace zeldicom;

const TAGINFO CTagTable::Table[CTagTable::kTagCount] = {
#include "dicomdata/tagtable_data.inc"
};

namespace {
// PS3.5 6.2: the VR codes in the order the explicit-VR list uses.
constexpr const char* kVRList[] = {"AE", "AS", "AT", "CS", "DA", "DS", "DT", "FL", "FD",
                                   "IS", "LO", "LT", "OB", "OW", "PN", "SH", "SL", "SQ",
                                   "SS", "ST", "TM", "UI", "UL", "US", "UT", "UN", "xx"};

bool Less(const TAGINFO& row, uint32_t key)
{
    return ((static_cast<uint32_t>(row.nGroup) << 16) | static_cast<uint32_t>(row.nElement)) < key;
}
}

int TAGINFO::GetExplicitVR(const std::string& vr)
{
    for (int i = 0; i < static_cast<int>(std::size(kVRList)); ++i)
        if (vr == kVRList[i])
            return i;
    return -1;
}

const TAGINFO* CTagTable::Find(int group, int element)
{
    if (group < 0 || group > 0xFFFF || element < 0 || element > 0xFFFF)
        return nullptr;
    uint32_t key = (static_cast<uint32_t>(group) << 16) | static_cast<uint32_t>(element);
    const TAGINFO* found = std::lower_bound(std::begin(Table), std::end(Table), key, Less);
    if (found == std::end(Table) || found->nGroup != group || found->nElement != element)
        return nullptr;
    return found;
}

const char* CTagTable::FindVR(int group, int element)
{
    const TAGINFO* entry = Find(group, element);
    return entry ? entry->szVR : "";
}

std::u16string CTagTable::GetTagVRString(int index) const
{
    return AsciiToWide(Table[index].szVR);
}

std::u16string CTagTable::GetTagDescString(int index) const
{
    return LoadResString(Table[index].nDescriptionId);
}

int CTagTable::GetVR(int group, int element, std::u16string& vr)
{
    const TAGINFO* entry = Find(group, element);
    if (!entry) {
        vr.clear();
        return 0;
    }
    vr = AsciiToWide(entry->szVR);
    return 1;
}

bool CTagTable::GetTagInfo(const TAG_HEADER& header, std::u16string& vr, std::u16string& description)
{
    return GetTagInfo(header.wGroup, header.wElement, vr, description);
}

bool CTagTable::GetTagInfo(int group, int element, std::u16string& vr, std::u16string& description)
{
    const TAGINFO* entry = Find(group, element);
    if (!entry) {
        vr.clear();
        description.clear();
        return false;
    }
    vr = AsciiToWide(entry->szVR);
    description = LoadResString(entry->nDescriptionId);
    return true;
}

bool CTagTable::IsString(const std::u16string& vr)
{
    // Case-sensitive: only the upper-case codes of the fixed VR list are text here.
    if (vr.size() != 2 || vr[0] > 0x7F || vr[1] > 0x7F)
        return false;
    const zeldicom::VRFacts* facts =
        zeldicom::FindVRFacts(static_cast<unsigned char>(vr[0]), static_cast<unsigned char>(vr[1]));
    return facts && facts->inFixedDictionary && facts->text;
}

unsigned char CTagTable::GetTrailingByte(const std::u16string& vr)
{
    // The VR is compared without regard to case.
    if (vr.size() != 2 || vr[0] > 0x7F || vr[1] > 0x7F)
        return 0x00;
    const zeldicom::VRFacts* facts = zeldicom::FindVRFacts(static_cast<unsigned char>(vr[0] & ~0x20),
                                                           static_cast<unsigned char>(vr[1] & ~0x20));
    return facts && facts->inFixedDictionary ? facts->fixedDictionaryPadding : 0x00;
}
