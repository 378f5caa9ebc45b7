// Text values: stored bytes <-> wide text by the character set label of the
// node, the character set of a data set, and display lines.
#include <cstdio>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/tagtable.h"
#include "dicomdata/vrtable.h"
#include "platform/charset.h"
#include "platform/datetools.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

// Only the VRs that PS3.5 6.1.2.3 puts under Specific Character Set decode
// with it; all others use the ANSI code page. The VR is compared without
// regard to case.
bool UsesCharacterSet(const std::string& vr)
{
    if (vr.size() != 2)
        return false;
    char upper[2] = {static_cast<char>(vr[0] & ~0x20), static_cast<char>(vr[1] & ~0x20)};
    return zeldicom::IsCharacterSetSensitiveVR(std::string_view(upper, 2));
}

int CodePageOf(const std::u16string& characterSet)
{
    // A data set's values share one label: remember the last answer.
    thread_local std::u16string lastLabel = u"\x01";
    thread_local int lastCodePage = -1;
    if (characterSet != lastLabel) {
        lastCodePage = CDcmCharacterSet2CodePageReader::GetUniqueInstance().GetCodePageFromDcmCharacterSet(characterSet);
        lastLabel = characterSet;
    }
    return lastCodePage;
}

// PS3.5 6.2: a person name is encoded component by component, so that each
// component of a multi-byte set ends in the initial code set before its "^".
bool EncodePersonName(const std::u16string& text, int codePage, std::string& bytes)
{
    int separators = CharCount(text, u'^');
    std::string component;
    for (int index = 0; index < separators; ++index) {
        if (!CStringTools::TranslateFromUnicode2IsoCharSet(GetField(text, u'^', index), component, codePage))
            return false;
        bytes += component + "^";
    }
    std::u16string rest = text.substr(static_cast<size_t>(CharIndex(text, u'^', separators - 1) + 1));
    if (separators == 0)
        rest = text;
    if (!rest.empty()) {
        if (!CStringTools::TranslateFromUnicode2IsoCharSet(rest, component, codePage))
            return false;
        bytes += component;
    }
    return true;
}

}

std::u16string CDicomItem::TranslateTagValueFromDicomToUnicode(const std::string& bytes, const std::string& vr,
                                                               const std::u16string& characterSet)
{
    std::u16string text;
    int codePage = UsesCharacterSet(vr) ? CodePageOf(characterSet) : -1;
    if (codePage != -1 && CStringTools::TranslateFromIsoCharSet2Unicode(bytes, text, codePage))
        return text;
    CStringTools::TranslateFromIsoCharSet2Unicode(bytes, text, kCodePageThreadAnsi);
    return text;
}

bool CDicomItem::TranslateTagValueFromUnicodeToDicom(const std::u16string& text, const std::string& vr,
                                                     const std::u16string& characterSet, std::string& bytes)
{
    bytes.clear();
    int codePage = CodePageOf(characterSet);
    if (codePage == -1 || !UsesCharacterSet(vr))
        return CStringTools::TranslateFromUnicode2IsoCharSet(text, bytes, kCodePageThreadAnsi);
    bool done = EqualsNoCase(vr, std::string("PN")) ? EncodePersonName(text, codePage, bytes)
                                                    : CStringTools::TranslateFromUnicode2IsoCharSet(text, bytes, codePage);
    if (!done)
        bytes.clear();
    return done;
}

std::string CDicomItem::TranslateTagValueFromUnicodeToDicom(const std::u16string& text, const std::string& vr,
                                                            const std::u16string& characterSet)
{
    // Text the character set cannot hold gives no bytes rather than wrong
    // ones; callers that must know use the form that reports it.
    std::string bytes;
    TranslateTagValueFromUnicodeToDicom(text, vr, characterSet, bytes);
    return bytes;
}

bool CDicomItem::Format(int group, int element, std::u16string& text) const
{
    std::u16string vr, description;
    if (!CTagTable::GetTagInfo(group, element, vr, description))
        return false;
    std::u16string raw, value;
    GetTagValue(group, element, raw);
    if (vr == u"PN") {
        std::u16string family, given;
        CDicomInfoStatics::ConvertNameFromDicom(raw, family, given);
        if (!family.empty())
            value = given.empty() ? family : family + u" " + given;
    } else if (vr == u"LO" || vr == u"CS") {
        value = raw;
    } else if (vr == u"DA" || vr == u"TM") {
        long number = -1;
        if (std::sscanf(WideToAscii(raw).c_str(), vr == u"DA" ? "%8ld" : "%6ld", &number) != 1)
            number = -1;
        if (vr == u"DA")
            CDateTimeTools::Long2DateEx(number, value);
        else
            CDateTimeTools::Long2Time(number, value);
    }
    text = description + u" : " + value;
    return true;
}

std::string CDicomInfoStatics::ExtractCharacterSet(const CDicomItem* dataSet)
{
    std::u16string text;
    if (!dataSet || !dataSet->GetTagValue(0x0008, 0x0005, text))
        return {};
    size_t backslash = text.find(u'\\');
    if (backslash != std::u16string::npos && backslash > 0)
        return WideToAscii(text.substr(0, backslash));
    if (backslash == 0) {
        size_t next = text.find(u'\\', 1);
        return WideToAscii(text.substr(1, next == std::u16string::npos ? std::u16string::npos : next - 1));
    }
    return WideToAscii(text);
}
