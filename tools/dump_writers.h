#pragma once
// The two output forms of `zeldicom dump`.
#include "tools/dump_format.h"

// The tree of an object root loaded with LoadObject: the file meta
// information ("Header") and the data set ("Data"), one line per element,
// indented by nesting, with items, delimiters and fragments shown; the
// attributes' keywords instead of their names when keywords is set.
void WriteTextDump(const CDicomItem& root, DumpOutput& out, bool keywords = false);

// A data set node alone (a query match, an event report), one line per element.
void WriteTextDataSet(const CDicomItem& dataSet, DumpOutput& out, int level);

// The data set node as a DICOM JSON Model object (PS3.18 F.2), UTF-8.
void WriteJsonDataSet(const CDicomItem& dataSet, DumpOutput& out, int level);

// A JSON string of UTF-8 text, quoted and escaped (RFC 8259 7).
void AppendJsonString(DumpOutput& out, std::string_view utf8);
