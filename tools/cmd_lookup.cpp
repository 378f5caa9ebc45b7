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
#include "tools/options.h"

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
    OptionReader reader("lookup", "NAME...",
                        "The data dictionary's VR, VM, keyword and name of each attribute given as gggg,eeee\n"
                        "or by keyword, or the name of a registered UID.");
    reader.Example("zeldicom lookup 0010,0010 StudyDate 1.2.840.10008.1.2.1");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    int status = kExitDone;
    for (const std::string& name : reader.Operands()) {
        unsigned group = 0, element = 0;
        char tail = 0;
        std::string text = name;
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
            status = reader.BadArgument("'" + name + "' is neither a tag (gggg,eeee), a keyword nor a UID");
        }
    }
    return FinishOutput("lookup") ? status : 1;
}
