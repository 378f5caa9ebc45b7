// Fuzz target: palette and modality LUT loaders (plain and segmented) and the overlay readers.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::LutOverlayTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
