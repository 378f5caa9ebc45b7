#include "tools/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/stat.h>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/text.h"

const std::vector<ToolCommand>& ToolCommands()
{
    static const std::vector<ToolCommand> commands = {
        {"lookup", "look tags up in the data dictionary (gggg,eeee)", RunLookup},
        {"dump", "print the element tree of DICOM files (--json: DICOM JSON Model)", RunDump},
        {"convert", "rewrite a DICOM file, optionally as implicit or explicit VR little endian", RunConvert},
        {"info", "the image information record of DICOM files (--json: keyed by field name)", RunInfo},
        {"probe", "tell whether files are DICOM: meta information, transfer syntax, compression", RunProbe},
        {"echo", "verify a DICOM peer with C-ECHO (HOST PORT)", RunEcho},
        {"store", "send DICOM files and folders to a storage SCP (HOST PORT PATH...)", RunStore},
        {"receive", "a storage SCP: receive instances into a folder until SIGINT or SIGTERM (PORT DIR)", RunReceive},
        {"find", "query a C-FIND SCP (-k KEY[=VALUE]... HOST PORT; --json)", RunFind},
        {"worklist", "query a modality worklist SCP (--modality M --date RANGE --patient NAME -k KEY=VALUE... HOST PORT)",
         RunWorklist},
        {"move", "have a C-MOVE SCP send instances to an AE (--dest AE -k KEY=VALUE... HOST PORT)", RunMove},
        {"get", "retrieve instances from a C-GET SCP into a folder (-k KEY=VALUE... --dir DIR HOST PORT)", RunGet},
        {"commit", "storage commitment of files' instances (--listen PORT HOST PORT FILE...)", RunCommit},
        {"print", "print grayscale images on a DICOM printer, one film per image (HOST PORT IMAGE...)", RunPrint},
        {"capture", "make a Secondary Capture DICOM file from a PGM or PPM image", RunCapture},
        {"edit", "change elements of a DICOM file (--set KEY=VALUE), or make it a new instance", RunEdit},
        {"dicomdir", "create, extend or list a DICOMDIR (create DIR | add DICOMDIR FILE... | list [--json] DICOMDIR)",
         RunDicomDir},
        {"sr", "structured reports: render FILE as text, resave IN OUT through the report writer", RunSr},
    };
    return commands;
}

void UseToolIdentity()
{
    // The tool's own root: a UUID-derived UID (PS3.5 B.2), which the
    // generated UIDs extend.
    if (DICOMINFO::GetDicomRoot().empty())
        DICOMINFO::SetDicomRoot(u"2.25.135358127703870177945697021926943424524");
}

bool FinishOutput(const char* command)
{
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    std::fprintf(stderr, "zeldicom %s: standard output: %s\n", command, std::strerror(errno != 0 ? errno : EIO));
    return false;
}

std::unique_ptr<CDicomItem> LoadObject(const char* in, std::string& error)
{
    auto root = std::make_unique<CDicomItem>(u"Object");
    if (root->LoadObject(zeldicom::Utf8ToUtf16(in)))
        return root;
    error = std::string(in) + ": " + root->GetLastError().GetText();
    return nullptr;
}

bool SaveObject(std::unique_ptr<CDicomItem> root, const char* in, const char* out, std::string& error)
{
    struct stat first {}, second {};
    bool same = std::strcmp(in, out) == 0 || (stat(in, &first) == 0 && stat(out, &second) == 0 &&
                                              first.st_dev == second.st_dev && first.st_ino == second.st_ino);
    if (same) {
        CLastError failure;
        CDicomItem* object = root.release();
        if (CDicomItem::SaveModificationToExistingFile(object, zeldicom::Utf8ToUtf16(in), &failure))
            return true;
        error = std::string(in) + ": " + failure.GetText() + " (it is unchanged)";
        return false;
    }
    if (root->SaveToFile(zeldicom::Utf8ToUtf16(out)))
        return true;
    error = std::string(out) + ": " + root->GetLastError().GetText();
    return false;
}
