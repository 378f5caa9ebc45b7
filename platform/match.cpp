#include "platform/match.h"

#include <cstring>

namespace zeldicom {

template <typename S>
static bool MatchImpl(const S& text, const char* pattern)
{
    size_t length = std::strlen(pattern);
    if (text.size() != length)
        return false;
    for (size_t i = 0; i < length; ++i) {
        auto c = text[i];
        char p = pattern[i];
        bool decimal = c >= '0' && c <= '9';
        if (p == 'd') {
            if (!decimal)
                return false;
        } else if (p == 'X') {
            if (!decimal && !(c >= 'A' && c <= 'F') && !(c >= 'a' && c <= 'f'))
                return false;
        } else if (c != static_cast<unsigned char>(p)) {
            return false;
        }
    }
    return true;
}

bool Match(const std::u16string& text, const char* pattern) { return MatchImpl(text, pattern); }
bool Match(const std::string& text, const char* pattern) { return MatchImpl(text, pattern); }

}  // namespace zeldicom
