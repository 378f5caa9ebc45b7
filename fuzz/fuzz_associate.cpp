// Fuzz target: the answer to an A-ASSOCIATE-RQ as received by the association (A-ASSOCIATE-AC/RJ reader).
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::AssociateAnswerTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
