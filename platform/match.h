#pragma once
// Whole-text pattern test: in the pattern 'X' stands for one hexadecimal
// digit, 'd' for one decimal digit, every other character for itself.
#include <string>

namespace zeldicom {

bool Match(const std::u16string& text, const char* pattern);
bool Match(const std::string& text, const char* pattern);

}  // namespace zeldicom
