// zeldicom convert IN OUT [--implicit | --explicit]: loads a DICOM file and
// writes it again, optionally switching the data set between implicit and
// explicit VR little endian. Values go from the mapped input to the output
// in chunks; nothing is copied whole.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {
const std::u16string kImplicitLittle = u"1.2.840.10008.1.2";
const std::u16string kExplicitLittle = u"1.2.840.10008.1.2.1";
const std::u16string kDeflatedLittle = u"1.2.840.10008.1.2.1.99";

void PrintConvertUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: zeldicom convert [--implicit | --explicit | --deflated] IN OUT\n"
                 "\n"
                 "  Reads the DICOM file IN and writes it to OUT. Lengths, group lengths\n"
                 "  and DICOMDIR offsets are recalculated.\n"
                 "  --implicit  write the data set in implicit VR little endian (1.2.840.10008.1.2)\n"
                 "  --explicit  write the data set in explicit VR little endian (1.2.840.10008.1.2.1)\n"
                 "  --deflated  write the data set deflated, explicit VR little endian (1.2.840.10008.1.2.1.99)\n"
                 "  Without an option the data set keeps its transfer syntax, except explicit\n"
                 "  VR big endian (retired), which is written explicit VR little endian. IN may be a data\n"
                 "  set without preamble and meta information: OUT is a complete DICOM file.\n"
                 "  OUT may name IN:\n"
                 "  the file is then replaced only once the new content is complete.\n");
}

bool SameFile(const char* a, const char* b)
{
    struct stat first {}, second {};
    if (stat(a, &first) != 0 || stat(b, &second) != 0)
        return false;
    return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

int Fail(const std::string& message)
{
    std::fprintf(stderr, "zeldicom convert: %s\n", message.c_str());
    return 1;
}
}

int RunConvert(int argc, char** argv)
{
    const std::u16string* wanted = nullptr;
    std::vector<const char*> files;
    bool options = true;
    for (int i = 0; i < argc; ++i) {
        const char* arg = argv[i];
        if (options && std::strcmp(arg, "--") == 0) {
            options = false;
        } else if (options && (std::strcmp(arg, "--help") == 0 || std::strcmp(arg, "-h") == 0)) {
            PrintConvertUsage(stdout);
            return 0;
        } else if (options && (std::strcmp(arg, "--implicit") == 0 || std::strcmp(arg, "--explicit") == 0 ||
                               std::strcmp(arg, "--deflated") == 0)) {
            const std::u16string* choice = arg[2] == 'i' ? &kImplicitLittle : arg[2] == 'e' ? &kExplicitLittle
                                                                                            : &kDeflatedLittle;
            if (wanted && wanted != choice) {
                std::fprintf(stderr, "zeldicom convert: --implicit, --explicit and --deflated exclude each other\n");
                return 2;
            }
            wanted = choice;
        } else if (options && arg[0] == '-' && arg[1] != '\0') {
            std::fprintf(stderr, "zeldicom convert: unknown option '%s'\n", arg);
            PrintConvertUsage(stderr);
            return 2;
        } else {
            files.push_back(arg);
        }
    }
    if (files.size() != 2) {
        PrintConvertUsage(stderr);
        return 2;
    }
    const char* in = files[0];
    const char* out = files[1];

    auto root = std::make_unique<CDicomItem>(u"Object");
    if (!root->LoadObject(Utf8ToUtf16(in)))
        return Fail(FormatText("%s: %s", in, root->GetLastError().GetText().c_str()));
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
            return Fail(FormatText("%s: transfer syntax %s is encapsulated or otherwise not plain little endian; it "
                                   "cannot be switched to implicit or explicit VR without decompression",
                                   in, name.c_str()));
        }
        syntax->CopyData(*wanted);
    }

    if (std::strcmp(in, out) == 0 || SameFile(in, out)) {
        // The values point into IN's image: only the rewrite that completes a
        // new copy before replacing IN is safe.
        CDicomItem* object = root.release();
        CLastError error;
        if (!CDicomItem::SaveModificationToExistingFile(object, Utf8ToUtf16(in), &error))
            return Fail(FormatText("%s: %s (it is unchanged)", in, error.GetText().c_str()));
        return 0;
    }
    // A failed save leaves OUT as it was (or absent).
    if (!root->SaveToFile(Utf8ToUtf16(out)))
        return Fail(FormatText("%s: %s", out, root->GetLastError().GetText().c_str()));
    return 0;
}
