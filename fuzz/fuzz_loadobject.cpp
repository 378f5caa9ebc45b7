// Fuzz target: CDicomItem::LoadObject on a memory buffer: preamble, meta information, data set.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::LoadObjectTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
