#pragma once
// The host application's integer settings, by section and key. The host sets
// them directly or loads them from a small INI file; unknown keys give the
// caller's default.
#include <string>

namespace zeldicom::HostProfile {
int GetProfileInt(const std::string& section, const std::string& key, int defaultValue);
void SetProfileInt(const std::string& section, const std::string& key, int value);
// Reads "[section]" headers and "key=value" lines; later values win. False
// when the file cannot be read.
bool LoadIniFile(const std::string& path);
void Clear();
// Changes each time a setting changes, so callers can cache what they read.
unsigned Generation();
}
