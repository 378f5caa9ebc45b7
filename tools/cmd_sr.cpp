// zeldicom sr render FILE | sr resave IN OUT: a structured report drawn as
// text through the library's layout, or loaded into the document tree and
// written again by the report writer.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "platform/apppath.h"
#include "platform/text.h"
#include "sr/sr.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {

void PrintSrUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: zeldicom sr render [--config DIR] FILE\n"
                 "       zeldicom sr resave [--config DIR] IN OUT\n"
                 "\n"
                 "  render  prints the report: patient and document attributes, then the\n"
                 "          title and every content item in document order, indented under\n"
                 "          its parent, with its relationship, concept name and value.\n"
                 "  resave  loads the report IN into the document tree and writes it to OUT\n"
                 "          with the report writer (OUT may name IN).\n"
                 "  --config DIR  the configuration folder whose srcode.xml gives the\n"
                 "          meanings of codes that a document lacks.\n");
}

int Fail(const char* action, const std::string& message)
{
    std::fprintf(stderr, "zeldicom sr %s: %s\n", action, message.c_str());
    return 1;
}

// Loads a file as a report: a DICOM object whose data set is the root
// content item (a Value Type or a Content Sequence).
bool LoadReport(CSR& report, const char* action, const char* path, int& status)
{
    if (!report.Load(Utf8ToUtf16(path))) {
        status = Fail(action, FormatText("%s: %s", path, report.GetLastError().GetText().c_str()));
        return false;
    }
    const CDicomItem* data = report.GetDataItem();
    if (!data || (!data->GetTagItem(0x0040, 0xA040) && !data->GetTagItem(0x0040, 0xA730))) {
        status = Fail(action, FormatText("%s: not a structured report (no Value Type or Content Sequence)", path));
        return false;
    }
    return true;
}

}  // namespace

int RunSr(int argc, char** argv)
{
    std::vector<const char*> arguments;
    for (int i = 0; i < argc; ++i) {
        const char* arg = argv[i];
        if (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0) {
            PrintSrUsage(stdout);
            return 0;
        }
        if (std::strcmp(arg, "--config") == 0) {
            if (i + 1 >= argc) {
                PrintSrUsage(stderr);
                return 2;
            }
            std::string folder = argv[++i];
            if (!folder.empty() && folder.back() != '/')
                folder += '/';
            CAppPath::GetAppPathInstance().SetPath(u"config", Utf8ToUtf16(folder));
        } else if (arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "zeldicom sr: unknown option '%s'\n", arg);
            return 2;
        } else {
            arguments.push_back(arg);
        }
    }
    if (arguments.size() == 2 && std::strcmp(arguments[0], "render") == 0) {
        CSR report;
        int status = 0;
        if (!LoadReport(report, "render", arguments[1], status))
            return status;
        CSRTextContext text;
        SR_LAYOUT layout;
        layout.bIndent = true;
        layout.bRelationship = true;
        report.Draw(text, layout);
        std::string out = text.GetText();
        std::fwrite(out.data(), 1, out.size(), stdout);
        return FinishOutput("sr render") ? 0 : 1;
    }
    if (arguments.size() == 3 && std::strcmp(arguments[0], "resave") == 0) {
        CSR report;
        int status = 0;
        if (!LoadReport(report, "resave", arguments[1], status))
            return status;
        if (!report.Save(Utf8ToUtf16(arguments[2])))
            return Fail("resave", FormatText("%s: cannot write the report there (the file, if any, is unchanged)",
                                             arguments[2]));
        return 0;
    }
    PrintSrUsage(stderr);
    return 2;
}
