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

// One --set (value) or --erase (no value) of an element, top level or in an item.
struct Assignment {
    std::string key;
    ElementPath path;
    bool erase = false;
    std::u16string value;
    uint16_t Group() const { return path.steps.back().group; }
    uint16_t Element() const { return path.steps.back().element; }
    bool TopLevel(uint16_t group, uint16_t element) const
    {
        return path.steps.size() == 1 && Group() == group && Element() == element;
    }
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
    bool newInstance = false, force = false;
    reader.Add("--set -m", "KEY=VALUE",
               "sets the element KEY, a keyword (PatientName), a tag (gggg,eeee) or a path into sequence items "
               "(ReferencedImageSequence[0].ReferencedSOPInstanceUID), to VALUE, adding it (and a missing sequence "
               "or next item) when absent",
               [&assignments](const std::string& setting) {
                   size_t equals = setting.find('=');
                   Assignment assignment;
                   assignment.key = setting.substr(0, equals);
                   std::string error;
                   if (equals == std::string::npos)
                       return "'" + setting + "' is not KEY=VALUE";
                   if (!ParseElementPath(assignment.key, assignment.path, error))
                       return error;
                   assignment.value = Utf8ToUtf16(setting.substr(equals + 1));
                   assignments.push_back(assignment);
                   return std::string();
               });
    reader.Add("--erase -e", "KEY", "removes the element KEY (a sequence with its items), named as for --set",
               [&assignments](const std::string& key) {
                   Assignment assignment;
                   assignment.key = key;
                   assignment.erase = true;
                   std::string error;
                   if (!ParseElementPath(key, assignment.path, error))
                       return error;
                   assignments.push_back(assignment);
                   return std::string();
               });
    reader.Flag("--force", "write values that do not have the form or length of their VR (PS3.5 6.2)", force);
    reader.Flag("--new-instance", "a new SOP Instance UID (data set and meta information) and Image Type "
                                  "DERIVED\\SECONDARY",
                newInstance);
    reader.Note("Multiple values are separated by '\\'; numbers for binary VRs, hexadecimal for OB/OW,\n"
                "gggg,eeee for AT. A new Specific Character Set applies to the other values set (existing\n"
                "values are not re-encoded). Setting SOP Class or Instance UID updates the file meta\n"
                "information to match.");
    reader.Example("zeldicom edit --set PatientName=Doe^Jane --set 0020,0013=2 in.dcm out.dcm");
    reader.Example("zeldicom edit --erase PatientBirthDate --set \"(0008,1140)[0].(0008,1150)=1.2.840.10008.5.1.4.1.1.2\" "
                   "in.dcm in.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const char* in = reader.Operands()[0].c_str();
    const char* out = reader.Operands()[1].c_str();

    std::string loadError;
    std::unique_ptr<CDicomItem> root = LoadObject(in, loadError);
    if (!root)
        return reader.Failure(loadError);
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
                          [](const Assignment& a) { return !a.erase && a.TopLevel(0x0008, 0x0005); });
    bool identityChanged = false;
    for (const Assignment& assignment : assignments) {
        // The data set is written in the transfer syntax that the meta
        // information names: changing it is a conversion, not an edit.
        if (assignment.Group() == 0x0002 && (assignment.Element() == 0x0010 || assignment.path.steps.size() > 1))
            return reader.Failure(assignment.key + ": the file meta information's transfer syntax and layout are "
                                                   "changed with zeldicom convert");
        CDicomItem& top = assignment.Group() == 0x0002 ? *header : *data;
        std::string error;
        CDicomItem* node = FindElementParent(top, assignment.path, !assignment.erase, error);
        if (!node)
            return reader.Failure(assignment.key + ": " + error);
        if (assignment.erase) {
            if (!node->RemoveTag(assignment.Group(), assignment.Element()))
                return reader.Failure(assignment.key + ": not in the data set");
        } else {
            std::string vr = EditedElementVR(*node, assignment.Group(), assignment.Element());
            if (std::string fault = CheckValueForm(vr, assignment.value); !fault.empty() && !force)
                return reader.Failure(assignment.key + ": " + fault + "; --force writes it anyway");
            if (!SetElementFromText(*node, assignment.Group(), assignment.Element(), assignment.value, error))
                return reader.Failure(assignment.key + ": " + error);
        }
        if (assignment.TopLevel(0x0008, 0x0005))
            data->ChangeCharacterSet(CDicomInfoStatics::ExtractCharacterSet(data));
        identityChanged |= assignment.TopLevel(0x0008, 0x0016) || assignment.TopLevel(0x0008, 0x0018);
    }
    if (identityChanged && (!MirrorIdentity(*header, *data, 0x0016, 0x0002) ||
                            !MirrorIdentity(*header, *data, 0x0018, 0x0003)))
        return reader.Failure("cannot update the file meta information");

    std::string error;
    if (!SaveObject(std::move(root), in, out, error))
        return reader.Failure(error);
    return kExitDone;
}
