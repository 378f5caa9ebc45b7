#pragma once
// The options every network command shares, added to the command's option
// reader: AE titles, time-outs, trace folder and verbosity, then HOST PORT
// in front of the command's own operands. DCMTK users' spellings (-aet,
// -aec, -to, -ta, -td, -v, -d, -q) are accepted too.
#include <cstdarg>
#include <string>
#include <vector>

#include "tools/options.h"

class CDicomSocket;

struct AssociationOptions {
    enum Verbosity { kQuiet, kNormal, kVerbose, kDebug };
    std::string calling = "ZELDICOM";
    std::string called = "ANY-SCP";
    std::string traceDir;
    // Seconds: the TCP connection, the association exchanges (A-ASSOCIATE,
    // A-RELEASE) and the waits for DIMSE messages.
    double connectTimeout = 30, acseTimeout = 30, dimseTimeout = 30;
    Verbosity verbosity = kNormal;
    std::string host;
    unsigned port = 0;
    std::vector<std::string> operands;  // those after HOST PORT

    // Progress of the command, on standard error with -v and -d.
    void Verbose(const char* format, ...) const __attribute__((format(printf, 2, 3)));
    bool Quiet() const { return verbosity == kQuiet; }
    std::string Peer() const;
    // The socket has one time-out for every wait: the longest asked, so
    // that no phase is cut shorter than the user allowed.
    int TimeoutMilliseconds() const;
};

// Adds the shared options to a reader whose operands begin with HOST PORT.
void AddAssociationOptions(OptionReader& reader, AssociationOptions& options);
// Only the trace and verbosity options (--trace, -v, -d, -q), for a command
// whose operands are not HOST PORT (receive).
void AddOutputOptions(OptionReader& reader, AssociationOptions& options);
// Turns the trace on as those options ask (file, standard error) and sets
// the tool's UID root when the host set none.
void ApplyOutputOptions(const AssociationOptions& options);
// Reads the arguments with the reader and checks what the shared options
// need (the port, the AE titles); turns the trace on (file, standard error)
// and sets the tool's UID root when the host set none. -1 when the command
// goes on, else the exit status.
int ReadAssociationArguments(OptionReader& reader, AssociationOptions& options, int argc, char** argv);
// The time-outs of the options on a socket.
void ApplyTimeouts(const AssociationOptions& options, CDicomSocket& socket);
