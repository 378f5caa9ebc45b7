// The generated benchmark corpus must be valid DICOM: it is what the
// benchmarks and the peer comparison read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

struct TempFolder {
    std::string path;
    TempFolder()
    {
        char pattern[] = "/tmp/zeldicom_corpus_XXXXXX";
        path = mkdtemp(pattern) ? pattern : "";
    }
    ~TempFolder()
    {
        std::error_code ignored;
        if (!path.empty())
            std::filesystem::remove_all(path, ignored);
    }
};

CDicomItem* DataOf(const CDicomItem& root) { return static_cast<CDicomItem*>(root.GetChildItem(u"Data")); }

// The objects have the promised size and shape, and the peers read them:
// DCMTK without a warning, pydicom with the same elements and the Latin-1
// patient name decoded as Specific Character Set says.
TEST(BenchCorpus, ObjectsHaveTheirSizeAndPeersReadThem)
{
    TempFolder folder;
    ASSERT_FALSE(folder.path.empty());
    std::string error, small = folder.path + "/ct.dcm", multi = folder.path + "/mf.dcm";
    ASSERT_TRUE(zelbench::WriteSmallCtFile(small, 12, error)) << error;
    const int frames = 3, rows = 8, columns = 16;
    ASSERT_TRUE(zelbench::WriteMultiFrameFile(multi, frames, rows, columns, error)) << error;

    const auto size = std::filesystem::file_size(small);
    EXPECT_TRUE(size >= 36u * 1024u && size <= 44u * 1024u) << size;
    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(small))) << root.GetLastError().GetText();
    const long elements = zelbench::CountElements(DataOf(root));
    EXPECT_TRUE(elements >= 100 && elements <= 200) << elements;

    // The frames follow the header and end the file; they differ, so a tool
    // cannot get away with reading one of them.
    const parsefix::Bytes bytes = parsefix::ReadFile(multi);
    const size_t frameBytes = static_cast<size_t>(rows) * columns * 2;
    ASSERT_EQ(bytes.size(), zelbench::MultiFrameHeader(frames, rows, columns).size() + frames * frameBytes);
    EXPECT_FALSE(std::equal(bytes.end() - static_cast<long>(frameBytes), bytes.end(),
                            bytes.end() - 2 * static_cast<long>(frameBytes)));
    CDicomItem image(u"Object");
    ASSERT_TRUE(image.LoadObject(Utf8ToUtf16(multi))) << image.GetLastError().GetText();
    const CDicomItem* pixels = DataOf(image)->GetTagItem(0x7FE0, 0x0010);
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels->GetData() + pixels->GetDataSize(), image.GetData() + image.GetDataSize());
    // The full-size object fits a 32-bit length; sizes that do not are refused.
    EXPECT_EQ(zelbench::MultiFramePixelBytes(1024, 512, 512), 512u * 1024u * 1024u);
    EXPECT_FALSE(zelbench::WriteMultiFrameFile(folder.path + "/huge.dcm", 8192, 512, 512, error));
    EXPECT_FALSE(std::filesystem::exists(folder.path + "/huge.dcm"));

    // The implicit VR form (read by the raw walker benchmarks) holds the same elements.
    const std::string explicitSet = zelbench::SmallCtDataSet(41, true), implicitSet = zelbench::SmallCtDataSet(41, false);
    CDicomItem explicitData(u"Data"), implicitData(u"Data");
    EXPECT_EQ(explicitData.LoadTags(reinterpret_cast<const unsigned char*>(explicitSet.data()),
                                    static_cast<int>(explicitSet.size()), true, -1), explicitSet.size());
    EXPECT_EQ(implicitData.LoadTags(reinterpret_cast<const unsigned char*>(implicitSet.data()),
                                    static_cast<int>(implicitSet.size()), false, -1), implicitSet.size());
    EXPECT_EQ(zelbench::CountElements(&implicitData), zelbench::CountElements(&explicitData));

    ASSERT_EQ(std::system("command -v dcmdump >/dev/null 2>&1"), 0) << "dcmdump is needed (scripts/setup installs it)";
    ASSERT_EQ(std::system("/usr/bin/python3 -c 'import pydicom' >/dev/null 2>&1"), 0)
        << "pydicom is needed (scripts/setup installs it)";
    {
        for (const std::string& path : {small, multi}) {
            auto [status, complaints] = parsefix::RunShell("{ dcmdump +M '" + path + "' 2>&1 >/dev/null; }", false);
            EXPECT_EQ(status, 0) << path;
            EXPECT_EQ(complaints, "") << path;
        }
    }
    {
        auto [status, answer] = parsefix::RunShell(
            "/usr/bin/python3 -W error -c \"import pydicom,sys; d=pydicom.dcmread(sys.argv[1]); "
            "print(len(list(d.iterall()))); print(str(d.PatientName))\" '" + small + "'");
        ASSERT_EQ(status, 0) << answer;
        // pydicom counts data elements, not the items and delimiters around them.
        long markers = 0;
        std::function<void(const CXmlItem*)> countMarkers = [&](const CXmlItem* node) {
            for (const CXmlItem* child : node->m_children) {
                if (child->m_sName == u"gFFFE")
                    markers += child->GetChildCount();
                countMarkers(child);
            }
        };
        countMarkers(DataOf(root));
        EXPECT_EQ(answer, std::to_string(elements - markers) + "\nM\xC3\xBCller^J\xC3\xBCrgen\n");
    }
}

}  // namespace
