// Decoded text of pydicom's character set samples: every SH, LO, PN, LT, ST
// and UT value of every file, as the element tree decodes it, against the
// text pydicom decodes from the same file.
#include <gtest/gtest.h>

#include <map>
#include <sstream>
#include <string>

#include "dicomdata/dicomitem.h"
#include "parse_fixtures.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
using parsefix::FromHex;

struct Expected {
    std::string vr;
    std::u16string text;
};

// file -> tag path -> VR and value, as pydicom reads them.
std::map<std::string, std::map<std::string, Expected>> PydicomValues(const std::string& folder)
{
    std::map<std::string, std::map<std::string, Expected>> values;
    std::istringstream lines(parsefix::RunShell("/usr/bin/python3 " ZELDICOM_SOURCE_DIR
                                                "/tests/dicomdata/text_charset_values.py '" + folder + "'",
                                                false)
                                 .second);
    for (std::string line; std::getline(lines, line);) {
        size_t tab1 = line.find('\t'), tab2 = line.find('\t', tab1 + 1), tab3 = line.find('\t', tab2 + 1);
        if (tab3 != std::string::npos)
            values[line.substr(0, tab1)][line.substr(tab1 + 1, tab2 - tab1 - 1)] = {
                line.substr(tab2 + 1, tab3 - tab2 - 1), Utf8ToUtf16(FromHex(line.substr(tab3 + 1)))};
    }
    return values;
}

// Same paths as the script: "gggg,eeee", items as "gggg,eeee/index/".
void CollectElements(const CDicomItem& dataSet, const std::string& prefix,
                     std::map<std::string, const CDicomItem*>& out)
{
    for (int g = 0; g < dataSet.GetChildCount(); ++g) {
        auto* group = static_cast<const CDicomItem*>(dataSet.GetChildItem(g));
        if (group->m_sName.size() != 5 || group->m_sName[0] != u'g')
            continue;
        for (int e = 0; e < group->GetChildCount(); ++e) {
            auto* element = static_cast<const CDicomItem*>(group->GetChildItem(e));
            if (element->m_sName.size() != 5 || element->m_sName[0] != u'e')
                continue;
            std::string tag = WideToAscii(group->m_sName.substr(1)) + "," + WideToAscii(element->m_sName.substr(1));
            if (element->GetVR() == "SQ") {
                auto* items = static_cast<const CDicomItem*>(element->GetChildItem(u"gFFFE", 0));
                for (int i = 0; items && i < items->GetChildItemCount(u"eE000"); ++i)
                    CollectElements(*static_cast<const CDicomItem*>(items->GetChildItem(u"eE000", i)),
                                  prefix + tag + "/" + std::to_string(i) + "/", out);
            } else {
                out[prefix + tag] = element;
            }
        }
    }
}

std::u16string Group(const std::u16string& name, int index)
{
    return GetField(name, u'=', index);
}

}

TEST(TextCorpus, CharsetSamplesDecodeAsPydicomDecodesThem)
{
    if (parsefix::PydicomDataDir().empty())
        FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)";
    std::string folder = parsefix::PydicomDataDir() + "/charset_files";
    auto expected = PydicomValues(folder);
    if (expected.empty())
        FAIL() << "pydicom or its charset samples are missing (scripts/setup installs it)";

    size_t compared = 0;
    for (const auto& [file, values] : expected) {
        CDicomItem root(u"root");
        ASSERT_TRUE(root.LoadObject(AsciiToWide(folder + "/" + file))) << file << ": " << root.GetLastError().GetText();
        auto* data = static_cast<const CDicomItem*>(root.GetChildItem(u"Data", 0));
        ASSERT_NE(data, nullptr) << file;
        std::map<std::string, const CDicomItem*> ours;
        CollectElements(*data, "", ours);
        for (const auto& [path, value] : values) {
            SCOPED_TRACE(file + " " + path);
            const std::u16string& text = value.text;
            auto element = ours.find(path);
            ASSERT_NE(element, ours.end());
            // pydicom's VR, so that private elements of implicit VR files
            // are read as text too.
            std::u16string decoded;
            EXPECT_TRUE(element->second->GetTagValue(value.vr, decoded));
            // Person names group by group (alphabetic, ideographic, phonetic).
            for (int k = 0; k < 3; ++k)
                EXPECT_EQ(Utf16ToUtf8(Group(decoded, k)), Utf16ToUtf8(Group(text, k))) << "group " << k;
            // pydicom leaves out a trailing "=" before an empty last group
            // (chrX1, chrX2: "Wang^XiaoDong=王^小東="); the value has it.
            std::u16string whole = decoded;
            if (!whole.empty() && whole.back() == u'=' && value.vr == "PN")
                whole.pop_back();
            EXPECT_EQ(Utf16ToUtf8(whole), Utf16ToUtf8(text));
            EXPECT_EQ(decoded.find(u'\xFFFD'), std::u16string::npos);
            ++compared;
        }
    }
    EXPECT_GT(compared, 100u);
    // The multi-byte files are in the set compared, not skipped.
    // chrSQEncoding: a sequence item's own Specific Character Set (Japanese)
    // governs its name, not the enclosing data set's ISO_IR 192.
    for (const char* file : {"chrH31.dcm", "chrH32.dcm", "chrI2.dcm", "chrX1.dcm", "chrX2.dcm", "chrKoreanMulti.dcm",
                             "chrSQEncoding.dcm"})
        EXPECT_EQ(expected.count(file), 1u) << file;
}
