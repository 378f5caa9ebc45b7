// Fuzz target: the command-set decoder (DecodeCommandSet, ReadDicomGroup).
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::CommandSetTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
