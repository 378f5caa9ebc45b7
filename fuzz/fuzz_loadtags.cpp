// Fuzz target: CDicomItem::LoadTags on a bounded run, explicit or implicit VR, with or without the group 0002 filter.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::LoadTagsTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
