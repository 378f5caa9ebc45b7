// Fuzz target: DICOMINFO::ReadInfo on a whole object: offsets and sizes in the record stay inside the input.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::ReadInfoTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
