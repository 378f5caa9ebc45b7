#pragma once
// The options every network command shares: AE titles, time-out, trace
// folder, then HOST PORT and the command's own operands. DCMTK users'
// spellings (-aet, -aec, -to) are accepted too.
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

struct AssociationOptions {
    std::string calling = "ZELDICOM";
    std::string called = "ANY-SCP";
    std::string traceDir;
    double timeout = 30;                // seconds
    unsigned port = 0;                  // operands[1], checked
    std::vector<std::string> operands;  // HOST PORT ...
};

// Reads the arguments of the command `name` (after the command name), checks
// the AE titles and the port, turns the trace on when a folder is given and
// sets the tool's UID root when the host set none. Returns -1 when the
// command goes on, else the exit status to return at once (0 after --help,
// 2 on wrong arguments, with a line or the usage on standard error).
int ReadAssociationOptions(const char* name, int argc, char** argv, size_t minOperands, size_t maxOperands,
                           int (*usage)(FILE* out, int status), AssociationOptions& options);
