#pragma once
// Shared pieces of `zeldicom dump`: one buffered output stream and the readers that turn an element's
// value bytes into numbers, tags and previews without touching more bytes
// than they show.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "dicomdata/elementvisitor.h"
#include "dicomdata/vrtable.h"

// Collects output and hands it to the file in large blocks: no flush per line.
class DumpOutput {
public:
    explicit DumpOutput(FILE* file) : m_file(file) { m_buffer.reserve(kBlock + 4096); }
    ~DumpOutput() { Flush(); }
    DumpOutput(const DumpOutput&) = delete;
    DumpOutput& operator=(const DumpOutput&) = delete;

    void Append(std::string_view text)
    {
        m_buffer.append(text);
        if (m_buffer.size() >= kBlock)
            Flush();
    }
    void Append(char c)
    {
        m_buffer.push_back(c);
        if (m_buffer.size() >= kBlock)
            Flush();
    }
    void AppendFormat(const char* format, ...) __attribute__((format(printf, 2, 3)));
    void Indent(int levels) { m_buffer.append(static_cast<size_t>(levels) * 2, ' '); }
    // Writes what is buffered; false once any write has failed.
    bool Flush();

private:
    static constexpr size_t kBlock = 64 * 1024;
    FILE* m_file;
    std::string m_buffer;
    bool m_failed = false;
};

// One element node met during a walk of a data set node.
using DumpElement = zeldicom::ElementVisit;
using zeldicom::ForEachElement;
using zeldicom::ForEachItem;

// The children of an element's own gFFFE group: its items and delimiters.
const CDicomItem* ItemGroupOf(const CDicomItem& element);

// Whether the VR is two upper-case letters (damaged explicit headers carry anything).
inline bool IsPrintableVR(std::string_view vr)
{
    return vr.size() == 2 && vr[0] >= 'A' && vr[0] <= 'Z' && vr[1] >= 'A' && vr[1] <= 'Z';
}
// Bytes per value of the binary number VRs (US 2, UL 4, FD 8, ...), 0 for others.
int NumberWidth(std::string_view vr);
// "%04X" and "%d" without the printf machinery: a dump formats several per line.
void AppendHex4(std::string& out, int number);
void AppendDecimal(std::string& out, long number);
// Appends the index-th number of a binary number value (as FormatNumber).
void AppendNumber(std::string& out, std::string_view vr, const unsigned char* bytes, size_t index);
// The index-th number of a binary number value, as text (US/SS/UL/SL as
// integers, FL with 9 and FD with 17 significant digits, SV/UV 64-bit).
std::string FormatNumber(std::string_view vr, const unsigned char* bytes, size_t index);
// The index-th attribute tag of an AT value, as GGGGEEEE.
std::string FormatAttributeTag(const unsigned char* bytes, size_t index);
// Appends up to maxBytes bytes as "0a 1b ..." (hex pairs separated by blanks).
void AppendHexPreview(std::string& out, const unsigned char* bytes, size_t size, size_t maxBytes);
// RFC 4648 base64 of the bytes, appended to out.
void AppendBase64(DumpOutput& out, const unsigned char* bytes, size_t size);
