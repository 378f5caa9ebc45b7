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
#include "tools/options.h"

using namespace zeldicom;

namespace {

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

// --config DIR: the configuration folder whose srcode.xml gives the meanings
// of codes that a document lacks.
void AddConfigOption(OptionReader& reader)
{
    reader.Add("--config", "DIR", "the folder whose srcode.xml gives the meanings of codes a document lacks",
               [](const std::string& folder) {
                   std::string fault = CheckFolder(folder);
                   if (fault.empty())
                       CAppPath::GetAppPathInstance().SetPath(u"config", Utf8ToUtf16(folder + "/"));
                   return fault;
               });
}

int RunRender(int argc, char** argv)
{
    OptionReader reader("sr render", "FILE",
                        "Prints the report: patient and document attributes, then the title and every content\n"
                        "item in document order, indented under its parent, with its relationship, concept name\n"
                        "and value. Dates are shown as YYYY-MM-DD, times as HH:MM:SS.");
    AddConfigOption(reader);
    reader.Example("zeldicom sr render report.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    CSR report;
    int status = 0;
    if (!LoadReport(report, "render", reader.Operands()[0].c_str(), status))
        return status;
    CSRTextContext text;
    SR_LAYOUT layout;
    layout.bIndent = true;
    layout.bRelationship = true;
    layout.bIsoDates = true;
    report.Draw(text, layout);
    std::string out = text.GetText();
    std::fwrite(out.data(), 1, out.size(), stdout);
    return FinishOutput("sr render") ? kExitDone : kExitFailed;
}

int RunResave(int argc, char** argv)
{
    OptionReader reader("sr resave", "IN OUT",
                        "Loads the report IN into the document tree and writes it to OUT with the report writer\n"
                        "(OUT may name IN).");
    AddConfigOption(reader);
    reader.Example("zeldicom sr resave report.dcm copy.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    CSR report;
    int status = 0;
    const char* out = reader.Operands()[1].c_str();
    if (!LoadReport(report, "resave", reader.Operands()[0].c_str(), status))
        return status;
    if (!report.Save(Utf8ToUtf16(out)))
        return Fail("resave", FormatText("%s: cannot write the report there (the file, if any, is unchanged)", out));
    return kExitDone;
}

}  // namespace

int RunSr(int argc, char** argv)
{
    return RunSubcommand("sr", {{"render", RunRender}, {"resave", RunResave}}, argc, argv);
}
