// The code dictionary file, coded entries in element trees and view labels.
#include <gtest/gtest.h>

#include <cstdlib>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "imageinfo/codedictionary.h"
#include "platform/xmlitem.h"
#include "platform/text.h"
#include "platform/xmlreader.h"

using namespace zeldicom;

TEST(CodeDictionary, LoadsMeaningsPerSchemeAndVersion)
{
    setenv("LANG", "fr_FR.UTF-8", 1);
    std::string path = testsupport::ScratchPath("srcode.xml");
    std::string xml = R"(<?xml version="1.0"?>
<!-- the dictionary -->
<Codes>
  <Scheme><Designator>DCM</Designator>
    <Code><Value>121071</Value><en>Finding</en><fr>Constat &amp; r&#233;sultat</fr></Code>
    <Code><Value>111</Value><fr></fr></Code>
  </Scheme>
  <Scheme><Designator>SRT</Designator><Version>1.1</Version>
    <Code a="x>y"><Value>T-04000</Value><en>Breast</en></Code>
    <Code><Value>T-04000</Value><en><![CDATA[Breast <2>]]></en></Code>
  </Scheme>
</Codes>)";
    ASSERT_TRUE(testsupport::WriteFile(path, testsupport::text(xml)));
    CCodeDictionary dictionary;
    EXPECT_EQ(dictionary.GetCodeMeaning("DCM", "121071", ""), "");  // not loaded
    ASSERT_TRUE(dictionary.Load(Utf8ToUtf16(path)));
    EXPECT_EQ(dictionary.GetCodeMeaning("DCM", "121071", ""), "Constat & r\xC3\xA9sultat");
    EXPECT_EQ(dictionary.GetCodeMeaning("DCM", "121071", "1"), "");
    EXPECT_EQ(dictionary.GetCodeMeaning("DCM", "111", ""), "");  // empty meaning: not stored
    EXPECT_EQ(dictionary.GetCodeMeaning("SRT", "T-04000", "1.1"), "Breast <2>");  // later entry wins
    EXPECT_EQ(dictionary.size(), 2u);
    EXPECT_EQ(CCodeDictionary::CreateKey("DCM", "1", ""), "DCM 1 ");

    // The same path again reads nothing; a broken file fails and stays in state 2.
    ASSERT_TRUE(testsupport::WriteFile(path, testsupport::text("<Codes><Scheme></Codes>")));
    EXPECT_TRUE(dictionary.Load(Utf8ToUtf16(path)));
    EXPECT_EQ(dictionary.size(), 2u);
    CCodeDictionary broken;
    EXPECT_FALSE(broken.Load(Utf8ToUtf16(path)));
    EXPECT_FALSE(broken.IsLoaded());
    EXPECT_FALSE(broken.IsNotLoaded());
    EXPECT_TRUE(broken.Load(Utf8ToUtf16(path)));
    EXPECT_TRUE(broken.empty());
    std::remove(path.c_str());
    unsetenv("LANG");
}

TEST(CodeSequence, ReadsAndWritesCodeItems)
{
    CDicomItem item(u"Item");
    CCodeSequenceMacro code(u"SRT", u"R-10242", u"cranio-caudal");
    code.SetCodeSequenceMacro(&item);
    CCodeSequenceMacro read(u"keep", u"", u"");
    item.RemoveTag(0x0008, 0x0102);
    read.FillCodeSequenceMacroFromCodeSequence(&item);
    EXPECT_EQ(read.m_strCodeValue, u"R-10242");
    EXPECT_EQ(read.m_strCodeMeaning, u"cranio-caudal");
    EXPECT_EQ(read.m_strCodingSchemeDesignator, u"keep");
}

TEST(ViewAbbreviation, CombinesLateralityModifiersAndView)
{
    CCodeSequenceMacro cc(u"SRT", u"R-10242", u"cranio-caudal");
    CCodeSequenceMacro magnified(u"SRT", u"R-102D2", u"magnification");
    CCodeSequenceMacro spot(u"SRT", u"R-102D6", u"spot compression");
    CCodeSequenceMacro implant(u"SRT", u"R-102C2", u"implant displaced");
    CCodeSequenceMacro tangential(u"SRT", u"R-102C1", u"tangential");
    CCodeSequenceMacro cleavage(u"SRT", u"R-102C8", u"cleavage");
    CCodeSequenceMacro unknown(u"99X", u"1", u"odd view");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"R", cc, {}), u"RCC");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"R", cc, {implant, magnified}), u"RMCCID");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"L", cc, {spot, magnified}), u"LMSCC");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"R", cc, {tangential}), u"TAN");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"B", cc, {cleavage}), u"CV");
    EXPECT_EQ(CAbbreviationFormatter::GetViewAbbreviation(u"L", unknown, {}), u"Lodd view");
}
