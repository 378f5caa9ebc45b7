// Fuzz target: the storage server's acceptor, from the A-ASSOCIATE-RQ to the end of the association.
#include <cstdlib>

#include "network_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::AcceptorTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
