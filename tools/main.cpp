// zeldicom: the command-line face of the library.
#include <cstdio>
#include <cstring>
#include <string>

#include "zeldicom_version.h"
#include "platform/system.h"
#include "tools/commands.h"

namespace {
void PrintUsage(FILE* out)
{
    std::fprintf(out,
                 "Usage: zeldicom COMMAND [OPTIONS] FILE...\n"
                 "\n"
                 "Commands:\n");
    for (const ToolCommand& command : ToolCommands())
        std::fprintf(out, "  %-10s %s\n", command.name, command.summary);
    std::fprintf(out,
                 "\n"
                 "  zeldicom --version    print the library version\n"
                 "  zeldicom --help       print this text\n"
                 "  zeldicom COMMAND --help   print a command's options\n");
}
}

int main(int argc, char** argv)
{
    if (argc < 2) {
        PrintUsage(stderr);
        return 2;
    }
    std::string first = argv[1];
    if (first == "--help" || first == "-h" || first == "help") {
        PrintUsage(stdout);
        return 0;
    }
    if (first == "--version") {
        std::printf("zeldicom %s\n", ZELDICOM_VERSION_STRING);
        return 0;
    }
    // Commands report failures in one line of their own; the library's
    // error log would repeat them with its internals.
    CAuditManager::GetUniqueInstance().SetQuiet(true);
    for (const ToolCommand& command : ToolCommands())
        if (first == command.name)
            return command.run(argc - 2, argv + 2);
    std::fprintf(stderr, "zeldicom: unknown command '%s' (try zeldicom --help)\n", first.c_str());
    return 2;
}
