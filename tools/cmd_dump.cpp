// zeldicom dump [--json | --ndjson] [--keywords] FILE...: the element tree
// of each file as text, or its data set in the DICOM JSON Model. A file that
// does not load gets one error line with the reason; the other files are
// still dumped.
#include <cstdio>
#include <string>

#include "dicomdata/dicomitem.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/dump_writers.h"
#include "tools/options.h"

using namespace zeldicom;

namespace {

// The data set as one line of JSON: the pretty form with its line breaks
// and indentation taken out (a JSON string never holds a raw line break).
void AppendJsonLine(const CDicomItem& data, DumpOutput& out)
{
    char* text = nullptr;
    size_t size = 0;
    FILE* memory = open_memstream(&text, &size);
    if (!memory)
        return;
    {
        DumpOutput pretty(memory);
        WriteJsonDataSet(data, pretty, 0);
    }
    std::fclose(memory);
    std::string_view json(text, size);
    for (size_t i = 0; i < json.size();) {
        size_t stop = json.find('\n', i);
        out.Append(json.substr(i, stop == std::string_view::npos ? std::string_view::npos : stop - i));
        if (stop == std::string_view::npos)
            break;
        i = json.find_first_not_of(' ', stop + 1);
        if (i == std::string_view::npos)
            break;
    }
    std::free(text);
}

}  // namespace

int RunDump(int argc, char** argv)
{
    OptionReader reader("dump", "FILE...",
                        "Prints the file meta information and the data set of each DICOM file, one line per\n"
                        "element: tag, VR, value, then length and attribute name.");
    bool json = false, ndjson = false, keywords = false;
    reader.Flag("--json", "the data set in the DICOM JSON Model (PS3.18 Annex F), UTF-8; with several files one "
                          "line per file: {\"file\": PATH, \"dataset\": {...}}",
                json);
    reader.Flag("--ndjson", "one such line per file, even for one file", ndjson);
    reader.Flag("--keywords", "the attribute's keyword (PatientName) instead of its name, as dcmdump shows it",
                keywords);
    reader.Example("zeldicom dump --keywords CT_small.dcm | grep PatientName");
    reader.Example("zeldicom dump --ndjson *.dcm | jq -r .file");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const std::vector<std::string>& files = reader.Operands();
    json = json || ndjson;
    ndjson = ndjson || (json && files.size() > 1);

    DumpOutput out(stdout);
    int status = kExitDone;
    for (size_t i = 0; i < files.size(); ++i) {
        const char* file = files[i].c_str();
        CDicomItem root(u"Object");
        // A damaged file is shown up to where reading stopped (text only:
        // JSON is written whole or not at all).
        root.SetKeepPartialLoad(!json);
        root.SetKeepStoredRecordOrder(true);  // a dump shows the file as it is
        if (!root.LoadObject(Utf8ToUtf16(file))) {
            if (!json && root.GetChildItem(std::u16string(u"Data"))) {
                if (files.size() > 1)
                    out.AppendFormat("%s# %s\n", i > 0 ? "\n" : "", file);
                WriteTextDump(root, out, keywords);
            }
            // Keep stdout and stderr in order for a reader of both.
            out.Flush();
            std::fprintf(stderr, "zeldicom dump: %s: %s\n", file, root.GetLastError().GetText().c_str());
            status = kExitFailed;
            continue;
        }
        if (json) {
            const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
            if (ndjson) {
                out.Append("{\"file\": ");
                AppendJsonString(out, files[i]);
                out.Append(", \"dataset\": ");
                if (data)
                    AppendJsonLine(*data, out);
                else
                    out.Append("{}");
                out.Append('}');
            } else if (data) {
                WriteJsonDataSet(*data, out, 0);
            }
            out.Append('\n');
        } else {
            if (files.size() > 1)
                out.AppendFormat("%s# %s\n", i > 0 ? "\n" : "", file);
            WriteTextDump(root, out, keywords);
        }
    }
    if (!out.Flush()) {
        std::fprintf(stderr, "zeldicom dump: cannot write the output\n");
        return kExitFailed;
    }
    return status;
}
