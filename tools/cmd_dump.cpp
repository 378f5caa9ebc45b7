// zeldicom dump [--json] FILE...: the element tree of each file as text, or
// its data set in the DICOM JSON Model. A file that does not load gets one
// error line with the reason; the other files are still dumped.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/dump_writers.h"

using namespace zeldicom;

namespace {
void PrintDumpUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: zeldicom dump [--json] FILE...\n"
                 "\n"
                 "  Prints the file meta information and the data set of each DICOM file,\n"
                 "  one line per element: tag, VR, value, then length and attribute name.\n"
                 "  --json   the data set in the DICOM JSON Model (PS3.18 Annex F), UTF-8;\n"
                 "           one JSON object per file.\n");
}
}

int RunDump(int argc, char** argv)
{
    bool json = false;
    std::vector<const char*> files;
    bool options = true;
    for (int i = 0; i < argc; ++i) {
        const char* arg = argv[i];
        if (options && std::strcmp(arg, "--") == 0) {
            options = false;
        } else if (options && (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0)) {
            PrintDumpUsage(stdout);
            return 0;
        } else if (options && std::strcmp(arg, "--json") == 0) {
            json = true;
        } else if (options && arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "zeldicom dump: unknown option '%s'\n", arg);
            PrintDumpUsage(stderr);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (files.empty()) {
        PrintDumpUsage(stderr);
        return 2;
    }

    DumpOutput out(stdout);
    int status = 0;
    for (size_t i = 0; i < files.size(); ++i) {
        CDicomItem root(u"Object");
        // A damaged file is shown up to where reading stopped (text only:
        // JSON is written whole or not at all).
        root.SetKeepPartialLoad(!json);
        root.SetKeepStoredRecordOrder(true);  // a dump shows the file as it is
        if (!root.LoadObject(Utf8ToUtf16(files[i]))) {
            if (!json && root.GetChildItem(std::u16string(u"Data"))) {
                if (files.size() > 1)
                    out.AppendFormat("%s# %s\n", i > 0 ? "\n" : "", files[i]);
                WriteTextDump(root, out);
            }
            // Keep stdout and stderr in order for a reader of both.
            out.Flush();
            std::fprintf(stderr, "zeldicom dump: %s: %s\n", files[i], root.GetLastError().GetText().c_str());
            status = 1;
            continue;
        }
        if (json) {
            const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
            if (data)
                WriteJsonDataSet(*data, out, 0);
            out.Append('\n');
        } else {
            if (files.size() > 1)
                out.AppendFormat("%s# %s\n", i > 0 ? "\n" : "", files[i]);
            WriteTextDump(root, out);
        }
    }
    if (!out.Flush()) {
        std::fprintf(stderr, "zeldicom dump: cannot write the output\n");
        return 1;
    }
    return status;
}
