// The trace file and its lines, and the block counts of the transport.
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "platform/apppath.h"
#include "platform/resstring.h"
#include "platform/system.h"
#include "platform/text.h"
#include "trace/dicomtrace.h"

using namespace zeldicom;

int CDicomTraceSettings::g_nTraceLevel = 0;

namespace {
CDicomTraceSettings::TraceSink s_traceSink = nullptr;
void* s_traceSinkContext = nullptr;
bool s_traceFileToo = true;
}  // namespace

void CDicomTraceSettings::SetTraceSink(TraceSink sink, void* context, bool keepFile)
{
    s_traceSink = sink;
    s_traceSinkContext = context;
    s_traceFileToo = keepFile || !sink;
}

std::u16string CDicomTraceSettings::GetTraceFile()
{
    std::u16string folder = CAppPath::GetAppPathInstance().GetPath(u"temp");
    std::tm now{};
    if (folder.empty() || !GetLocalTime(now))
        return u"";
    int date = (now.tm_year + 1900) * 10000 + (now.tm_mon + 1) * 100 + now.tm_mday;
    return folder + FormatWide("DICOM%d.LOG", date);
}

void DicomTraceStr(const std::string& text)
{
    int level = CDicomTraceSettings::g_nTraceLevel;
    if (level == 0)
        return;
    std::tm now{};
    GetLocalTime(now);
    std::string line = FormatText("[%d/%02d/%02d-%02d:%02d:%02d] %s", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday,
                                  now.tm_hour, now.tm_min, now.tm_sec, text.c_str());
    if (s_traceSink && level != 3)
        s_traceSink(line, s_traceSinkContext);
    if (!s_traceFileToo)
        return;
    std::string path = Utf16ToUtf8(CDicomTraceSettings::GetTraceFile());
    if (path.empty())
        return;
    // Opened, appended to and closed for every line, so that lines of
    // several associations and processes interleave whole and are on disk
    // when the call returns.
    FILE* file = std::fopen(path.c_str(), "a");
    if (!file)
        return;
    if (level != 3) {
        std::fprintf(file, "%s\n", line.c_str());
        std::fflush(file);
    }
    std::fclose(file);
}

int DicomTraceFormat(const char* format, ...)
{
    if (CDicomTraceSettings::g_nTraceLevel == 0 || !format)
        return 0;
    va_list args;
    va_start(args, format);
    std::string line = FormatTextV(format, args);
    va_end(args);
    DicomTraceStr(line);
    return static_cast<int>(line.size());
}

int DicomTraceFormat(unsigned int resourceId, ...)
{
    if (CDicomTraceSettings::g_nTraceLevel == 0)
        return 0;
    std::string format = WideToAscii(LoadResString(resourceId));
    va_list args;
    va_start(args, resourceId);
    std::string line = FormatTextV(format.c_str(), args);
    va_end(args);
    DicomTraceStr(line);
    return static_cast<int>(line.size());
}

int DicomTraceSend(std::string name, const unsigned char* block, int size, int isBlock)
{
    if (CDicomTraceSettings::g_nTraceLevel == 0)
        return 0;
    if (isBlock == 0)
        return DicomTraceFormat("<%s> -> SENT: %d bytes", name.c_str(), size);
    int written = DicomTraceFormat("<%s> PREPARING BLOCK TO SEND: %d bytes", name.c_str(), size);
    return size <= 6 ? written : AnalyzeBlock(name, block, size);
}

int DicomTraceReceive(std::string name, const unsigned char* block, int size, int isBlock, int isStoring)
{
    if (CDicomTraceSettings::g_nTraceLevel == 0)
        return 0;
    if (isStoring != 0)
        return DicomTraceFormat("<%s> ** STORING DATA: %d bytes", name.c_str(), size);
    if (isBlock == 0)
        return DicomTraceFormat("<%s> <- RECEIVED: %d bytes", name.c_str(), size);
    int written = DicomTraceFormat("<%s> <- BLOCK RECEIVED: %d bytes", name.c_str(), size);
    return size <= 6 ? written : AnalyzeBlock(name, block, size);
}
