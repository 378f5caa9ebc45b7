// Options shared by the network commands (see association_options.h).
#include "tools/association_options.h"

#include <algorithm>
#include <cstdio>

#include "imageinfo/dicominfo.h"
#include "network/dicomsocket.h"
#include "platform/apppath.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {

// -d: the analysed trace goes to standard error as it is written to the file.
void TraceToStandardError(const std::string& line, void*)
{
    std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace

void AssociationOptions::Verbose(const char* format, ...) const
{
    if (verbosity < kVerbose)
        return;
    va_list args;
    va_start(args, format);
    std::string line = FormatTextV(format, args);
    va_end(args);
    std::fprintf(stderr, "%s\n", line.c_str());
}

std::string AssociationOptions::Peer() const
{
    return host + ":" + std::to_string(port);
}

void AddAssociationOptions(OptionReader& reader, AssociationOptions& options)
{
    reader.Add("--aet -aet", "AE", "calling AE title (default ZELDICOM)", [&options](const std::string& title) {
        options.calling = title;
        return CheckAeTitle(title);
    });
    reader.Add("--aec -aec", "AE", "called AE title (default ANY-SCP)", [&options](const std::string& title) {
        options.called = title;
        return CheckAeTitle(title);
    });
    reader.Add("--timeout", "SECONDS", "every time-out below at once (default 30)", [&options](const std::string& text) {
        double seconds = 0;
        std::string fault = ReadNumber(text, 0.001, 86400, false, seconds);
        options.connectTimeout = options.acseTimeout = options.dimseTimeout = seconds;
        return fault;
    });
    reader.Number("--connect-timeout -to", "SECONDS", "TCP connection time-out", 0.001, 86400,
                  options.connectTimeout);
    reader.Number("--acse-timeout -ta", "SECONDS", "association (A-ASSOCIATE, A-RELEASE) time-out", 0.001, 86400,
                  options.acseTimeout);
    reader.Number("--dimse-timeout -td", "SECONDS", "time-out of each DIMSE message awaited", 0.001, 86400,
                  options.dimseTimeout);
    AddOutputOptions(reader, options);
}

void AddOutputOptions(OptionReader& reader, AssociationOptions& options)
{
    reader.Add("--trace", "DIR", "write the analysed protocol trace DIR/DICOMyyyymmdd.LOG",
               [&options](const std::string& folder) {
                   options.traceDir = folder;
                   return CheckFolder(folder);
               });
    reader.Add("--verbose -v", nullptr, "print each step: association, files, matches, sub-operations",
               [&options](const std::string&) {
                   options.verbosity = std::max(options.verbosity, AssociationOptions::kVerbose);
                   return std::string();
               });
    reader.Add("--debug -d", nullptr, "also print the analysed protocol trace on standard error",
               [&options](const std::string&) {
                   options.verbosity = AssociationOptions::kDebug;
                   return std::string();
               });
    reader.Add("--quiet -q", nullptr, "print only errors", [&options](const std::string&) {
        options.verbosity = AssociationOptions::kQuiet;
        return std::string();
    });
}

int ReadAssociationArguments(OptionReader& reader, AssociationOptions& options, int argc, char** argv)
{
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const std::vector<std::string>& operands = reader.Operands();
    options.host = operands[0];
    if (std::string fault = ReadPort(operands[1], options.port); !fault.empty())
        return reader.BadArgument("PORT: " + fault);
    options.operands.assign(operands.begin() + 2, operands.end());
    ApplyOutputOptions(options);
    return -1;
}

void ApplyOutputOptions(const AssociationOptions& options)
{
    if (!options.traceDir.empty())
        CAppPath::GetAppPathInstance().SetPath(u"temp", Utf8ToUtf16(options.traceDir));
    if (options.verbosity == AssociationOptions::kDebug)
        CDicomTraceSettings::SetTraceSink(TraceToStandardError, nullptr, !options.traceDir.empty());
    if (!options.traceDir.empty() || options.verbosity == AssociationOptions::kDebug)
        CDicomSocket::SetTrace(2);
    UseToolIdentity();
}

int AssociationOptions::TimeoutMilliseconds() const
{
    return static_cast<int>(std::max({connectTimeout, acseTimeout, dimseTimeout}) * 1000);
}

void ApplyTimeouts(const AssociationOptions& options, CDicomSocket& socket)
{
    socket.SetTimeout(options.TimeoutMilliseconds());
}
