// Fuzz target: the PDU codec (headers, items, sub-items, PDVs).
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::PduTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
