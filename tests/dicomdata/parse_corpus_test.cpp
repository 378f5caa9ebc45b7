// Every file of pydicom's sample corpus either loads or is refused for the
// reason listed here; a file that starts failing (or starts loading when it
// should not) shows up by name.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "dicomdata/dicomitem.h"
#include "parse_fixtures.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
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
        {"test_files/ExplVR_BigEndNoMeta.dcm", "big endian"},
        {"test_files/MR_truncated.dcm", "reading stopped at element (7FE0,0010), byte offset 1488"},
        {"test_files/rtplan_truncated.dcm", "reading stopped at element (300A,012C), byte offset 2092"},
        // One byte too many before its first element: no data set at the start.
        {"test_files/no_meta.dcm", "DICM"},
    };
    return refusals;
}

// Files of the corpus that are not DICOM at all.
bool IsNotDicom(const std::string& name)
{
    for (std::string tail : {".txt", ".json", ".dump", ".md", ".gz", ".py", "/README"})
        if (name.size() >= tail.size() && name.compare(name.size() - tail.size(), tail.size(), tail) == 0)
            return true;
    return false;
}
}

TEST(ParseCorpus, EveryFileLoadsOrIsRefusedForItsKnownReason)
{
    std::string corpus = parsefix::PydicomDataDir();
    if (corpus.empty())
        FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)";
    std::vector<std::string> files = parsefix::CorpusFiles(corpus);
    for (std::string& path : files)
        path.erase(0, corpus.size() + 1);
    ASSERT_GT(files.size(), 100u);

    int loaded = 0, refused = 0;
    for (const std::string& name : files) {
        CDicomItem root(u"root");
        bool ok = root.LoadObject(Utf8ToUtf16(corpus + "/" + name));
        auto expected = ExpectedRefusals().find(name);
        if (expected != ExpectedRefusals().end() || IsNotDicom(name)) {
            std::string reason = expected != ExpectedRefusals().end() ? expected->second : "DICM";
            EXPECT_FALSE(ok) << name << " loads but is expected to be refused (" << reason << ")";
            EXPECT_NE(root.GetLastError().GetText().find(reason), std::string::npos) << name << ": " << root.GetLastError().GetText();
            ++refused;
            continue;
        }
        EXPECT_TRUE(ok) << name << ": " << root.GetLastError().GetText();
        // A loaded object has its meta information with a transfer syntax,
        // a data set that is not empty, and its file name.
        const auto* header = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Header")));
        const auto* data = static_cast<const CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
        std::u16string file;
        EXPECT_TRUE(!ok || (header && data && header->GetTagItem(0x0002, 0x0010) && data->GetChildCount() > 0 &&
                            root.GetItemValue(std::u16string(u"File"), file)))
            << name << " lacks its transfer syntax, data set or file name";
        loaded += ok ? 1 : 0;
    }
    // All listed refusals exist in the corpus.
    for (const auto& [name, reason] : ExpectedRefusals())
        EXPECT_NE(std::find(files.begin(), files.end(), name), files.end()) << name << " is missing from the corpus";
    EXPECT_GE(loaded, 171);
    RecordProperty("loaded", loaded);
    RecordProperty("refused", refused);
}
