#pragma once
// Explicit VR big endian data sets (PS3.5 A.3, a transfer syntax retired
// from the standard but still met in archives) rewritten, in place, as
// explicit VR little endian: every header's tag and length and every
// multi-byte binary value are reversed by their VR (PS3.5 7.3), text and
// byte values stay as they are. Headers keep their size and values their
// place, so a byte offset into the rewritten data set is the same offset
// into the original one; undefined lengths stay undefined.
//
// The bytes are untrusted: each length is compared with what remains of
// its container before it is used, nesting is limited, and a data set that
// cannot be walked is reported with the element where the walk stopped.
#include <cstddef>
#include <cstdint>

namespace zeldicom {

struct ByteOrderFault {
    size_t offset = 0;  // of the element's header, from the start of the data set
    uint16_t group = 0;
    uint16_t element = 0;
};

// Converts the data set of size bytes at bytes. False when it is malformed
// or truncated: fault then names the innermost element that could not be
// converted, and what stands before it is converted.
bool ConvertBigEndianDataSet(unsigned char* bytes, size_t size, ByteOrderFault& fault);

}  // namespace zeldicom
