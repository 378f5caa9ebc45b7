// Fuzz target: the protocol trace's PDU analyser and element dump.
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::TraceAnalyserTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
