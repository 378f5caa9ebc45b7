#pragma once
// The table of subcommands; each lives in its own tools/cmd_*.cpp file.
#include <memory>
#include <string>
#include <vector>

class CDicomItem;

struct ToolCommand {
    const char* name;
    const char* summary;
    int (*run)(int argc, char** argv);  // arguments after the command name
};

const std::vector<ToolCommand>& ToolCommands();

// The tool's Implementation Class UID, for the files and associations it
// makes when the host has set no UID root.
inline constexpr char16_t kToolImplementationClassUid[] = u"2.25.135358127703870177945697021926943424524";

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
int RunFind(int argc, char** argv);     // tools/cmd_find.cpp
int RunMove(int argc, char** argv);     // tools/cmd_move.cpp
int RunGet(int argc, char** argv);      // tools/cmd_get.cpp
int RunCommit(int argc, char** argv);   // tools/cmd_commit.cpp
int RunCapture(int argc, char** argv);  // tools/cmd_capture.cpp
int RunEdit(int argc, char** argv);     // tools/cmd_edit.cpp
int RunWorklist(int argc, char** argv); // tools/cmd_worklist.cpp
int RunPrint(int argc, char** argv);    // tools/cmd_print.cpp
int RunReceive(int argc, char** argv);  // tools/cmd_receive.cpp

// LoadObject reads the file in as an object root (null, with the words of
// the failure in error); SaveObject writes it to the file out, which may be in
// itself: then through a complete new copy that replaces in (its values
// point into in's image). A failed save leaves out as it was; false with
// the words of the failure in error.
std::unique_ptr<CDicomItem> LoadObject(const char* in, std::string& error);
bool SaveObject(std::unique_ptr<CDicomItem> root, const char* in, const char* out, std::string& error);

// Gives the process the tool's UID root (new UIDs, Implementation Class UID)
// unless the host part has set one.
void UseToolIdentity();
int RunDicomDir(int argc, char** argv);  // tools/cmd_dicomdir.cpp
int RunSr(int argc, char** argv);       // tools/cmd_sr.cpp
