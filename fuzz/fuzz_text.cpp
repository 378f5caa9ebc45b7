// Fuzz target: text conversion of stored bytes under every character-set
// label (CDicomItem::TranslateTagValueFromDicomToUnicode and back, and the
// element's own text accessors).
#include <cstdlib>

#include "targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (zelfuzz::TextTarget(data, size) != zelfuzz::kOk)
        std::abort();
    return 0;
}
