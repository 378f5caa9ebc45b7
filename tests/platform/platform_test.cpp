#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

#include "platform/datainmemory.h"
#include "platform/dynbuffer.h"
#include "platform/match.h"
#include "platform/profile.h"
#include "platform/text.h"
#include "platform/xmlitem.h"
#include "support/files.h"

using namespace zeldicom;
using testsupport::ScratchFolder;

TEST(XmlItem, ChildrenByNameAndOccurrenceFollowChildOrder)
{
    CXmlItem root(u"root", nullptr, "ISO_IR 100");
    CXmlItem* a = root.AddItem(u"eE000", u"first", "ISO_IR 100");
    root.AddItem(u"VR", u"SQ", "ISO_IR 100");
    CXmlItem* b = root.AddItem(u"eE000", u"second", "ISO_IR 100");
    EXPECT_EQ(root.GetChildItem(u"eE000", 0), a);
    EXPECT_EQ(root.GetChildItem(u"eE000", 1), b);
    EXPECT_EQ(root.GetChildItem(u"eE000", 2), nullptr);
    EXPECT_EQ(root.GetChildItemCount(u"eE000"), 2);
    EXPECT_EQ(root.GetChildItem(3), nullptr);
    EXPECT_EQ(root.GetChildItem(-1), nullptr);
    EXPECT_EQ(a->GetParentItem(), &root);

    // Inserting at the count appends; at 0 prepends.
    auto* last = new CXmlItem(u"last", nullptr, "");
    root.InsertItem(root.GetChildCount(), last);
    EXPECT_EQ(root.GetChildItem(root.GetChildCount() - 1), last);
    auto* front = new CXmlItem(u"front", nullptr, "");
    root.InsertItem(0, front);
    EXPECT_EQ(root.GetChildItem(0), front);

    long number = 0;
    root.AddItem(u"Size", -1L, "");
    EXPECT_TRUE(root.GetItemValue(u"Size", number));
    EXPECT_EQ(number, -1);
    std::u16string text;
    EXPECT_FALSE(root.GetItemValue(u"Offset", text));

    root.DeleteChildItem(u"eE000", 1);
    EXPECT_EQ(root.GetChildItemCount(u"eE000"), 1);
    CXmlItem* detached = root.RemoveChildAt(root.IndexOfChild(a));
    EXPECT_EQ(detached, a);
    EXPECT_EQ(a->GetParentItem(), nullptr);
    delete detached;

    root.ChangeCharacterSet("ISO_IR 192");
    EXPECT_EQ(last->m_sCharacterSet, "ISO_IR 192");
}

TEST(Match, PatternsOfDigitsAndHexDigits)
{
    for (auto [name, matches] : {std::pair{u"g0008", true}, {u"g7FE0", true}, {u"gFFFE", true}, {u"gabcd", true},
                                 {u"VR", false}, {u"ParentVR", false}, {u"g008", false}, {u"g00081", false},
                                 {u"e0008", false}, {u"gG000", false}})
        EXPECT_EQ(Match(std::u16string(name), "gXXXX"), matches) << Utf16ToUtf8(name);
    for (auto [text, pattern, matches] : {std::tuple{"20240305", "dddddddd", true}, {"2024030A", "dddddddd", false},
                                          {"2024.03.05", "dddd.dd.dd", true}, {"2024-03-05", "dddd.dd.dd", false},
                                          {"09:30:05", "dd:dd:dd", true}, {"", "d", false}})
        EXPECT_EQ(Match(std::string(text), pattern), matches) << text;
}

TEST(DynBuffer, AppendsInsertsAndServesAsWriter)
{
    CDynBuffer buffer;
    EXPECT_TRUE(buffer.Add("cd", 2));
    EXPECT_TRUE(buffer.Insert("ab", 2, 0));
    EXPECT_TRUE(buffer.Insert("ef", 2, 100));  // clamped to the end
    ASSERT_EQ(buffer.m_nSize, 6u);
    EXPECT_EQ(std::string(static_cast<char*>(buffer), 6), "abcdef");
    std::string big(100000, 'x');
    EXPECT_EQ(CDynBuffer::WriteProc(big.data(), static_cast<uint32_t>(big.size()), &buffer), big.size());
    EXPECT_EQ(buffer.m_nSize, 100006u);
    EXPECT_EQ(CDynBuffer::WriteProc("x", 1, nullptr), 0xFFFFFFFFu);
    buffer.m_nSize = 0;
    EXPECT_TRUE(buffer.Add(nullptr, 3));
    EXPECT_EQ(buffer.GetData()[2], 0);
}

TEST(DataInMemory, MapsFilesAndRefusesEmptyMissingAndDirectories)
{
    ScratchFolder folder("mapping");
    std::string path = folder.path + "/mapped";
    std::ofstream(path, std::ios::binary) << "DICOM bytes";
    {
        CDataInMemory image(Utf8ToUtf16(path));
        ASSERT_TRUE(image.IsValid());
        EXPECT_EQ(image.GetSize(), 11u);
        EXPECT_EQ(std::string(reinterpret_cast<const char*>(image.GetData()), 11), "DICOM bytes");
    }
    // Files above the read limit are mapped; both kinds reopen as the same
    // file until another file takes the name.
    std::string large = folder.path + "/large";
    std::ofstream(large, std::ios::binary) << std::string(CDataInMemory::kReadLimit, 'x') << "end";
    for (const std::string& name : {path, large}) {
        CDataInMemory image(Utf8ToUtf16(name));
        ASSERT_TRUE(image.IsValid());
        EXPECT_EQ(image.IsMapped(), name == large);
        testsupport::Bytes content = testsupport::ReadFile(name);
        ASSERT_EQ(image.GetSize(), content.size());
        EXPECT_EQ(std::memcmp(image.GetData(), content.data(), content.size()), 0);
        int fd = image.OpenSameFile();
        EXPECT_GE(fd, 0);
        close(fd);
        std::string other = name + ".other";
        std::ofstream(other, std::ios::binary) << "x";
        std::rename(other.c_str(), name.c_str());
        EXPECT_EQ(image.OpenSameFile(), -1);
    }
    std::string empty = folder.path + "/empty";
    std::ofstream{empty};
    EXPECT_FALSE(CDataInMemory(Utf8ToUtf16(empty)).IsValid());
    EXPECT_FALSE(CDataInMemory(Utf8ToUtf16(path + ".missing")).IsValid());
    CDataInMemory directory(Utf8ToUtf16(::testing::TempDir()));
    EXPECT_FALSE(directory.IsValid());
    EXPECT_FALSE(directory.GetError().empty());
}

TEST(HostProfile, IniFileAndDirectSettingsWithDefaults)
{
    HostProfile::Clear();
    EXPECT_EQ(HostProfile::GetProfileInt("Receive", "FileCopyBufferSize", 32), 32);
    ScratchFolder folder("profile");
    std::string path = folder.path + "/profile.ini";
    std::ofstream(path) << "; host settings\n[Receive]\nFileCopyBufferSize = 8\nbad=\n[Worklist]\nTimeOut=-1\n";
    ASSERT_TRUE(HostProfile::LoadIniFile(path));
    EXPECT_EQ(HostProfile::GetProfileInt("Receive", "FileCopyBufferSize", 32), 8);
    EXPECT_EQ(HostProfile::GetProfileInt("Worklist", "TimeOut", 30000), -1);
    EXPECT_EQ(HostProfile::GetProfileInt("Receive", "bad", 5), 5);
    EXPECT_EQ(HostProfile::GetProfileInt("Worklist", "FileCopyBufferSize", 7), 7);
    EXPECT_FALSE(HostProfile::LoadIniFile(path + ".missing"));
    HostProfile::Clear();
}

TEST(Text, Utf16RoundTripsAndFieldHelpers)
{
    std::string utf8 = "Y\xC3\xA9n \xE5\xB1\xB1\xE7\x94\xB0 \xF0\x9F\x98\x80";
    std::u16string wide = Utf8ToUtf16(utf8);
    EXPECT_EQ(wide.size(), 9u);  // the emoji takes a surrogate pair
    EXPECT_EQ(Utf16ToUtf8(wide), utf8);
    // Invalid and overlong sequences become U+FFFD, never a crash.
    EXPECT_EQ(Utf8ToUtf16("\xC0\xAF"), std::u16string(u"\xFFFD\xFFFD"));
    EXPECT_EQ(Utf8ToUtf16("\xE5\xB1"), std::u16string(u"\xFFFD\xFFFD"));

    EXPECT_EQ(GetField(u"DOE^JOHN^^DR", u'^', 1) + u"|" + GetField(u"DOE^JOHN^^DR", u'^', 2) + u"|" +
                  GetField(u"DOE^JOHN^^DR", u'^', 3) + u"|" + GetField(u"DOE", u'^', 1),
              u"JOHN||DR|");
    EXPECT_EQ(Trim(u"  DOE \0"), u"DOE");
    EXPECT_EQ(CharCount(u"a^b^c", u'^'), 2);
    EXPECT_EQ(CharIndex(u"a^b^c", u'^', 1), 3);
    EXPECT_EQ(CharIndex(u"a^b^c", u'^', 2), -1);
    EXPECT_EQ(FormatText("%04X-%s", 0x7FE0u, std::string(300, 'z').c_str()).size(), 305u);
}
