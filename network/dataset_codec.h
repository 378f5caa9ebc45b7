#pragma once
// Data-set elements in the transfer syntax of a presentation context
// (PS3.5 7.1, 7.3): element headers read and written in implicit VR little
// endian, explicit VR little endian and explicit VR big endian, values
// swapped between the byte orders by their VR, and whole data sets
// (sequences included) re-encoded from one of them into another: what a
// peer sent into explicit VR little endian for the element tree, a file
// into the syntax a peer accepted.
//
// Peer bytes: every length is checked against what remains of its
// container; a sequence of undefined length is walked once, inside the
// bytes of the value or item that holds it, and nesting stops at kMaxDepth.
#include <cstddef>
#include <cstdint>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"

class CDynBuffer;

namespace zeldicom::dataset {

struct Encoding {
    bool explicitVR = false;
    bool bigEndian = false;
};

// Sequences nested deeper than this are refused.
constexpr int kMaxDepth = 16;
constexpr uint32_t kUndefined = 0xFFFFFFFF;

struct ElementHeader {
    uint16_t group = 0, element = 0;
    char vr[3] = {0, 0, 0};  // as sent (explicit VR) or from the dictionary ("UN" when unknown)
    uint32_t length = 0;     // kUndefined for an undefined length
    size_t headerSize = 0;
};

// Reads the element header at the cursor and moves behind it. False (the
// cursor unmoved) when the header is cut short or its VR is no VR. Items
// and delimiters (group FFFE) have an 8-byte header without VR.
bool ReadHeader(ByteCursor& cursor, Encoding encoding, ElementHeader& out);

// Moves the cursor, which stands at the first byte of an undefined-length
// value, past its sequence delimiter; false when no delimiter closes it
// within the cursor's bytes or the items are malformed.
bool SkipUndefinedValue(ByteCursor& cursor, Encoding encoding, const ElementHeader& header, int depth);

// Bytes per number of a VR whose value is swapped between byte orders
// (AT, US, SS, OW: 2; UL, SL, FL, OF, OL: 4; FD, OD, SV, UV, OV: 8), else 0.
int SwapWidth(const char* vr);
// Reverses each number of the value in place (a trailing partial number is left).
void SwapValue(const char* vr, unsigned char* value, uint32_t length);

// Appends an element header in the encoding. A short-form VR whose value
// does not fit 16 bits is written as UN.
void WriteHeader(CDynBuffer& out, Encoding encoding, uint16_t group, uint16_t element, const char* vr,
                 uint32_t length);

// Writes a whole data set again in the encoding `to`, through the writer
// (bytes, count, context; count on success): values as they lie in bytes
// (swapped when the byte order changes), VRs from the dictionary for
// implicit VR, sequences and items with undefined lengths and delimiters,
// group lengths counted again. False when the data set is malformed or the
// writer failed; with no writer the data set is only checked.
bool Reencode(const unsigned char* bytes, size_t size, Encoding from, Encoding to, DICOM_WRITER_PROC writer,
              void* context);

// Re-encodes a whole data set as explicit VR little endian: values swapped
// to little endian, VRs from the dictionary for implicit VR, sequences and
// items written with undefined lengths and delimiters. False when the data
// set is malformed; out then holds the elements before the fault. Fewer
// than 8 trailing bytes are ignored.
bool ToExplicitLittleEndian(const unsigned char* bytes, size_t size, Encoding encoding, CDynBuffer& out);

}
