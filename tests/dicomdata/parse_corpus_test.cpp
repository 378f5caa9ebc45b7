// Every file of pydicom's sample corpus either loads or is refused for the
// reason listed here; a file that starts failing (or starts loading when it
// should not) shows up by name.
#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>

#include "dicomdata/dicomitem.h"
#include "parse_fixtures.h"
#include "platform/text.h"

namespace {
void ListFiles(const std::string& dir, const std::string& relative, std::vector<std::string>& out)
{
    DIR* handle = opendir(dir.c_str());
    if (!handle)
        return;
    while (dirent* entry = readdir(handle)) {
        std::string name = entry->d_name;
        if (name == "." || name == ".." || name == "__pycache__")
            continue;
        std::string path = dir + "/" + name;
        struct stat info {};
        if (stat(path.c_str(), &info) != 0)
            continue;
        if (S_ISDIR(info.st_mode))
            ListFiles(path, relative + name + "/", out);
        else if (S_ISREG(info.st_mode))
            out.push_back(relative + name);
    }
    closedir(handle);
}

bool EndsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Files that are DICOM but are refused, with the reason expected.
const std::map<std::string, std::string>& ExpectedRefusals()
{
    static const std::map<std::string, std::string> refusals = {
        {"test_files/ExplVR_BigEnd.dcm", "big endian"},
        {"test_files/MR_small_bigendian.dcm", "big endian"},
        {"test_files/MR_small_expb.dcm", "big endian"},
        {"test_files/liver_expb_1frame.dcm", "big endian"},
        {"test_files/rtdose_expb.dcm", "big endian"},
        {"test_files/rtdose_expb_1frame.dcm", "big endian"},
        {"test_files/dicomdirtests/DICOMDIR-bigEnd", "big endian"},
        {"test_files/image_dfl.dcm", "deflated"},
        {"test_files/MR_truncated.dcm", "malformed or truncated"},
        {"test_files/rtplan_truncated.dcm", "malformed or truncated"},
        {"test_files/meta_missing_tsyntax.dcm", "no transfer syntax"},
        // Data sets without the Part 10 preamble and "DICM".
        {"test_files/no_meta.dcm", "DICM"},
        {"test_files/rtstruct.dcm", "DICM"},
        {"test_files/ExplVR_LitEndNoMeta.dcm", "DICM"},
        {"test_files/ExplVR_BigEndNoMeta.dcm", "DICM"},
    };
    return refusals;
}

// Files of the corpus that are not DICOM at all.
bool IsNotDicom(const std::string& name)
{
    for (const char* tail : {".txt", ".json", ".dump", ".md", ".gz", ".py", "/README"})
        if (EndsWith(name, tail))
            return true;
    return false;
}
}

TEST(ParseCorpus, EveryFileLoadsOrIsRefusedForItsKnownReason)
{
    std::string corpus = parsefix::PydicomDataDir();
    if (corpus.empty())
        GTEST_SKIP() << "pydicom's sample data is not installed";
    std::vector<std::string> files;
    for (const char* folder : {"test_files", "charset_files", "palettes"})
        ListFiles(corpus + "/" + folder, std::string(folder) + "/", files);
    ASSERT_GT(files.size(), 100u);

    int loaded = 0, refused = 0;
    for (const std::string& name : files) {
        CDicomItem root(u"root");
        bool ok = root.LoadObject(Utf8ToUtf16(corpus + "/" + name));
        auto expected = ExpectedRefusals().find(name);
        if (expected != ExpectedRefusals().end() || IsNotDicom(name)) {
            std::string reason = expected != ExpectedRefusals().end() ? expected->second : "DICM";
            EXPECT_FALSE(ok) << name << " loads but is expected to be refused (" << reason << ")";
            EXPECT_NE(root.GetLoadError().find(reason), std::string::npos)
                << name << ": refused with '" << root.GetLoadError() << "', expected '" << reason << "'";
            ++refused;
            continue;
        }
        EXPECT_TRUE(ok) << name << ": " << root.GetLoadError();
        if (!ok)
            continue;
        ++loaded;
        // A loaded object has its meta information with a transfer syntax,
        // and a data set that is not empty.
        const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")));
        const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
        ASSERT_NE(header, nullptr) << name;
        ASSERT_NE(data, nullptr) << name;
        EXPECT_NE(header->GetTagItem(0x0002, 0x0010), nullptr) << name;
        EXPECT_GT(data->GetChildCount(), 0) << name;
        std::u16string file;
        EXPECT_TRUE(root.GetItemValue(std::u16string(u"File"), file)) << name;
    }
    // All 15 listed refusals exist in the corpus.
    for (const auto& [name, reason] : ExpectedRefusals())
        EXPECT_NE(std::find(files.begin(), files.end(), name), files.end()) << name << " is missing from the corpus";
    EXPECT_GE(loaded, 167);
    RecordProperty("loaded", loaded);
    RecordProperty("refused", refused);
}
