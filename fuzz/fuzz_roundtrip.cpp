// Fuzz target: Parse, recalculate and save into a CDynBuffer, then parse again: the same tree must come back.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::RoundTripTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
