// Fuzz target: CDicomItem::GetCompressedFrameData on the pixel data element of a parsed data set, any frame number, a small output buffer.
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::FramesTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
