#pragma once
// The deflated transfer syntax (1.2.840.10008.1.2.1.99, PS3.5 A.5): the data
// set after the file meta information is one raw deflate stream (RFC 1951,
// no zlib header).
#include <cstddef>
#include <cstdint>
#include <string>

#include "dicomdata/dicomitem.h"

namespace zeldicom {

inline constexpr const char16_t* kDeflatedExplicitLittleEndian = u"1.2.840.10008.1.2.1.99";

// Inflates the stream into a buffer of malloc'd memory (the caller frees it).
// The output is bounded: it grows as needed up to limit bytes (a deflate
// stream cannot expand more than about 1032 times, so a longer output is a
// damaged or hostile stream). Null and a reason on failure.
unsigned char* InflateRaw(const unsigned char* bytes, size_t size, size_t limit, size_t& inflatedSize,
                          std::string& error);

// The output limit for a stream of the given size.
size_t InflateLimit(size_t compressedSize);

// A writer callback that deflates what it is given and hands the compressed
// bytes on to another writer. Finish() flushes the end of the stream and pads
// it to even length (PS3.5 A.5: a trailing zero byte after an odd stream).
class DeflateWriter {
public:
    DeflateWriter(DICOM_WRITER_PROC next, void* context);
    ~DeflateWriter();
    DeflateWriter(const DeflateWriter&) = delete;
    DeflateWriter& operator=(const DeflateWriter&) = delete;

    static uint32_t WriteProc(const void* bytes, uint32_t count, void* context);
    bool Finish();

private:
    bool Pump(const void* bytes, uint32_t count, int flush);
    struct State;
    State* m_state;
    DICOM_WRITER_PROC m_next;
    void* m_context;
    uint64_t m_produced = 0;
    bool m_failed = false;
};

}
