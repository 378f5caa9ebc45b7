#include "dicomdata/deflate.h"

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zeldicom {

namespace {
constexpr size_t kAbsoluteLimit = static_cast<size_t>(INT32_MAX) - 1;
constexpr size_t kChunk = 64 * 1024;
}

size_t InflateLimit(size_t compressedSize)
{
    if (compressedSize > kAbsoluteLimit / 1032)
        return kAbsoluteLimit;
    return std::min(kAbsoluteLimit, compressedSize * 1032 + 1024);
}

unsigned char* InflateRaw(const unsigned char* bytes, size_t size, size_t limit, size_t& inflatedSize,
                          std::string& error)
{
    inflatedSize = 0;
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        error = "cannot start the deflate decoder";
        return nullptr;
    }
    // Start from a guess and grow: the output size is not known beforehand.
    size_t capacity = std::min(limit, std::max<size_t>(kChunk, size * 4));
    auto* out = static_cast<unsigned char*>(std::malloc(capacity ? capacity : 1));
    stream.next_in = const_cast<Bytef*>(bytes);
    size_t inputLeft = size;
    int status = Z_OK;
    while (out) {
        if (stream.avail_in == 0 && inputLeft > 0) {
            uInt take = static_cast<uInt>(std::min<size_t>(inputLeft, UINT32_MAX / 2));
            stream.avail_in = take;
            inputLeft -= take;
        }
        if (inflatedSize == capacity) {
            if (capacity >= limit) {
                error = "the deflated data set inflates beyond " + std::to_string(limit) + " bytes";
                break;
            }
            size_t grown = std::min(limit, capacity * 2);
            auto* bigger = static_cast<unsigned char*>(std::realloc(out, grown));
            if (!bigger) {
                error = "out of memory while inflating the data set";
                break;
            }
            out = bigger;
            capacity = grown;
        }
        size_t room = std::min<size_t>(capacity - inflatedSize, UINT32_MAX / 2);
        stream.next_out = out + inflatedSize;
        stream.avail_out = static_cast<uInt>(room);
        status = inflate(&stream, Z_NO_FLUSH);
        inflatedSize += room - stream.avail_out;
        if (status == Z_STREAM_END) {
            inflateEnd(&stream);
            return out;
        }
        if (status == Z_BUF_ERROR && stream.avail_in == 0 && inputLeft == 0) {
            error = "the deflated data set is cut short";
            break;
        }
        if (status != Z_OK && status != Z_BUF_ERROR) {
            error = std::string("the deflated data set is damaged (") + (stream.msg ? stream.msg : "zlib error") + ")";
            break;
        }
    }
    if (!out && error.empty())
        error = "out of memory while inflating the data set";
    inflateEnd(&stream);
    std::free(out);
    inflatedSize = 0;
    return nullptr;
}

struct DeflateWriter::State {
    z_stream stream{};
    bool started = false;
    unsigned char buffer[kChunk];
};

DeflateWriter::DeflateWriter(DICOM_WRITER_PROC next, void* context)
    : m_state(new State), m_next(next), m_context(context)
{
    m_state->started = deflateInit2(&m_state->stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8,
                                    Z_DEFAULT_STRATEGY) == Z_OK;
    m_failed = !m_state->started;
}

DeflateWriter::~DeflateWriter()
{
    if (m_state->started)
        deflateEnd(&m_state->stream);
    delete m_state;
}

bool DeflateWriter::Pump(const void* bytes, uint32_t count, int flush)
{
    z_stream& stream = m_state->stream;
    stream.next_in = static_cast<Bytef*>(const_cast<void*>(bytes));
    stream.avail_in = count;
    for (;;) {
        stream.next_out = m_state->buffer;
        stream.avail_out = kChunk;
        int status = deflate(&stream, flush);
        if (status == Z_STREAM_ERROR)
            return false;
        uint32_t produced = static_cast<uint32_t>(kChunk - stream.avail_out);
        if (produced > 0 && m_next(m_state->buffer, produced, m_context) != produced)
            return false;
        m_produced += produced;
        if (flush == Z_FINISH ? status == Z_STREAM_END : stream.avail_out != 0)
            return true;
    }
}

uint32_t DeflateWriter::WriteProc(const void* bytes, uint32_t count, void* context)
{
    auto* self = static_cast<DeflateWriter*>(context);
    if (self->m_failed || !self->Pump(bytes, count, Z_NO_FLUSH)) {
        self->m_failed = true;
        return kWriteFailed;
    }
    return count;
}

bool DeflateWriter::Finish()
{
    if (m_failed || !Pump(nullptr, 0, Z_FINISH))
        m_failed = true;
    // Values and data sets have even lengths in DICOM; readers that take
    // the stream in fragments (a P-DATA-TF PDV among them) refuse an odd one.
    static const unsigned char kPad = 0;
    if (!m_failed && m_produced % 2 != 0 && m_next(&kPad, 1, m_context) != 1)
        m_failed = true;
    return !m_failed;
}

}
