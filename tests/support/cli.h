#pragma once
// Runs a program (the built `zeldicom` unless told otherwise) the way a user
// does and collects its exit status, stdout, stderr, wall time and peak
// resident memory.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/files.h"

struct CliResult {
    int status = -1;  // exit status, or -1 when the program did not exit normally
    std::string out, err;
    double seconds = 0;
    long maxResidentKiB = 0;
};

inline CliResult RunCli(const std::vector<std::string>& args, const std::string& program = ZELDICOM_CLI)
{
    std::string outPath = testsupport::ScratchPath("stdout"), errPath = testsupport::ScratchPath("stderr");
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& arg : args)
        argv.push_back(const_cast<char*>(arg.c_str()));
    argv.push_back(nullptr);

    auto start = std::chrono::steady_clock::now();
    pid_t child = fork();
    if (child == 0) {
        int out = open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        if (out < 0 || err < 0)
            _exit(127);
        dup2(out, 1);
        dup2(err, 2);
        execv(program.c_str(), argv.data());
        _exit(127);
    }
    CliResult result;
    int status = 0;
    struct rusage usage {};
    if (child > 0 && wait4(child, &status, 0, &usage) == child) {
        result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.maxResidentKiB = usage.ru_maxrss;
    }
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    testsupport::Bytes out = testsupport::ReadFile(outPath), err = testsupport::ReadFile(errPath);
    result.out.assign(out.begin(), out.end());
    result.err.assign(err.begin(), err.end());
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
    return result;
}

inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

// dicom3tools' judgement of an object: its "Error" lines (dciodvfy reports
// on standard error), without the file's path.
inline std::set<std::string> IodErrorLines(const std::string& path)
{
    CliResult result = RunCli({path}, "/usr/bin/dciodvfy");
    std::set<std::string> errors;
    if (result.status == -1)
        errors.insert("dciodvfy did not run on " + path);
    for (std::string line : Lines(result.err + result.out))
        if (line.rfind("Error", 0) == 0) {
            if (size_t at = line.find(path); at != std::string::npos)
                line.erase(at, path.size());
            errors.insert(line);
        }
    return errors;
}
// dciodvfy's errors in path that it does not find in source.
inline std::set<std::string> IodErrorsBeyond(const std::string& source, const std::string& path)
{
    std::set<std::string> known = IodErrorLines(source), beyond;
    for (const std::string& line : IodErrorLines(path))
        if (!known.count(line))
            beyond.insert(line);
    return beyond;
}
