// Fuzz target: the raw scans of a buffer's start (HasDicomMetaHeader, GetMetaHeaderSize, GetFirstTagAfterMetaHeader, GetDicomTag, FindTag, CheckExplicitVR, ProcessMetaHeader).
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::MetaScanTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
