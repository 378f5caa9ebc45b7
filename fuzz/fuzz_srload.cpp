// Fuzz target: a structured report loaded into the document tree from a file image, drawn and read.
#include <cstdlib>

#include "sr_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::SrLoadTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
