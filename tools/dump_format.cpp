// Shared pieces of `zeldicom dump`: buffered output and value readers.
#include "tools/dump_format.h"

#include <charconv>
#include <cstdarg>
#include <cstring>

#include "dicomdata/bytecursor.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"

using namespace zeldicom;

void DumpOutput::AppendFormat(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    m_buffer += FormatTextV(format, args);
    va_end(args);
    if (m_buffer.size() >= kBlock)
        Flush();
}

bool DumpOutput::Flush()
{
    if (!m_buffer.empty() && !m_failed) {
        if (std::fwrite(m_buffer.data(), 1, m_buffer.size(), m_file) != m_buffer.size())
            m_failed = true;
    }
    m_buffer.clear();
    if (!m_failed && std::fflush(m_file) != 0)
        m_failed = true;
    return !m_failed;
}

const CDicomItem* ItemGroupOf(const CDicomItem& element)
{
    return static_cast<const CDicomItem*>(element.GetChildItem(std::u16string(u"gFFFE")));
}

int NumberWidth(std::string_view vr)
{
    if (vr == "US" || vr == "SS")
        return 2;
    if (vr == "UL" || vr == "SL" || vr == "FL")
        return 4;
    if (vr == "FD" || vr == "SV" || vr == "UV")
        return 8;
    return 0;
}

void AppendHex4(std::string& out, int number)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    char digits[4] = {kDigits[(number >> 12) & 0xF], kDigits[(number >> 8) & 0xF], kDigits[(number >> 4) & 0xF],
                      kDigits[number & 0xF]};
    out.append(digits, 4);
}

void AppendDecimal(std::string& out, long number)
{
    char digits[24];
    auto end = std::to_chars(digits, digits + sizeof digits, number).ptr;
    out.append(digits, end);
}

void AppendNumber(std::string& out, std::string_view vr, const unsigned char* bytes, size_t index)
{
    const unsigned char* p = bytes + index * static_cast<size_t>(NumberWidth(vr));
    char digits[32];
    char* end = digits;
    if (vr == "US") {
        end = std::to_chars(digits, digits + sizeof digits, ByteCursor::loadUint16LE(p)).ptr;
    } else if (vr == "SS") {
        end = std::to_chars(digits, digits + sizeof digits, static_cast<int16_t>(ByteCursor::loadUint16LE(p))).ptr;
    } else if (vr == "UL") {
        end = std::to_chars(digits, digits + sizeof digits, ByteCursor::loadUint32LE(p)).ptr;
    } else if (vr == "SL") {
        end = std::to_chars(digits, digits + sizeof digits, static_cast<int32_t>(ByteCursor::loadUint32LE(p))).ptr;
    } else if (vr == "FL") {
        uint32_t bits = ByteCursor::loadUint32LE(p);
        float value;
        std::memcpy(&value, &bits, sizeof value);
        end = digits + std::snprintf(digits, sizeof digits, "%.9g", static_cast<double>(value));
    } else {
        uint64_t bits =
            ByteCursor::loadUint32LE(p) | (static_cast<uint64_t>(ByteCursor::loadUint32LE(p + 4)) << 32);
        if (vr == "FD") {
            double value;
            std::memcpy(&value, &bits, sizeof value);
            end = digits + std::snprintf(digits, sizeof digits, "%.17g", value);
        } else if (vr == "SV") {
            end = std::to_chars(digits, digits + sizeof digits, static_cast<int64_t>(bits)).ptr;
        } else {
            end = std::to_chars(digits, digits + sizeof digits, bits).ptr;
        }
    }
    out.append(digits, end);
}

std::string FormatNumber(std::string_view vr, const unsigned char* bytes, size_t index)
{
    std::string text;
    AppendNumber(text, vr, bytes, index);
    return text;
}

std::string FormatAttributeTag(const unsigned char* bytes, size_t index)
{
    const unsigned char* p = bytes + index * 4;
    std::string text;
    AppendHex4(text, ByteCursor::loadUint16LE(p));
    AppendHex4(text, ByteCursor::loadUint16LE(p + 2));
    return text;
}

void AppendHexPreview(std::string& out, const unsigned char* bytes, size_t size, size_t maxBytes)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    size_t shown = size < maxBytes ? size : maxBytes;
    for (size_t i = 0; i < shown; ++i) {
        if (i > 0)
            out.push_back(' ');
        out.push_back(kDigits[bytes[i] >> 4]);
        out.push_back(kDigits[bytes[i] & 0x0F]);
    }
}

namespace {
constexpr char kBase64Alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// The two base64 characters of every 12-bit value: three input bytes are two lookups.
struct Base64Pairs {
    char pairs[4096][2];
    constexpr Base64Pairs() : pairs()
    {
        for (int i = 0; i < 4096; ++i) {
            pairs[i][0] = kBase64Alphabet[i >> 6];
            pairs[i][1] = kBase64Alphabet[i & 63];
        }
    }
};
constexpr Base64Pairs kBase64Pairs;
}

void AppendBase64(DumpOutput& out, const unsigned char* bytes, size_t size)
{
    // Encoded a block at a time: one append per 4 KiB instead of one per 4 characters.
    char block[4096];
    size_t i = 0;
    while (size - i >= 3) {
        size_t triples = (size - i) / 3;
        if (triples > sizeof block / 4)
            triples = sizeof block / 4;
        char* at = block;
        for (size_t t = 0; t < triples; ++t, i += 3, at += 4) {
            uint32_t n = (static_cast<uint32_t>(bytes[i]) << 16) | (static_cast<uint32_t>(bytes[i + 1]) << 8) |
                         bytes[i + 2];
            std::memcpy(at, kBase64Pairs.pairs[n >> 12], 2);
            std::memcpy(at + 2, kBase64Pairs.pairs[n & 0xFFF], 2);
        }
        out.Append(std::string_view(block, triples * 4));
    }
    size_t rest = size - i;
    if (rest == 0)
        return;
    uint32_t n = static_cast<uint32_t>(bytes[i]) << 16;
    if (rest == 2)
        n |= static_cast<uint32_t>(bytes[i + 1]) << 8;
    block[0] = kBase64Alphabet[(n >> 18) & 63];
    block[1] = kBase64Alphabet[(n >> 12) & 63];
    block[2] = rest == 2 ? kBase64Alphabet[(n >> 6) & 63] : '=';
    block[3] = '=';
    out.Append(std::string_view(block, 4));
}
