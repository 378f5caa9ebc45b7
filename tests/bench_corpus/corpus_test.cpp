// The generated benchmark corpus must be valid DICOM: it is what the
// benchmarks and the peer comparison read.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "bench/bench_util.h"
#include "bench/corpus.h"
#include "dicomdata/dicomitem.h"
#include "platform/text.h"

namespace {

class TempFolder {
public:
    TempFolder()
    {
        char pattern[] = "/tmp/zeldicom_corpus_XXXXXX";
        const char* made = mkdtemp(pattern);
        m_path = made ? made : "";
    }
    ~TempFolder()
    {
        if (!m_path.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_path, ignored);
        }
    }
    const std::string& Path() const { return m_path; }

private:
    std::string m_path;
};

std::u16string Wide(const std::string& text)
{
    return std::u16string(text.begin(), text.end());
}

std::string TextOf(const CDicomItem* dataSet, int group, int element)
{
    std::u16string text;
    if (!dataSet || !dataSet->GetTagValue(group, element, text))
        return "<absent>";
    std::string narrow(text.begin(), text.end());
    while (!narrow.empty() && (narrow.back() == ' ' || narrow.back() == '\0'))
        narrow.pop_back();
    return narrow;
}

CDicomItem* DataOf(const CDicomItem& root)
{
    return static_cast<CDicomItem*>(root.GetChildItem(u"Data"));
}

std::string ReadAll(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Items of the sequence (group, element) of a data set.
int ItemCount(const CDicomItem* dataSet, int group, int element)
{
    const CDicomItem* sequence = dataSet->GetTagItem(group, element);
    return sequence ? sequence->GetTagItemCount(0xFFFE, 0xE000) : -1;
}

TEST(BenchCorpus, SmallObjectsLoadWithARealisticHeader)
{
    TempFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    std::string sopInstances[2];
    for (int index = 0; index < 2; ++index) {
        const std::string path = folder.Path() + "/ct_" + std::to_string(index) + ".dcm";
        std::string error;
        ASSERT_TRUE(zelbench::WriteSmallCtFile(path, index, error)) << error;
        const auto size = std::filesystem::file_size(path);
        EXPECT_GE(size, 36u * 1024u);
        EXPECT_LE(size, 44u * 1024u);

        CDicomItem root(u"Object");
        ASSERT_TRUE(root.LoadObject(Wide(path))) << root.GetLoadError();
        const CDicomItem* data = DataOf(root);
        const CDicomItem* header = static_cast<CDicomItem*>(root.GetChildItem(u"Header"));
        ASSERT_NE(data, nullptr);
        ASSERT_NE(header, nullptr);
        const long elements = zelbench::CountElements(data);
        EXPECT_GE(elements, 100);
        EXPECT_LE(elements, 200);

        EXPECT_EQ(TextOf(header, 0x0002, 0x0010), zelbench::kExplicitLittleEndian);
        sopInstances[index] = TextOf(data, 0x0008, 0x0018);
        EXPECT_EQ(TextOf(header, 0x0002, 0x0003), sopInstances[index]);
        EXPECT_EQ(TextOf(data, 0x0020, 0x0013), std::to_string(index + 1));

        // Explicit VR: every element carries its VR, sequences were descended.
        EXPECT_EQ(ItemCount(data, 0x0008, 0x1032), 1);
        EXPECT_EQ(ItemCount(data, 0x0008, 0x1140), 3);
        EXPECT_EQ(ItemCount(data, 0x0008, 0x2112), 2);
        EXPECT_EQ(ItemCount(data, 0x0040, 0x0275), 1);
        const CDicomItem* procedure = data->GetTagItem(0x0008, 0x1032);
        const CDicomItem* code = procedure ? procedure->GetSequenceChildItemOptional(0x0008, 0x0104, 0) : nullptr;
        ASSERT_NE(code, nullptr);
        std::u16string meaning;
        EXPECT_TRUE(code->GetTagValue(meaning));
        EXPECT_EQ(meaning, u"CT Thorax with contrast");

        uint16_t rows = 0, columns = 0, bits = 0;
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0010, rows));
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0011, columns));
        EXPECT_TRUE(data->GetTagValue(0x0028, 0x0100, bits));
        const CDicomItem* pixels = data->GetTagItem(0x7FE0, 0x0010);
        ASSERT_NE(pixels, nullptr);
        EXPECT_EQ(pixels->GetVR(), "OW");
        EXPECT_EQ(pixels->GetDataSize(), rows * columns * bits / 8);
        EXPECT_EQ(rows, 128);
        EXPECT_EQ(bits, 16);
        EXPECT_EQ(root.m_sCharacterSet, "ISO_IR 100");
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
    ASSERT_FALSE(folder.Path().empty());
    const std::string path = folder.Path() + "/multiframe.dcm";
    const int frames = 3, rows = 8, columns = 16;
    std::string error;
    ASSERT_TRUE(zelbench::WriteMultiFrameFile(path, frames, rows, columns, error)) << error;
    const std::string bytes = ReadAll(path);
    const size_t frameBytes = static_cast<size_t>(rows) * columns * 2;
    ASSERT_EQ(bytes.size(), zelbench::MultiFrameHeader(frames, rows, columns).size() + frames * frameBytes);
    // The frames are distinct, so a tool cannot get away with one of them.
    const std::string last = bytes.substr(bytes.size() - frameBytes);
    const std::string previous = bytes.substr(bytes.size() - 2 * frameBytes, frameBytes);
    EXPECT_NE(last, previous);

    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Wide(path))) << root.GetLoadError();
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
    EXPECT_FALSE(zelbench::WriteMultiFrameFile(folder.Path() + "/huge.dcm", 8192, 512, 512, error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(std::filesystem::exists(folder.Path() + "/huge.dcm"));
}

// pydicom, an independent reader, finds the same elements and decodes the
// Latin-1 patient name the way Specific Character Set says.
TEST(BenchCorpus, PydicomSeesTheSameElements)
{
    if (std::system("/usr/bin/python3 -c 'import pydicom' >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "pydicom (python3-pydicom) is not installed";
    TempFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    const std::string path = folder.Path() + "/ct.dcm";
    std::string error;
    ASSERT_TRUE(zelbench::WriteSmallCtFile(path, 12, error)) << error;
    const std::string answer = folder.Path() + "/answer.txt";
    const std::string command = "/usr/bin/python3 -W error -c \"import pydicom,sys; d=pydicom.dcmread(sys.argv[1]); "
                                "print(len(list(d.iterall()))); print(str(d.PatientName)); print(d.NumberOfFrames "
                                "if 'NumberOfFrames' in d else len(d.PixelData))\" '" + path + "' >'" + answer + "' 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << ReadAll(answer);

    CDicomItem root(u"Object");
    ASSERT_TRUE(root.LoadObject(Wide(path))) << root.GetLoadError();
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
    EXPECT_EQ(ReadAll(answer), std::to_string(dataElements) + "\nM\xC3\xBCller^J\xC3\xBCrgen\n32768\n");
}

// DCMTK reads the generated objects without a single warning.
TEST(BenchCorpus, PeerReadsTheCorpusWithoutWarnings)
{
    if (std::system("command -v dcmdump >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "dcmdump (DCMTK) is not installed";
    TempFolder folder;
    ASSERT_FALSE(folder.Path().empty());
    std::string error;
    const std::string small = folder.Path() + "/ct.dcm";
    const std::string multi = folder.Path() + "/mf.dcm";
    ASSERT_TRUE(zelbench::WriteSmallCtFile(small, 5, error)) << error;
    ASSERT_TRUE(zelbench::WriteMultiFrameFile(multi, 2, 4, 4, error)) << error;
    for (const std::string& path : {small, multi}) {
        const std::string log = folder.Path() + "/stderr.txt";
        const std::string command = "dcmdump +M '" + path + "' >/dev/null 2>'" + log + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << path;
        EXPECT_EQ(ReadAll(log), "") << path;
    }
}

}  // namespace
