#pragma once
// Byte fixtures for the parser tests: elements written out by hand in
// explicit or implicit VR little endian, so a test reads like the stream.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "dicomdata/vrtable.h"

namespace parsefix {

using Bytes = std::vector<unsigned char>;
constexpr uint32_t kUndefined = 0xFFFFFFFFu;
constexpr uint32_t kValueSize = 0xFFFFFFFEu;  // "the length field holds the value's size"

inline void put16(Bytes& out, uint32_t v) { out.insert(out.end(), {uint8_t(v), uint8_t(v >> 8)}); }
inline void put32(Bytes& out, uint32_t v) { put16(out, v & 0xFFFF); put16(out, v >> 16); }
inline Bytes us(uint16_t v) { return {uint8_t(v), uint8_t(v >> 8)}; }
inline Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }
inline Bytes cat(std::initializer_list<Bytes> parts)
{
    Bytes out;
    for (const Bytes& part : parts)
        out.insert(out.end(), part.begin(), part.end());
    return out;
}

// Explicit VR element with the given length field (defaults to the value size).
inline Bytes elem(uint16_t group, uint16_t element, const std::string& vr, const Bytes& value,
                  uint32_t length = kValueSize)
{
    Bytes out;
    put16(out, group);
    put16(out, element);
    out.insert(out.end(), {uint8_t(vr[0]), uint8_t(vr[1])});
    uint32_t declared = length == kValueSize ? static_cast<uint32_t>(value.size()) : length;
    bool longForm = zeldicom::IsLongFormVR(vr);
    if (longForm)
        put16(out, 0);  // reserved field, then a 32-bit length
    (longForm ? put32 : put16)(out, declared);
    out.insert(out.end(), value.begin(), value.end());
    return out;
}
inline Bytes elem(uint16_t group, uint16_t element, const std::string& vr, const std::string& value)
{
    return elem(group, element, vr, text(value));
}

// Implicit VR element (also the form of items and delimiters).
inline Bytes ielem(uint16_t group, uint16_t element, const Bytes& value, uint32_t length = kValueSize)
{
    Bytes out;
    put16(out, group);
    put16(out, element);
    put32(out, length == kValueSize ? static_cast<uint32_t>(value.size()) : length);
    out.insert(out.end(), value.begin(), value.end());
    return out;
}
inline Bytes item(const Bytes& content) { return ielem(0xFFFE, 0xE000, content); }
inline Bytes sequenceEnd() { return ielem(0xFFFE, 0xE0DD, {}); }
inline Bytes undefinedItem(const Bytes& content)
{
    return cat({ielem(0xFFFE, 0xE000, {}, kUndefined), content, ielem(0xFFFE, 0xE00D, {})});
}

// A Part 10 file image: preamble, "DICM", meta group (explicit VR unless
// told otherwise) with the transfer syntax, then the data set bytes.
inline Bytes fileImage(const std::string& transferSyntax, const Bytes& dataSet, bool implicitMeta = false)
{
    Bytes uid = text(transferSyntax);
    if (uid.size() % 2)
        uid.push_back(0);
    Bytes meta = implicitMeta ? cat({ielem(0x0002, 0x0001, {0, 1}), ielem(0x0002, 0x0010, uid)})
                              : cat({elem(0x0002, 0x0001, "OB", Bytes{0, 1}), elem(0x0002, 0x0010, "UI", uid)});
    return cat({Bytes(128, 0), text("DICM"), meta, dataSet});
}

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

}  // namespace parsefix
