// Fuzz target: a DICOMDIR loaded from a buffer (records put in the order
// their links describe), walked by type and position, searched, extended
// and saved; the saved links must describe the hierarchy that was loaded.
#include <cstdlib>

#include "dicomdir_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::DicomDirTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
