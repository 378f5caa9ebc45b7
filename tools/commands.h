#pragma once
// The table of subcommands; each lives in its own tools/cmd_*.cpp file.
#include <vector>

struct ToolCommand {
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv);  // arguments after the command name
};

const std::vector<ToolCommand>& ToolCommands();

// Flushes standard output; false, with one line on standard error, when
// what the command printed could not all be written (a full disk, a closed pipe).
bool FinishOutput(const char* command);

int RunLookup(int argc, char** argv);
int RunDump(int argc, char** argv);     // tools/cmd_dump.cpp
int RunConvert(int argc, char** argv);  // tools/cmd_convert.cpp
int RunProbe(int argc, char** argv);    // tools/cmd_probe.cpp
int RunInfo(int argc, char** argv);     // tools/cmd_info.cpp
int RunEcho(int argc, char** argv);     // tools/cmd_echo.cpp
int RunStore(int argc, char** argv);    // tools/cmd_store.cpp
int RunSr(int argc, char** argv);       // tools/cmd_sr.cpp
