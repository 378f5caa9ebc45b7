// UID generation, encapsulated frame extraction and the image type.
#include <cstring>
#include <ctime>

#include "dicomdata/bytecursor.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "platform/system.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
// The power of ten that keeps all but the highest digit of number (>= 10).
uint64_t DropHighestDigit(uint64_t number)
{
    uint64_t power = 1;
    while (number >= power * 10)
        power *= 10;
    return power;
}
}

std::u16string CDicomItem::GetUID()
{
    std::tm now {};
    int year = 0, month = 0, day = 0, hour = -1, minute = -1, second = -1;
    if (GetLocalTime(now)) {
        year = now.tm_year + 1900;
        month = now.tm_mon + 1;
        day = now.tm_mday;
        hour = now.tm_hour;
        minute = now.tm_min;
        second = now.tm_sec;
    }
    uint32_t ticket = CTicketGenerator::GetUniqueIDForSession() % 4294967295u;
    if (ticket == 0)
        ticket = CTicketGenerator::GetUniqueIDForSession() % 4294967295u;
    // PS3.5 9.1: digits and dots, at most 64 characters. With a long root the
    // machine component gives up its high digits first (it only separates
    // machines), then the ticket, so the time and the session ticket keep
    // successive UIDs apart.
    std::string root = WideToAscii(CDicomInfoStatics::s_sDicomRoot);
    uint64_t machine = GetMachineNumber() % 4294967295u;
    uint64_t sessionTicket = ticket;
    std::string uid;
    for (;;) {
        uid = FormatText("%s.%llu.%04d%02d%02d%02d%02d%02d.%llu", root.c_str(), static_cast<unsigned long long>(machine),
                         year, month, day, hour, minute, second, static_cast<unsigned long long>(sessionTicket));
        if (uid.size() <= 64)
            break;
        if (machine >= 10)
            machine %= DropHighestDigit(machine);
        else if (sessionTicket >= 10)
            sessionTicket %= DropHighestDigit(sessionTicket);
        else
            break;  // the root alone is too long; the host chose it
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
