// zeldicom convert [--implicit | --explicit | --deflated] IN OUT: loads a DICOM file and
// writes it again, optionally switching the data set between implicit and
// explicit VR little endian. Values go from the mapped input to the output
// in chunks; nothing is copied whole.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/options.h"

using namespace zeldicom;

namespace {
const std::u16string kImplicitLittle = u"1.2.840.10008.1.2";
const std::u16string kExplicitLittle = u"1.2.840.10008.1.2.1";
const std::u16string kDeflatedLittle = u"1.2.840.10008.1.2.1.99";

}  // namespace

int RunConvert(int argc, char** argv)
{
    OptionReader reader("convert", "IN OUT",
                        "Reads the DICOM file IN and writes it to OUT; lengths, group lengths and DICOMDIR offsets\n"
                        "are recalculated. Without an option the data set keeps its transfer syntax, except explicit\n"
                        "VR big endian (retired), which is written explicit VR little endian. IN may be a\n"
                        "data set without preamble and meta information: OUT is a complete DICOM file. OUT may\n"
                        "name IN: the file is then replaced only once the new content is complete.");
    const std::u16string* wanted = nullptr;
    struct Syntax {
        const char* names;
        const char* help;
        const std::u16string* uid;
    };
    const Syntax syntaxes[] = {
        {"--implicit", "write the data set in implicit VR little endian (1.2.840.10008.1.2)", &kImplicitLittle},
        {"--explicit", "write the data set in explicit VR little endian (1.2.840.10008.1.2.1)", &kExplicitLittle},
        {"--deflated", "write the data set deflated, explicit VR little endian (1.2.840.10008.1.2.1.99)",
         &kDeflatedLittle},
    };
    for (const Syntax& syntax : syntaxes)
        reader.Add(syntax.names, nullptr, syntax.help, [&wanted, uid = syntax.uid](const std::string&) {
            if (wanted && wanted != uid)
                return std::string("--implicit, --explicit and --deflated exclude each other");
            wanted = uid;
            return std::string();
        });
    reader.Example("zeldicom convert --implicit in.dcm out.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const char* in = reader.Operands()[0].c_str();
    const char* out = reader.Operands()[1].c_str();

    std::string loadError;
    std::unique_ptr<CDicomItem> root = LoadObject(in, loadError);
    if (!root)
        return reader.Failure(loadError);
    auto* header = static_cast<CDicomItem*>(root->GetChildItem(std::u16string(u"Header")));
    CDicomItem* syntax = header ? header->GetTagItem(0x0002, 0x0010) : nullptr;
    std::u16string current;
    if (syntax)
        syntax->GetTagValue("UI", current);
    current = Trim(current);
    if (wanted && current != *wanted) {
        // Only the uncompressed syntaxes differ in nothing but their element
        // headers (a big endian data set is little endian once loaded);
        // anything else needs a codec.
        if (current != kImplicitLittle && current != kExplicitLittle && current != kDeflatedLittle &&
            !CDicomItem::IsBigEndian(current)) {
            std::string name = Utf16ToUtf8(current);
            return reader.Failure(FormatText("%s: transfer syntax %s is encapsulated or otherwise not plain little endian; it "
                                   "cannot be switched to implicit or explicit VR without decompression",
                                   in, name.c_str()));
        }
        syntax->CopyData(*wanted);
    }

    std::string error;
    if (!SaveObject(std::move(root), in, out, error))
        return reader.Failure(error);
    return kExitDone;
}
