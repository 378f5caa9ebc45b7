#include "platform/profile.h"

#include <cstdlib>
#include <fstream>
#include <map>

namespace {
std::map<std::string, int>& Settings()
{
    static std::map<std::string, int> settings;
    return settings;
}

unsigned g_generation = 1;

std::string KeyOf(const std::string& section, const std::string& key)
{
    return section + '\n' + key;
}

std::string Stripped(const std::string& text)
{
    size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    size_t end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}
}

int zeldicom::HostProfile::GetProfileInt(const std::string& section, const std::string& key, int defaultValue)
{
    auto found = Settings().find(KeyOf(section, key));
    return found == Settings().end() ? defaultValue : found->second;
}

void zeldicom::HostProfile::SetProfileInt(const std::string& section, const std::string& key, int value)
{
    Settings()[KeyOf(section, key)] = value;
    ++g_generation;
}

bool zeldicom::HostProfile::LoadIniFile(const std::string& path)
{
    std::ifstream in(path);
    if (!in)
        return false;
    std::string line, section;
    while (std::getline(in, line)) {
        line = Stripped(line);
        if (line.empty() || line[0] == ';' || line[0] == '#')
            continue;
        if (line.front() == '[' && line.back() == ']') {
            section = Stripped(line.substr(1, line.size() - 2));
            continue;
        }
        size_t equals = line.find('=');
        if (equals == std::string::npos)
            continue;
        std::string value = Stripped(line.substr(equals + 1));
        char* end = nullptr;
        long number = std::strtol(value.c_str(), &end, 10);
        if (end != value.c_str())
            SetProfileInt(section, Stripped(line.substr(0, equals)), static_cast<int>(number));
    }
    return true;
}

void zeldicom::HostProfile::Clear()
{
    Settings().clear();
    ++g_generation;
}

unsigned zeldicom::HostProfile::Generation()
{
    return g_generation;
}
