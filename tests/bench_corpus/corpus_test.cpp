// The generated benchmark corpus must be valid DICOM: it is what the
// benchmarks and the peer comparison read.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "platform/text.h"

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

std::string ReadAll(const std::string& path)
{
    parsefix::Bytes bytes = parsefix::ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string TextOf(const CDicomItem* dataSet, int group, int element)
{
    std::u16string text;
    if (!dataSet || !dataSet->GetTagValue(group, element, text))
        return "<absent>";
    return Utf16ToUtf8(Trim(text));
}

CDicomItem* DataOf(const CDicomItem& root) { return static_cast<CDicomItem*>(root.GetChildItem(u"Data")); }

// Items of the sequence (group, element) of a data set.
int ItemCount(const CDicomItem* dataSet, int group, int element)
{
    const CDicomItem* sequence = dataSet->GetTagItem(group, element);
    return sequence ? sequence->GetTagItemCount(0xFFFE, 0xE000) : -1;
}

TEST(BenchCorpus, SmallObjectsLoadWithARealisticHeader)
{
    TempFolder folder;
    ASSERT_FALSE(folder.path.empty());
    std::string sopInstances[2];
    for (int index = 0; index < 2; ++index) {
        const std::string path = folder.path + "/ct_" + std::to_string(index) + ".dcm";
        std::string error;
        ASSERT_TRUE(zelbench::WriteSmallCtFile(path, index, error)) << error;
        const auto size = std::filesystem::file_size(path);
        EXPECT_TRUE(size >= 36u * 1024u && size <= 44u * 1024u) << size;

        CDicomItem root(u"Object");
        ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(path))) << root.GetLoadError();
        const CDicomItem* data = DataOf(root);
        const auto* header = static_cast<CDicomItem*>(root.GetChildItem(u"Header"));
        ASSERT_TRUE(data && header);
        const long elements = zelbench::CountElements(data);
        EXPECT_TRUE(elements >= 100 && elements <= 200) << elements;
        EXPECT_EQ(TextOf(header, 0x0002, 0x0010), zelbench::kExplicitLittleEndian);
        sopInstances[index] = TextOf(data, 0x0008, 0x0018);
        EXPECT_EQ(TextOf(header, 0x0002, 0x0003), sopInstances[index]);
        EXPECT_EQ(TextOf(data, 0x0020, 0x0013), std::to_string(index + 1));
        EXPECT_EQ(root.m_sCharacterSet, "ISO_IR 100");

        // Explicit VR: every element carries its VR, sequences were descended.
        for (auto [element, items] : {std::pair{0x1032, 1}, {0x1140, 3}, {0x2112, 2}})
            EXPECT_EQ(ItemCount(data, 0x0008, element), items) << element;
        EXPECT_EQ(ItemCount(data, 0x0040, 0x0275), 1);
        const CDicomItem* code = data->GetTagItem(0x0008, 0x1032)->GetSequenceChildItemOptional(0x0008, 0x0104, 0);
        ASSERT_NE(code, nullptr);
        std::u16string meaning;
        EXPECT_TRUE(code->GetTagValue(meaning));
        EXPECT_EQ(meaning, u"CT Thorax with contrast");

        uint16_t rows = 0, columns = 0, bits = 0;
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0010, rows) && data->GetTagValue(0x0028, 0x0011, columns) &&
                    data->GetTagValue(0x0028, 0x0100, bits));
        const CDicomItem* pixels = data->GetTagItem(0x7FE0, 0x0010);
        ASSERT_NE(pixels, nullptr);
        EXPECT_EQ(pixels->GetVR(), "OW");
        EXPECT_EQ(pixels->GetDataSize(), rows * columns * bits / 8);
    }
    EXPECT_NE(sopInstances[0], sopInstances[1]);

    // The implicit VR form (read by the raw walker benchmarks) holds the
    // same elements; its private sequence is found by its undefined length.
    const std::string explicitSet = zelbench::SmallCtDataSet(41, true), implicitSet = zelbench::SmallCtDataSet(41, false);
    CDicomItem explicitData(u"Data"), implicitData(u"Data");
    EXPECT_EQ(explicitData.LoadTags(reinterpret_cast<const unsigned char*>(explicitSet.data()),
                                    static_cast<int>(explicitSet.size()), true, -1), explicitSet.size());
    EXPECT_EQ(implicitData.LoadTags(reinterpret_cast<const unsigned char*>(implicitSet.data()),
                                    static_cast<int>(implicitSet.size()), false, -1), implicitSet.size());
    EXPECT_EQ(zelbench::CountElements(&implicitData), zelbench::CountElements(&explicitData));
    EXPECT_EQ(ItemCount(&implicitData, 0x0040, 0x0275), 1);
}

TEST(BenchCorpus, MultiFrameObjectIsWrittenFrameByFrame)
{
    TempFolder folder;
    ASSERT_FALSE(folder.path.empty());
    const std::string path = folder.path + "/multiframe.dcm";
    const int frames = 3, rows = 8, columns = 16;
    std::string error;
    ASSERT_TRUE(zelbench::WriteMultiFrameFile(path, frames, rows, columns, error)) << error;
    const std::string bytes = ReadAll(path);
    const size_t frameBytes = static_cast<size_t>(rows) * columns * 2;
    ASSERT_EQ(bytes.size(), zelbench::MultiFrameHeader(frames, rows, columns).size() + frames * frameBytes);
    // The frames are distinct, so a tool cannot get away with one of them.
    EXPECT_NE(bytes.substr(bytes.size() - frameBytes), bytes.substr(bytes.size() - 2 * frameBytes, frameBytes));

    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(path))) << root.GetLoadError();
    const CDicomItem* data = DataOf(root);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(TextOf(data, 0x0028, 0x0008), "3");
    EXPECT_EQ(TextOf(data, 0x0008, 0x0016), zelbench::kMultiFrameWordScStorage);
    const CDicomItem* pixels = data->GetTagItem(0x7FE0, 0x0010);
    ASSERT_NE(pixels, nullptr);
    EXPECT_EQ(pixels->GetDataSize(), static_cast<int>(frames * frameBytes));
    // The pixel data is the last element and ends the file exactly.
    EXPECT_EQ(pixels->GetData() + pixels->GetDataSize(), root.GetData() + root.GetDataSize());

    // The full-size object fits a 32-bit length; sizes that do not are refused.
    EXPECT_EQ(zelbench::MultiFramePixelBytes(1024, 512, 512), 512u * 1024u * 1024u);
    EXPECT_EQ(zelbench::MultiFramePixelBytes(8192, 512, 512), 0u);
    EXPECT_FALSE(zelbench::WriteMultiFrameFile(folder.path + "/huge.dcm", 8192, 512, 512, error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(std::filesystem::exists(folder.path + "/huge.dcm"));
}

// pydicom, an independent reader, finds the same elements and decodes the
// Latin-1 patient name the way Specific Character Set says.
TEST(BenchCorpus, PydicomSeesTheSameElements)
{
    if (std::system("/usr/bin/python3 -c 'import pydicom' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "pydicom (python3-pydicom) is not installed";
    TempFolder folder;
    ASSERT_FALSE(folder.path.empty());
    const std::string path = folder.path + "/ct.dcm";
    std::string error;
    ASSERT_TRUE(zelbench::WriteSmallCtFile(path, 12, error)) << error;
    auto [status, answer] = parsefix::RunShell(
        "/usr/bin/python3 -W error -c \"import pydicom,sys; d=pydicom.dcmread(sys.argv[1]); "
        "print(len(list(d.iterall()))); print(str(d.PatientName)); print(d.NumberOfFrames "
        "if 'NumberOfFrames' in d else len(d.PixelData))\" '" + path + "'");
    ASSERT_EQ(status, 0) << answer;

    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Utf8ToUtf16(path))) << root.GetLoadError();
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
    const long dataElements = zelbench::CountElements(DataOf(root)) - markers;
    EXPECT_EQ(answer, std::to_string(dataElements) + "\nM\xC3\xBCller^J\xC3\xBCrgen\n32768\n");
}

// DCMTK reads the generated objects without a single warning.
TEST(BenchCorpus, PeerReadsTheCorpusWithoutWarnings)
{
    if (std::system("command -v dcmdump >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "dcmdump (DCMTK) is not installed";
    TempFolder folder;
    ASSERT_FALSE(folder.path.empty());
    std::string error, small = folder.path + "/ct.dcm", multi = folder.path + "/mf.dcm";
    ASSERT_TRUE(zelbench::WriteSmallCtFile(small, 5, error)) << error;
    ASSERT_TRUE(zelbench::WriteMultiFrameFile(multi, 2, 4, 4, error)) << error;
    for (const std::string& path : {small, multi}) {
        auto [status, complaints] = parsefix::RunShell("{ dcmdump +M '" + path + "' 2>&1 >/dev/null; }", false);
        EXPECT_EQ(status, 0) << path;
        EXPECT_EQ(complaints, "") << path;
    }
}

}  // namespace
