// zeldicom edit IN OUT [--set KEY=VALUE]... [--new-instance]: changes
// elements of a DICOM file, as dcmodify -m users expect, and can turn the
// object into a new instance (new SOP Instance UID, Image Type
// DERIVED\SECONDARY). OUT (or IN, edited in place) is replaced only by a
// complete file.
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "dicomdata/elementedit.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {

void PrintEditUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: zeldicom edit IN OUT [--set KEY=VALUE]... [--new-instance]\n"
                 "\n"
                 "  Writes IN to OUT with the asked changes; OUT may name IN.\n"
                 "  --set KEY=VALUE  sets the element KEY, a keyword (PatientName) or a tag\n"
                 "                   (gggg,eeee), to VALUE, adding it when absent. Multiple\n"
                 "                   values are separated by '\\'; numbers for binary VRs,\n"
                 "                   hexadecimal for OB/OW, gggg,eeee for AT. A new Specific\n"
                 "                   Character Set applies to the other values set (existing\n"
                 "                   values are not re-encoded). Setting SOP Class or Instance\n"
                 "                   UID updates the file meta information to match.\n"
                 "  --new-instance   a new SOP Instance UID (data set and meta information)\n"
                 "                   and Image Type DERIVED\\SECONDARY\n");
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "zeldicom edit: %s\n", message.c_str());
    return 1;
}

bool SameFile(const char* a, const char* b)
{
    struct stat first {}, second {};
    if (stat(a, &first) != 0 || stat(b, &second) != 0)
        return false;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

struct Assignment {
    std::string key;
    uint16_t group = 0, element = 0;
    std::u16string value;
};

CDicomItem* ChildNode(CDicomItem& root, const char16_t* name)
{
    return static_cast<CDicomItem*>(root.GetChildItem(std::u16string(name)));
}

// The meta information names the instance that the data set is (PS3.10 7.1).
bool MirrorIdentity(CDicomItem& header, const CDicomItem& data, uint16_t dataElement, uint16_t metaElement)
{
    std::u16string uid;
    if (!data.GetTagValue(0x0008, dataElement, uid))
        return true;
    return header.ReplaceTag(0x0002, metaElement, Trim(uid), std::u16string()) != nullptr;
}

}  // namespace

int RunEdit(int argc, char** argv)
{
    std::vector<Assignment> assignments;
    std::vector<const char*> files;
    bool newInstance = false, options = true;
    for (int i = 0; i < argc; ++i) {
        const char* arg = argv[i];
        if (options && std::strcmp(arg, "--") == 0) {
            options = false;
        } else if (options && (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0)) {
            PrintEditUsage(stdout);
            return 0;
        } else if (options && std::strcmp(arg, "--new-instance") == 0) {
            newInstance = true;
        } else if (options && std::strcmp(arg, "--set") == 0) {
            if (i + 1 >= argc) {
                std::fprintf(stderr, "zeldicom edit: --set needs KEY=VALUE\n");
                return 2;
            }
            std::string setting = argv[++i];
            size_t equals = setting.find('=');
            Assignment assignment;
            assignment.key = setting.substr(0, equals);
            if (equals == std::string::npos ||
                !ParseElementKey(assignment.key, assignment.group, assignment.element)) {
                std::fprintf(stderr, "zeldicom edit: '%s': KEY=VALUE with KEY a keyword or gggg,eeee\n",
                             setting.c_str());
                return 2;
            }
            assignment.value = Utf8ToUtf16(setting.substr(equals + 1));
            assignments.push_back(assignment);
        } else if (options && arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "zeldicom edit: unknown option '%s'\n", arg);
            PrintEditUsage(stderr);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (files.size() != 2) {
        PrintEditUsage(stderr);
        return 2;
    }
    const char* in = files[0];
    const char* out = files[1];

    auto root = std::make_unique<CDicomItem>(u"Object");
    if (!root->LoadObject(Utf8ToUtf16(in)))
        return Fail(FormatText("%s: %s", in, root->GetLastError().GetText().c_str()));
    CDicomItem* header = ChildNode(*root, u"Header");
    CDicomItem* data = ChildNode(*root, u"Data");
    if (!header || !data)
        return Fail(FormatText("%s: no file meta information or data set", in));

    UseToolIdentity();
    if (newInstance && !CDicomTools::UpdateTagsWhenInstanceCreation(*root))
        return Fail(FormatText("%s: cannot make a new instance", in));

    // A new Specific Character Set goes first: the other values are
    // encoded in it.
    std::stable_partition(assignments.begin(), assignments.end(),
                          [](const Assignment& a) { return a.group == 0x0008 && a.element == 0x0005; });
    bool identityChanged = false;
    for (const Assignment& assignment : assignments) {
        // The data set is written in the transfer syntax that the meta
        // information names: changing it is a conversion, not an edit.
        if (assignment.group == 0x0002 && assignment.element == 0x0010)
            return Fail("(0002,0010): the transfer syntax is changed with zeldicom convert");
        CDicomItem& node = assignment.group == 0x0002 ? *header : *data;
        std::string error;
        if (!SetElementFromText(node, assignment.group, assignment.element, assignment.value, error))
            return Fail(FormatText("%s: %s", assignment.key.c_str(), error.c_str()));
        if (assignment.group == 0x0008 && assignment.element == 0x0005)
            data->ChangeCharacterSet(CDicomInfoStatics::ExtractCharacterSet(data));
        identityChanged |= assignment.group == 0x0008 && (assignment.element == 0x0016 || assignment.element == 0x0018);
    }
    if (identityChanged && (!MirrorIdentity(*header, *data, 0x0016, 0x0002) ||
                            !MirrorIdentity(*header, *data, 0x0018, 0x0003)))
        return Fail("cannot update the file meta information");

    if (std::strcmp(in, out) == 0 || SameFile(in, out)) {
        CDicomItem* object = root.release();
        CLastError error;
        if (!CDicomItem::SaveModificationToExistingFile(object, Utf8ToUtf16(in), &error))
            return Fail(FormatText("%s: %s (it is unchanged)", in, error.GetText().c_str()));
        return 0;
    }
    if (!root->SaveToFile(Utf8ToUtf16(out)))
        return Fail(FormatText("%s: %s", out, root->GetLastError().GetText().c_str()));
    return 0;
}
