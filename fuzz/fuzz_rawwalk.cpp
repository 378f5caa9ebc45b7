// Fuzz target: the raw element walkers (DICOMINFO::ReadTags, ReadSequence, CalcSequenceSize, GetStringTagValue, LoadDicomData) over an implicit VR buffer.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::RawWalkTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
