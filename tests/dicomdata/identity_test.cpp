// Identity settings, the library version read at start-up, module names and
// the translation lookup.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"
#include "platform/dlltools.h"
#include "platform/language.h"
#include "platform/text.h"
#include "zeldicom_version.h"

using namespace zeldicom;

namespace {

// A host's global, initialised before the library's own start-up code may
// have run: the version is there already.
const std::vector<int> g_versionAtStaticInit = {
    CDicomInfoStatics::GetVersionMajor(), CDicomInfoStatics::GetVersionMinor(), CDicomInfoStatics::GetVersionRev()};

// Restores the process-wide identity settings a test changes.
struct IdentityGuard {
    std::u16string root = CDicomInfoStatics::GetDicomRoot();
    int major = CDicomInfoStatics::GetVersionMajor(), minor = CDicomInfoStatics::GetVersionMinor(),
        rev = CDicomInfoStatics::GetVersionRev();
    ~IdentityGuard()
    {
        CDicomInfoStatics::SetDicomRoot(root);
        CDicomInfoStatics::SetVersionMajor(major);
        CDicomInfoStatics::SetVersionMinor(minor);
        CDicomInfoStatics::SetVersionRev(rev);
    }
};

}

TEST(Identity, VersionReadAtStartUpIsTheProjectVersion)
{
    // The project version as CMakeLists.txt declares it, read independently
    // of the generated header.
    std::stringstream content;
    content << std::ifstream(ZELDICOM_SOURCE_DIR "/CMakeLists.txt").rdbuf();
    std::string text = content.str();
    size_t at = text.find("project(ZelDicom VERSION ");
    ASSERT_NE(at, std::string::npos);
    int version[3] = {};
    ASSERT_EQ(std::sscanf(text.c_str() + at + 25, "%d.%d.%d", &version[0], &version[1], &version[2]), 3);
    auto current = [] {
        return std::vector<int>{CDicomInfoStatics::GetVersionMajor(), CDicomInfoStatics::GetVersionMinor(),
                                CDicomInfoStatics::GetVersionRev()};
    };
    EXPECT_EQ(current(), std::vector<int>(version, version + 3));
    EXPECT_EQ(g_versionAtStaticInit, std::vector<int>(version, version + 3));
    EXPECT_EQ(CDicomInfoStatics::GetVersionMajor(), ZELDICOM_VERSION_MAJOR);

    // The module entry reads the same numbers again; the version reader
    // knows only this library.
    IdentityGuard guard;
    CDicomInfoStatics::SetVersionMajor(0);
    CDicomInfoStatics::SetVersionRev(99);
    EXPECT_TRUE(ZelDicomModuleAttach());
    EXPECT_EQ(current(), std::vector<int>(version, version + 3));
    EXPECT_TRUE(ZelDicomModuleDetach());
    uint16_t major = 7, minor = 7, revision = 7, build = 7;
    std::u16string versionText = u"x";
    EXPECT_FALSE(CDllTools::GetDllVersion(u"ZelTools", major, minor, revision, build, versionText));
    EXPECT_EQ(major, 7);
    EXPECT_TRUE(CDllTools::GetDllVersion(u"zeldicom", major, minor, revision, build, versionText));
    EXPECT_EQ(versionText, AsciiToWide(FormatText("%d.%d.%d", version[0], version[1], version[2])));
}

TEST(Identity, ImplementationVersionNameIsPaddedToEvenLength)
{
    IdentityGuard guard;
    CDicomInfoStatics::SetVersionMajor(1);
    CDicomInfoStatics::SetVersionMinor(2);
    CDicomInfoStatics::SetVersionRev(3);
    EXPECT_EQ(CDicomTools::GetVqImplementationVersionName(), u"1_2_3 ");
    CDicomInfoStatics::SetVersionRev(30);
    EXPECT_EQ(CDicomTools::GetVqImplementationVersionName(), u"1_2_30");
    CDicomInfoStatics::SetVersionMajor(10);
    EXPECT_EQ(CDicomTools::GetVqImplementationVersionName(), u"10_2_30 ");

    // New file meta information carries it, and the root as (0002,0012).
    CDicomInfoStatics::SetDicomRoot(u"");
    std::unique_ptr<CDicomItem> header(
        CDicomItem::CreateMetaHeader(u"1.2.840.10008.5.1.4.1.1.7", u"1.2.3", u"1.2.840.10008.1.2.1"));
    ASSERT_NE(header, nullptr);
    std::u16string root = u"<absent>", name;
    header->GetTagValue(0x0002, 0x0012, root);
    header->GetTagValue(0x0002, 0x0013, name);
    EXPECT_EQ(root + u"|" + name, u"|10_2_30");

    EXPECT_EQ(AsciiToWide(CDicomItem(u"Data").m_sCharacterSet), CDicomTools::GetDefaultISOCharacterset());
}

TEST(ModuleServices, ModuleNamesAndTranslations)
{
    std::u16string exe = CDllTools::GetCallingExeName();
    EXPECT_EQ(exe, u"test_dicomdata");
    std::u16string dll = CDllTools::GetCallingDllName();
    EXPECT_EQ(dll.find(u'/'), std::u16string::npos);
    // Linked statically the library is part of the program; as a shared
    // object it has its own name.
    if (dll.rfind(u"libzeldicom", 0) != 0) {
        EXPECT_EQ(dll, exe);
    }

    // Without a text, the key stands for itself.
    EXPECT_EQ(CLanguageProvider::GetTranslationTextFromDll(u"Print", u"Printer busy"), u"Printer busy");
    EXPECT_FALSE(CLanguageProvider::RegisterDll(1));
    auto& service = CTranslationService::GetUniqueInstance();
    service.SetText(dll, u"Print", u"Printer busy", u"Imprimante occup\u00E9e");
    service.SetText(u"Other.so", u"Print", u"Printer busy", u"Drucker belegt");
    EXPECT_EQ(CLanguageProvider::GetTranslationTextFromDll(u"Print", u"Printer busy"), u"Imprimante occup\u00E9e");
    EXPECT_EQ(CLanguageProvider::GetTranslationTextFromExternalLib(u"Print", u"Printer busy", u"other.so"),
              u"Drucker belegt");
    EXPECT_EQ(CLanguageProvider::GetTranslationTextFromDll(u"Worklist", u"Printer busy"), u"Printer busy");
    EXPECT_TRUE(CLanguageProvider::RegisterDll(1));
    service.SetText(exe, u"Print", u"Printer busy", u"exe text");
    EXPECT_EQ(CLanguageProvider::GetTranslationTextFromExe(u"Print", u"Printer busy"), u"exe text");
}
