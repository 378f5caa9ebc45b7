// Fuzz target: the PDU codec's writers against its readers (read, write, read, write: same fields, same bytes).
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::PduRoundTripTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
