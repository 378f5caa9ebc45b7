// zeldicom lookup gggg,eeee...: the dictionary's VR and name of each tag.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dicomdata/tagtable.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

int RunLookup(int argc, char** argv)
{
    if (argc < 1 || std::string(argv[0]) == "--help") {
        std::fprintf(argc < 1 ? stderr : stdout, "Usage: zeldicom lookup gggg,eeee...\n");
        return argc < 1 ? 2 : 0;
    }
    int status = 0;
    for (int i = 0; i < argc; ++i) {
        unsigned group = 0, element = 0;
        char tail = 0;
        std::string text = argv[i];
        if (!text.empty() && text.front() == '(' && text.back() == ')')
            text = text.substr(1, text.size() - 2);
        if (std::sscanf(text.c_str(), "%4x,%4x%c", &group, &element, &tail) != 2) {
            std::fprintf(stderr, "zeldicom lookup: '%s' is not a tag (expected gggg,eeee)\n", argv[i]);
            status = 2;
            continue;
        }
        std::u16string vr, description;
        if (CTagTable::GetTagInfo(static_cast<int>(group), static_cast<int>(element), vr, description)) {
            std::printf("(%04X,%04X) %s %s\n", group, element, Utf16ToUtf8(vr).c_str(),
                        Utf16ToUtf8(description).c_str());
        } else {
            std::printf("(%04X,%04X) not in the dictionary\n", group, element);
            status = 1;
        }
    }
    return FinishOutput("lookup") ? status : 1;
}
