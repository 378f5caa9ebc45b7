// zeldicom edit IN OUT [--set KEY=VALUE]... [--new-instance]: changes
// elements of a DICOM file, as dcmodify -m users expect, and can turn the
// object into a new instance (new SOP Instance UID, Image Type
// DERIVED\SECONDARY). OUT (or IN, edited in place) is replaced only by a
// complete file.
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
#include "tools/options.h"

using namespace zeldicom;

namespace {

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
    OptionReader reader("edit", "IN OUT", "Writes IN to OUT with the asked changes; OUT may name IN.");
    std::vector<Assignment> assignments;
    bool newInstance = false;
    reader.Add("--set -m", "KEY=VALUE",
               "sets the element KEY, a keyword (PatientName) or a tag (gggg,eeee), to VALUE, adding it when "
               "absent",
               [&assignments](const std::string& setting) {
                   size_t equals = setting.find('=');
                   Assignment assignment;
                   assignment.key = setting.substr(0, equals);
                   if (equals == std::string::npos ||
                       !ParseElementKey(assignment.key, assignment.group, assignment.element))
                       return "'" + setting + "' is not KEY=VALUE with KEY a keyword or gggg,eeee";
                   assignment.value = Utf8ToUtf16(setting.substr(equals + 1));
                   assignments.push_back(assignment);
                   return std::string();
               });
    reader.Flag("--new-instance", "a new SOP Instance UID (data set and meta information) and Image Type "
                                  "DERIVED\\SECONDARY",
                newInstance);
    reader.Note("Multiple values are separated by '\\'; numbers for binary VRs, hexadecimal for OB/OW,\n"
                "gggg,eeee for AT. A new Specific Character Set applies to the other values set (existing\n"
                "values are not re-encoded). Setting SOP Class or Instance UID updates the file meta\n"
                "information to match.");
    reader.Example("zeldicom edit --set PatientName=Doe^Jane --set 0020,0013=2 in.dcm out.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const char* in = reader.Operands()[0].c_str();
    const char* out = reader.Operands()[1].c_str();

    auto root = std::make_unique<CDicomItem>(u"Object");
    if (!root->LoadObject(Utf8ToUtf16(in)))
        return reader.Failure(FormatText("%s: %s", in, root->GetLastError().GetText().c_str()));
    CDicomItem* header = ChildNode(*root, u"Header");
    CDicomItem* data = ChildNode(*root, u"Data");
    if (!header || !data)
        return reader.Failure(FormatText("%s: no file meta information or data set", in));

    UseToolIdentity();
    if (newInstance && !CDicomTools::UpdateTagsWhenInstanceCreation(*root))
        return reader.Failure(FormatText("%s: cannot make a new instance", in));

    // A new Specific Character Set goes first: the other values are
    // encoded in it.
    std::stable_partition(assignments.begin(), assignments.end(),
                          [](const Assignment& a) { return a.group == 0x0008 && a.element == 0x0005; });
    bool identityChanged = false;
    for (const Assignment& assignment : assignments) {
        // The data set is written in the transfer syntax that the meta
        // information names: changing it is a conversion, not an edit.
        if (assignment.group == 0x0002 && assignment.element == 0x0010)
            return reader.Failure("(0002,0010): the transfer syntax is changed with zeldicom convert");
        CDicomItem& node = assignment.group == 0x0002 ? *header : *data;
        std::string error;
        if (!SetElementFromText(node, assignment.group, assignment.element, assignment.value, error))
            return reader.Failure(FormatText("%s: %s", assignment.key.c_str(), error.c_str()));
        if (assignment.group == 0x0008 && assignment.element == 0x0005)
            data->ChangeCharacterSet(CDicomInfoStatics::ExtractCharacterSet(data));
        identityChanged |= assignment.group == 0x0008 && (assignment.element == 0x0016 || assignment.element == 0x0018);
    }
    if (identityChanged && (!MirrorIdentity(*header, *data, 0x0016, 0x0002) ||
                            !MirrorIdentity(*header, *data, 0x0018, 0x0003)))
        return reader.Failure("cannot update the file meta information");

    std::string error;
    if (!SaveObject(std::move(root), in, out, error))
        return reader.Failure(error);
    return kExitDone;
}
