#pragma once
// The protocol trace: a process-wide text log of what passes over the
// library's DICOM associations, one file per day (DICOMyyyymmdd.LOG in the
// application's temp folder), each line "[y/mm/dd-hh:mm:ss] text". PDUs
// and DIMSE data sets are decoded into readable lines. Every function checks
// the trace level first, so with tracing off a call costs one integer read.
//
// Levels: 0 off; 1 free-form lines, block counts, PDU types, abort codes and
// the command field of analysed data sets; 2 and above also PDU lengths, the
// full association PDUs and the element dump of data sets; 3 behaves as 2
// but only opens (creates) the file and writes nothing.
#include <cstdint>
#include <string>

#include "dicomdata/tagheader.h"

// The trace level and file, class-wide values of the socket classes
// (CDicomSocket derives from this).
class CDicomTraceSettings {
public:
    static int g_nTraceLevel;
    static void SetTrace(int level) { g_nTraceLevel = level; }
    static int Trace() { return g_nTraceLevel; }
    // A host that shows the trace as it happens (a console, a window)
    // installs a sink: every line is handed to it with its time stamp, and
    // written to the file as well only when keepFile is set.
    using TraceSink = void (*)(const std::string& line, void* context);
    static void SetTraceSink(TraceSink sink, void* context, bool keepFile);
    // The temp folder followed by "DICOM%d.LOG" with today's date as
    // yyyymmdd; empty when there is no temp folder.
    static std::u16string GetTraceFile();
};

// Writes one line (time stamp added).
void DicomTraceStr(const std::string& text);
// Formats, then writes; the count of characters formatted, 0 when tracing is off.
int DicomTraceFormat(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The same with the text of a string resource as the format.
int DicomTraceFormat(unsigned int resourceId, ...);

// Block counts of the transport, with the PDU analysed when isBlock is set.
int DicomTraceSend(std::string name, const unsigned char* block, int size, int isBlock);
int DicomTraceReceive(std::string name, const unsigned char* block, int size, int isBlock, int isStoring);

// PDU analysis: 0 when analysed, 1 when tracing is off or nothing could be read.
int AnalyzeBlock(std::string name, const unsigned char* pdu, int size);
int AnalyzePduHeader(std::string name, const unsigned char* pdu, int size);
// The A-ASSOCIATE-RQ analyser takes the body behind the 6-byte header; the
// others take the whole PDU. They return 1.
int AnalyzeBlockASSOCIATE_RQ(std::string name, const unsigned char* body, int size);
int AnalyzeBlockASSOCIATE_AC(std::string name, const unsigned char* pdu, int size);
int AnalyzeBlockASSOCIATE_RJ(std::string name, const unsigned char* pdu, int size);
int AnalyzeBlockRELEASE_RQ(std::string name, const unsigned char* pdu, int size);
int AnalyzeBlockRELEASE_RP(std::string name, const unsigned char* pdu, int size);
int AnalyzeBlockDATA_TF(std::string name, const unsigned char* pdu, int size);

// The element dump of a command or data set (little endian unless bigEndian).
void DicomTraceAnalyzeBlock(std::string name, const unsigned char* data, uint32_t size, int bigEndian);
// 1 when the block is not to be dumped as elements (it does not start with
// a known element, nor with a file preamble).
int BlockLooksPureData(const unsigned char* data, uint32_t size, int bigEndian);
// Words for a command-group value (command field, priority, data set type,
// status), else empty. value must hold 2 bytes or be null.
std::string GetMoreInfoTag(TAG_HEADER header, const unsigned char* value);
