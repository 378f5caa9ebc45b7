// Fuzz target: LoadObject of an explicit VR big endian data set (its
// conversion to little endian, then the parse), and saving what loads.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::BigEndianTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
