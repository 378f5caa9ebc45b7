// UID generation, encapsulated frame extraction and the image type.
#include <sys/random.h>

#include <cstring>
#include <ctime>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
constexpr size_t kMaxUidLength = 64;  // PS3.5 9.1

// PS3.5 B.2: a UID under the root "2.25" made of a random (version 4) UUID
// read as one 128-bit decimal number.
std::string UuidDerivedUid()
{
    unsigned char bytes[16] = {};
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) {
        // No entropy source: time, machine and session ticket still make
        // the number unique for this machine.
        uint64_t high = static_cast<uint64_t>(std::time(nullptr)) << 32 | GetMachineNumber();
        uint64_t low = CTicketGenerator::GetUniqueIDForSession();
        std::memcpy(bytes, &high, 8);
        std::memcpy(bytes + 8, &low, 8);
    }
    bytes[6] = static_cast<unsigned char>((bytes[6] & 0x0F) | 0x40);
    bytes[8] = static_cast<unsigned char>((bytes[8] & 0x3F) | 0x80);
    unsigned __int128 number = 0;
    for (unsigned char byte : bytes)
        number = number << 8 | byte;
    std::string digits;
    do {
        digits.insert(digits.begin(), static_cast<char>('0' + static_cast<int>(number % 10)));
        number /= 10;
    } while (number != 0);
    return "2.25." + digits;
}

// The current local time as yyyymmddhhmmss; the seconds since 1970 when
// the local time cannot be had.
std::string TimeDigits()
{
    std::tm now {};
    if (GetLocalTime(now))
        return FormatText("%04d%02d%02d%02d%02d%02d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday, now.tm_hour,
                          now.tm_min, now.tm_sec);
    return FormatText("%lld", static_cast<long long>(std::time(nullptr)));
}
}

// Root, machine number, local time and session ticket, as components of
// their own when they fit in 64 characters. A longer root first drops the
// machine number, then makes one component of the time and the ticket with
// the ticket's low digits kept: successive calls draw successive tickets,
// so even the last 7 digits (all that a 55-character root leaves) keep ten
// million UIDs in a row apart. Without a root the UID is UUID-derived.
std::u16string CDicomItem::GetUID()
{
    std::string root = WideToAscii(CDicomInfoStatics::s_sDicomRoot);
    while (!root.empty() && root.back() == '.')
        root.pop_back();
    // The last form needs a dot, a leading 1 and 7 digits.
    if (root.empty() || root.size() + 9 > kMaxUidLength)
        return AsciiToWide(UuidDerivedUid());
    uint32_t ticket = CTicketGenerator::GetUniqueIDForSession() % 4294967295u;
    if (ticket == 0)
        ticket = CTicketGenerator::GetUniqueIDForSession() % 4294967295u;
    std::string time = TimeDigits();
    std::string uid = FormatText("%s.%u.%s.%u", root.c_str(), GetMachineNumber() % 4294967295u, time.c_str(), ticket);
    if (uid.size() > kMaxUidLength)
        uid = FormatText("%s.%s.%u", root.c_str(), time.c_str(), ticket);
    if (uid.size() > kMaxUidLength) {
        // A leading 1 keeps the component free of a leading zero.
        std::string digits = time + FormatText("%010u", ticket);
        size_t keep = kMaxUidLength - root.size() - 2;
        uid = root + ".1" + digits.substr(digits.size() - keep);
    }
    return AsciiToWide(uid);
}

uint32_t CDicomItem::GetCompressedFrameData(int frame, unsigned char* out, uint32_t capacity) const
{
    CDicomItem* table = GetTagItem(0xFFFE, 0xE000, 0);
    if (!table || frame < 0 || !m_pData)
        return 0;
    uint32_t start = 0, end = 0xFFFFFFFFu;
    // The fragment area is the element's own value: the offset table item
    // and the fragments behind it.
    size_t extent = m_nDataSize >= 0 ? static_cast<size_t>(m_nDataSize) : m_nParsedLength;
    ByteCursor value(m_pData, extent);
    size_t areaBegin;
    if (table->m_pData && table->m_nDataSize > 0) {
        uint32_t offsets = static_cast<uint32_t>(table->m_nDataSize) / 4;
        auto offsetAt = [&](uint32_t index) { return ByteCursor::loadUint32LE(table->m_pData + 4 * index); };
        if (static_cast<uint32_t>(frame) < offsets)
            start = offsetAt(static_cast<uint32_t>(frame));
        if (static_cast<uint32_t>(frame) + 1 < offsets)
            end = offsetAt(static_cast<uint32_t>(frame) + 1);
        // The table's bytes must lie inside this element's value.
        if (table->m_pData < m_pData || table->m_pData + table->m_nDataSize > m_pData + value.size())
            return 0;
        areaBegin = static_cast<size_t>(table->m_pData + table->m_nDataSize - m_pData);
    } else {
        if (frame != 0)
            return 0;
        areaBegin = 8;
    }
    if (!value.seek(areaBegin))
        return 0;
    ByteCursor area(value.here(), value.remaining());
    if (!area.seek(start))
        return 0;
    uint32_t written = 0;
    while (area.position() < end) {
        uint16_t group, element;
        uint32_t length;
        if (!area.readUint16LE(group) || !area.readUint16LE(element) || !area.readUint32LE(length))
            return 0;
        if (group != 0xFFFE)
            return 0;
        if (element == 0xE0DD)
            break;
        if (element != 0xE000 || length > capacity - written || !area.has(length))
            return 0;
        std::memcpy(out + written, area.here(), length);
        written += length;
        area.skip(length);
    }
    return written;
}

std::u16string CDicomItem::GetDicomImageType(const CDicomItem* node)
{
    std::u16string text;
    if (!node || !node->GetTagValue(0x0008, 0x0008, text))
        return {};
    size_t first = text.find(u'\\');
    if (first == std::u16string::npos || first == 0)
        return {};
    size_t second = text.find(u'\\', first + 1);
    if (second == std::u16string::npos)
        return {};
    size_t third = text.find(u'\\', second + 1);
    return text.substr(second + 1, third == std::u16string::npos ? std::u16string::npos : third - second - 1);
}
