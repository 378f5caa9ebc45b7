// View abbreviations (see viewabbreviation.h).
#include "platform/viewabbreviation.h"

#include <cstdlib>

#include "platform/text.h"

using namespace zeldicom;

namespace {

struct Abbreviation {
    const char16_t* srt;  // SNOMED RT code value ("SRT")
    const char16_t* sct;  // SNOMED CT concept id ("SCT")
    const char16_t* label;
};

// Views (CID 4014) then view modifiers (CID 4015).
constexpr Abbreviation kAbbreviations[] = {
    {u"R-10242", u"399162004", u"CC"},   {u"R-10226", u"399368009", u"MLO"}, {u"R-10224", u"399260004", u"ML"},
    {u"R-10228", u"399352003", u"LM"},   {u"R-10230", u"399099002", u"LMO"}, {u"R-10244", u"399192003", u"FB"},
    {u"R-102CF", u"399188001", u"SIO"},  {u"R-1024A", u"399101009", u"XCCL"}, {u"R-1024B", u"399265009", u"XCCM"},
    {u"R-102D0", u"399110001", u"ISO"},  {u"R-10232", u"399196006", u"MLO"},
    {u"R-102D2", u"399163009", u"M"},    {u"R-102D6", u"399055006", u"S"},   {u"R-102C2", u"399169008", u"ID"},
    {u"R-102C1", u"399232001", u"TAN"},  {u"R-102CA", u"399161006", u"AT"},  {u"R-102C8", u"399285005", u"CV"},
    {u"R-102D3", u"399070008", u"RL"},   {u"R-102D4", u"399028008", u"RM"},  {u"R-102C7", u"399179003", u"RI"},
    {u"R-102C6", u"399066008", u"RS"},   {u"R-102C4", u"399151008", u"NP"},  {u"R-102D5", u"399097000", u"AC"},
};

}  // namespace

CAbbreviationReader* CAbbreviationReader::GetUniqueInstance()
{
    static CAbbreviationReader instance;
    return &instance;
}

bool CAbbreviationReader::GetAbbreviation(const std::u16string& designator, const std::u16string& value,
                                          std::u16string& abbreviation) const
{
    std::u16string scheme = Trim(designator), code = Trim(value);
    bool srt = scheme == u"SRT" || scheme == u"SNM3", sct = scheme == u"SCT";
    if (!srt && !sct)
        return false;
    for (const Abbreviation& row : kAbbreviations)
        if (code == (srt ? row.srt : row.sct)) {
            abbreviation = row.label;
            return true;
        }
    return false;
}

std::u16string zeldicom::CurrentLanguage()
{
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(name);
        if (!value || !*value)
            continue;
        std::string setting = value;
        if (setting == "C" || setting == "POSIX" || setting.size() < 2)
            break;
        std::u16string code = AsciiToWide(setting.substr(0, 2));
        for (char16_t& c : code)
            if (c >= u'A' && c <= u'Z')
                c = static_cast<char16_t>(c + 32);
        return code;
    }
    return u"en";
}
