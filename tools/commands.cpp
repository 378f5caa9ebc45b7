#include "tools/commands.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

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
        {"sr", "structured reports: render FILE as text, resave IN OUT through the report writer", RunSr},
    };
    return commands;
}

bool FinishOutput(const char* command)
{
    errno = 0;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    std::fprintf(stderr, "zeldicom %s: standard output: %s\n", command, std::strerror(errno != 0 ? errno : EIO));
    return false;
}
