#pragma once
// Runs the built `zeldicom` program the way a user does and collects its
// exit status, stdout, stderr, wall time and peak resident memory.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

struct CliResult {
    int status = -1;  // exit status, or -1 when the program did not exit normally
    std::string out;
    std::string err;
    double seconds = 0;
    long maxResidentKiB = 0;
};

inline std::string TempPath(const std::string& name)
{
    const char* dir = std::getenv("TMPDIR");
    return std::string(dir && *dir ? dir : "/tmp") + "/zeldicom-h1-" + std::to_string(getpid()) + "-" + name;
}

inline std::string ReadText(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline CliResult RunCli(const std::vector<std::string>& args, const std::string& program = ZELDICOM_CLI)
{
    std::string outPath = TempPath("stdout"), errPath = TempPath("stderr");
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
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
    result.out = ReadText(outPath);
    result.err = ReadText(errPath);
    std::remove(outPath.c_str());
    std::remove(errPath.c_str());
    return result;
}

inline std::vector<std::string> Lines(const std::string& text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = text.find('\n', start);
        if (end == std::string::npos)
            end = text.size();
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

inline bool WriteBytes(const std::string& path, const std::vector<unsigned char>& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}
