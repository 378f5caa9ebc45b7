// zeldicom lookup TAG|KEYWORD|UID...: the dictionary's VR, VM, keyword and
// name of an attribute, given as gggg,eeee or by keyword, or the name of a
// registered UID.
#include <cstdio>
#include <cstdlib>
#include <string>

#include "dicomdata/dictionary.h"
#include "dicomdata/tagtable.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {
bool PrintAttribute(unsigned group, unsigned element)
{
    if (const zeldicom::AttributeEntry* entry =
            zeldicom::FindAttribute(static_cast<uint16_t>(group), static_cast<uint16_t>(element))) {
        std::printf("(%04X,%04X) %s %s %s %s%s\n", group, element, *entry->vr() ? entry->vr() : "--", entry->vm(),
                    entry->keyword(), entry->name(), entry->retired ? " (retired)" : "");
        return true;
    }
    std::u16string vr, description;
    if (CTagTable::GetTagInfo(static_cast<int>(group), static_cast<int>(element), vr, description)) {
        std::printf("(%04X,%04X) %s %s\n", group, element, Utf16ToUtf8(vr).c_str(), Utf16ToUtf8(description).c_str());
        return true;
    }
    std::printf("(%04X,%04X) not in the dictionary\n", group, element);
    return false;
}
}

int RunLookup(int argc, char** argv)
{
    if (argc < 1 || std::string(argv[0]) == "--help") {
        std::fprintf(argc < 1 ? stderr : stdout, "Usage: zeldicom lookup gggg,eeee|Keyword|UID...\n");
        return argc < 1 ? 2 : 0;
    }
    int status = 0;
    for (int i = 0; i < argc; ++i) {
        unsigned group = 0, element = 0;
        char tail = 0;
        std::string text = argv[i];
        if (!text.empty() && text.front() == '(' && text.back() == ')')
            text = text.substr(1, text.size() - 2);
        if (std::sscanf(text.c_str(), "%4x,%4x%c", &group, &element, &tail) == 2) {
            if (!PrintAttribute(group, element))
                status = 1;
        } else if (const zeldicom::AttributeEntry* entry = zeldicom::FindAttributeByKeyword(text)) {
            PrintAttribute(entry->tag >> 16, entry->tag & 0xFFFF);
        } else if (const zeldicom::UidEntry* uid = zeldicom::FindUid(text)) {
            std::printf("%s %s %s (%s)%s\n", uid->uid(), uid->keyword(), uid->name(), uid->type(),
                        uid->retired ? " (retired)" : "");
        } else if (!text.empty() && (text[0] >= '0' && text[0] <= '9')) {
            std::printf("%s not a registered UID\n", text.c_str());
            status = 1;
        } else {
            std::fprintf(stderr, "zeldicom lookup: '%s' is neither a tag (gggg,eeee), a keyword nor a UID\n", argv[i]);
            status = 2;
        }
    }
    return FinishOutput("lookup") ? status : 1;
}
