// zeldicom worklist [OPTIONS] [--modality M] [--date DATE|RANGE] [--station AE] [--patient NAME]
//                   [-k KEY=VALUE]... [--json] [--audit FILE] HOST PORT
// A modality worklist query with the library's full request template: one
// line per scheduled procedure step (or a JSON array of DICOM JSON
// objects) and the final status.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "dicomdata/elementedit.h"
#include "network/worklistsocket.h"
#include "platform/audit.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "tools/association_options.h"
#include "tools/commands.h"
#include "tools/dump_writers.h"
#include "tools/query_options.h"

using namespace zeldicom;

namespace {

// The scheduled procedure step item of the request.
CDicomItem* StepItem(CDicomItem* request)
{
    CDicomItem* sequence = request->GetTagItem(0x0040, 0x0100);
    return sequence ? sequence->GetTagItem(0xFFFE, 0xE000) : nullptr;
}

// A date option in DICOM's range form (a-b, a-, -b) becomes the typed
// form a..b; anything else (dd/mm/yyyy, yyyy-mm-dd, >d, m) is typed already.
std::u16string TypedDate(const std::string& text)
{
    const size_t dash = text.find('-');
    auto isDate = [](const std::string& part) {
        return part.size() == 8 && part.find_first_not_of("0123456789") == std::string::npos;
    };
    if (dash != std::string::npos && text.find('-', dash + 1) == std::string::npos) {
        std::string from = text.substr(0, dash), to = text.substr(dash + 1);
        if ((from.empty() || isDate(from)) && (to.empty() || isDate(to)) && !(from.empty() && to.empty()))
            return AsciiToWide(from + ".." + to);
    }
    return Utf8ToUtf16(text);
}

// -k PATH[=VALUE]: Sequence[n].Sequence[n].Key, missing sequences and the
// next item added; the value as typed, as findscu sends it. Empty on
// success, else the words of the fault.
std::string SetKey(CDicomItem* request, const std::string& argument)
{
    const size_t equals = argument.find('=');
    const std::string value = equals == std::string::npos ? "" : argument.substr(equals + 1);
    ElementPath path;
    std::string error;
    if (!ParseElementPath(argument.substr(0, equals), path, error))
        return error;
    CDicomItem* node = FindElementParent(*request, path, true, error);
    if (!node)
        return error;
    const ElementPath::Step& key = path.steps.back();
    const std::string where = FormatText("(%04X,%04X)", key.group, key.element);
    const std::string vr = EditedElementVR(*node, key.group, key.element);
    if (vr == "SQ") {
        if (!value.empty())
            return where + " is a sequence: only an empty value (return it) can be asked";
        if (!node->GetTagItem(key.group, key.element) && !node->InsertSequence(key.group, key.element))
            return where + " cannot be added";
        return "";
    }
    // As typed: text VRs take the characters, US its number.
    static const char* const kBinary[] = {"UL", "SL", "SS", "FL", "FD", "AT", "OB", "OW", "OF", "OD", "OL", "UN"};
    for (const char* binary : kBinary)
        if (!value.empty() && vr == binary)
            return where + " (VR " + vr + ") cannot be given a value here";
    if (!CWorklistSocket::AddValueToFindRequest(node, Utf8ToUtf16(value), key.group, key.element,
                                                vr == "US" ? u"US" : u"LO"))
        return "'" + value + "' is not a value of " + where + " (VR " + vr + ")";
    return "";
}

// The text of an element of node (or of its first scheduled step), decoded
// by the match's Specific Character Set, as UTF-8.
std::string Text(const CDicomItem* node, uint16_t group, uint16_t element)
{
    std::u16string text;
    if (!node || !node->GetTagValue(group, element, text))
        return "";
    while (!text.empty() && (text.back() == u' ' || text.back() == u'\0'))
        text.pop_back();
    return Utf16ToUtf8(text);
}

// One line per scheduled procedure step of a match (one line when it has none).
void WriteSteps(const CDicomItem& match, DumpOutput& out)
{
    const CDicomItem* sequence = match.GetTagItem(0x0040, 0x0100);
    int steps = sequence ? sequence->GetTagItemCount(0xFFFE, 0xE000) : 0;
    for (int i = 0; i < std::max(steps, 1); ++i) {
        const CDicomItem* step = steps > 0 ? sequence->GetTagItem(0xFFFE, 0xE000, i) : nullptr;
        out.AppendFormat("%s | ID %s | accession %s | %s | %s %s | %s | %s\n", Text(&match, 0x0010, 0x0010).c_str(),
                         Text(&match, 0x0010, 0x0020).c_str(), Text(&match, 0x0008, 0x0050).c_str(),
                         Text(&match, 0x0032, 0x1060).c_str(), Text(step, 0x0040, 0x0002).c_str(),
                         Text(step, 0x0040, 0x0003).c_str(), Text(step, 0x0008, 0x0060).c_str(),
                         Text(step, 0x0040, 0x0001).c_str());
    }
}

}

int RunWorklist(int argc, char** argv)
{
    WL_FIND record;
    if (!CWorklistSocket::CreateFindRequest(&record)) {
        std::fprintf(stderr, "zeldicom worklist: out of memory\n");
        return 1;
    }
    CDicomItem* request = record.pRequest.get();
    OptionReader reader("worklist", "HOST PORT",
                        "Queries a modality worklist SCP and prints one line per scheduled procedure step.");
    AssociationOptions options;
    bool json = false;
    std::string auditFile;
    AddAssociationOptions(reader, options);
    // Each convenience option is a key of the request template.
    struct StepKey {
        const char* names;
        const char* value;
        const char* help;
        bool inStep;
        uint16_t group, element;
        const char16_t* vr;
    };
    static const StepKey kStepKeys[] = {
        {"--modality", "M", "scheduled modality (CT, MR, ...)", true, 0x0008, 0x0060, u"CS"},
        {"--date", "DATE|RANGE",
         "scheduled start date: yyyymmdd, a-b, a-, -b, >d, <d, dd/mm/yyyy..dd/mm/yyyy, or m, w, y for this month, "
         "the seven days from today, this year",
         true, 0x0040, 0x0002, u"DA"},
        {"--station", "AE", "scheduled station AE title", true, 0x0040, 0x0001, u"AE"},
        {"--patient", "NAME", "patient's name prefix; spaces separate components (\"DOE JA\")", false, 0x0010, 0x0010,
         u"PN"},
    };
    for (const StepKey& key : kStepKeys)
        reader.Add(key.names, key.value, key.help, [request, &key](const std::string& value) {
            CDicomItem* node = key.inStep ? StepItem(request) : request;
            std::u16string typed = key.group == 0x0040 && key.element == 0x0002 ? TypedDate(value) : Utf8ToUtf16(value);
            bool set = CWorklistSocket::AddValueToFindRequest(node, typed, key.group, key.element, key.vr);
            // A date that the range reader does not take leaves an empty value.
            if (set && key.vr == std::u16string(u"DA"))
                set = node->GetTagItem(key.group, key.element)->GetDataSize() > 0;
            return set ? std::string() : "'" + value + "' is not a valid value";
        });
    reader.Add("--key -k", "KEY[=VALUE]",
               "any other key as typed: a keyword or gggg,eeee, Sequence[0].Key for a key of the sequence's first "
               "item; without =VALUE it is returned",
               [request](const std::string& value) { return SetKey(request, value); });
    reader.Flag("--json", "the matches as a JSON array of DICOM JSON objects", json);
    reader.Text("--audit", "FILE", "append the audit records of the query to FILE", auditFile);
    double cancelAfter = 0;
    reader.Number("--cancel", "N", "send C-CANCEL after N matches", 1, 1000000, cancelAfter, true);
    reader.Example("zeldicom worklist -aec WLMSCP --modality CT --date w localhost 11112");
    if (int status = ReadAssociationArguments(reader, options, argc, argv); status >= 0)
        return status;
    record.Set(options.host, options.port, options.called, options.calling);
    record.nCancelAfter = static_cast<int>(cancelAfter);
    record.nConnectTimeout = AssociationOptions::Milliseconds(options.connectTimeout);
    record.nAcseTimeout = AssociationOptions::Milliseconds(options.acseTimeout);
    record.nDimseTimeout = AssociationOptions::Milliseconds(options.dimseTimeout);
    if (!auditFile.empty())
        CAuditTrailManager::GetUniqueInstance().SetLogFile(auditFile);

    options.Verbose("Requesting association with %s at %s as %s; modality worklist C-FIND", options.called.c_str(),
                    options.Peer().c_str(), options.calling.c_str());
    CWorklistSocket::FindThreadProc(&record);
    options.Verbose("%zu matches received", record.aMatches.size());

    DumpOutput out(stdout);
    if (json)
        out.Append('[');
    int count = 0;
    for (const auto& match : record.aMatches) {
        if (json) {
            out.Append(++count > 1 ? ",\n" : "\n");
            WriteJsonDataSet(match->tree, out, 0);
        } else {
            WriteSteps(match->tree, out);
        }
    }
    if (json)
        out.Append(record.aMatches.empty() ? "]\n" : "\n]\n");
    if (!out.Flush() || !FinishOutput("worklist"))
        return 1;
    const size_t matches = record.aMatches.size();
    if (record.wFinalStatus == 0xFFFF)
        return reader.Failure(options.Peer() + ": " + record.sErrorText);
    std::string text;
    int good = 0, final = 1;
    CUserSocket::AnalysFindResponseStatus(record.wFinalStatus, text, good, final);
    if (!options.Quiet())
        std::fprintf(json ? stderr : stdout, "%zu match%s, final status 0x%04X: %s\n", matches,
                     matches == 1 ? "" : "es", record.wFinalStatus, text.c_str());
    if (record.wFinalStatus == 0x0000 && record.nError != 0)
        return reader.Failure(options.Peer() + ": " + record.sErrorText);
    return record.wFinalStatus == 0x0000 ? 0 : 1;
}
