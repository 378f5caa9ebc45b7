#pragma once
// The two output forms of `zeldicom dump`.
#include "tools/dump_format.h"

// The tree of an object root loaded with LoadObject: the file meta
// information ("Header") and the data set ("Data"), one line per element,
// indented by nesting, with items, delimiters and fragments shown.
void WriteTextDump(const CDicomItem& root, DumpOutput& out);

// A data set node alone (a query match, an event report), one line per element.
void WriteTextDataSet(const CDicomItem& dataSet, DumpOutput& out, int level);

// The data set node as a DICOM JSON Model object (PS3.18 F.2), UTF-8.
void WriteJsonDataSet(const CDicomItem& dataSet, DumpOutput& out, int level);
