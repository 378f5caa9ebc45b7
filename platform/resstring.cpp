#include "platform/resstring.h"

#include <algorithm>
#include <iterator>

namespace {
struct ResString {
    uint32_t id;
    const char16_t* text;
};

constexpr ResString kResStrings[] = {
#include "platform/resstrings_data.inc"
};

constexpr bool SortedById()
{
    for (size_t i = 1; i < std::size(kResStrings); ++i)
        if (kResStrings[i - 1].id >= kResStrings[i].id)
            return false;
    return true;
}
static_assert(SortedById(), "resource ids must ascend for the binary search");
}

std::u16string zeldicom::LoadResString(uint32_t id)
{
    auto found = std::lower_bound(std::begin(kResStrings), std::end(kResStrings), id,
                                  [](const ResString& row, uint32_t key) { return row.id < key; });
    if (found == std::end(kResStrings) || found->id != id)
        return {};
    return found->text;
}
