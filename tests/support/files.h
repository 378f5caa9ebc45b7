#pragma once
// Helpers every test folder shares: files and scratch paths, hex text, a
// shell command's status and output, and pydicom's sample corpus.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace testsupport {

using Bytes = std::vector<unsigned char>;

// Every regular file below pydicom's sample folders, sorted, as full paths.
inline std::vector<std::string> CorpusFiles(const std::string& dataDir)
{
    std::vector<std::string> files;
    for (const char* folder : {"test_files", "charset_files", "palettes"}) {
        std::error_code error;
        for (auto it = std::filesystem::recursive_directory_iterator(dataDir + "/" + folder, error);
             !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error))
            if (it->is_regular_file() && it->path().string().find("__pycache__") == std::string::npos)
                files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

inline Bytes ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}
inline bool WriteFile(const std::string& path, const Bytes& bytes)
{
    std::ofstream out(path, std::ios::binary);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(out);
}
// A path in /tmp private to this test process.
inline std::string ScratchPath(const std::string& name)
{
    return "/tmp/zeldicom-test-" + std::to_string(getpid()) + "-" + name;
}
// A scratch folder, created empty and removed with everything in it when it
// goes out of scope (also when an assertion ends the test early).
struct ScratchFolder {
    explicit ScratchFolder(const std::string& name) : path(ScratchPath(name))
    {
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~ScratchFolder() { std::filesystem::remove_all(path); }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::string path;
};

inline std::string ToHex(const std::string& bytes)
{
    std::string hex;
    for (unsigned char b : bytes)
        hex += {"0123456789abcdef"[b >> 4], "0123456789abcdef"[b & 15]};
    return hex;
}
inline std::string FromHex(const std::string& hex)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return bytes;
}

// Runs a shell command: its exit status (-1 if it did not exit) and its
// standard output, with standard error too when asked.
inline std::pair<int, std::string> RunShell(const std::string& command, bool withErrors = true)
{
    std::string output;
    FILE* pipe = popen((command + (withErrors ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
    if (!pipe)
        return {-1, output};
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;)
        output.append(chunk, n);
    int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// The directory of pydicom's sample data, or empty when pydicom is absent.
inline std::string PydicomDataDir()
{
    static const std::string dir = [] {
        std::string found =
            RunShell("/usr/bin/python3 -c \"import pydicom,os;print(os.path.dirname(pydicom.__file__))\"", false).second;
        while (!found.empty() && (found.back() == '\n' || found.back() == '\r'))
            found.pop_back();
        found = (found.empty() ? "/usr/lib/python3/dist-packages/pydicom" : found) + "/data";
        return std::filesystem::exists(found + "/test_files/CT_small.dcm") ? found : std::string();
    }();
    return dir;
}

// In a test: names pydicom's sample data directory, and fails the test
// when it is absent.
#define PYDICOM_DATA_OR_FAIL(name)                            \
    const std::string name = testsupport::PydicomDataDir(); \
    if (name.empty())                                         \
    FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)"

// pydicom's copy of source, changed by the Python statements (which see the
// data set as ds and generate_uid as uid), saved as target: the exit status
// and pydicom's output.
inline std::pair<int, std::string> PydicomRewrite(const std::string& source, const std::string& target,
                                                  const std::string& statements)
{
    return RunShell("/usr/bin/python3 -c \"import pydicom\nfrom pydicom.uid import generate_uid as uid\n"
                    "ds = pydicom.dcmread('" + source + "')\n" + statements + "\nds.save_as('" + target + "')\"");
}

}  // namespace testsupport
