// The raw scans agree with the element tree on pydicom's sample corpus: the
// value GetDicomTag finds for each top-level element before the pixel data
// is the one the parser stored, the meta information size is where the
// parser starts the data set, and the file's transfer syntax is (0002,0010).
#include <gtest/gtest.h>
#include <dirent.h>

#include <algorithm>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/datainmemory.h"
#include "platform/text.h"

namespace {

std::vector<std::string> CorpusFiles()
{
    std::vector<std::string> files;
    std::string root = parsefix::PydicomDataDir();
    if (root.empty())
        return files;
    for (const char* sub : {"test_files", "charset_files", "palettes"}) {
        std::string dir = root + "/" + sub;
        if (DIR* d = opendir(dir.c_str())) {
            while (dirent* entry = readdir(d))
                if (entry->d_name[0] != '.')
                    files.push_back(dir + "/" + entry->d_name);
            closedir(d);
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

struct Element {
    int group;
    int element;
    const CDicomItem* node;
};

std::vector<Element> ElementsOf(const CDicomItem* dataSet)
{
    std::vector<Element> out;
    for (int g = 0; g < dataSet->GetChildCount(); ++g) {
        auto* groupNode = static_cast<const CDicomItem*>(dataSet->GetChildItem(g));
        int group = CDicomItem::ParseGroupName(groupNode->m_sName);
        if (group < 0)
            continue;
        for (int e = 0; e < groupNode->GetChildCount(); ++e) {
            auto* node = static_cast<const CDicomItem*>(groupNode->GetChildItem(e));
            int element = CDicomItem::ParseElementName(node->m_sName);
            if (element >= 0)
                out.push_back({group, element, node});
        }
    }
    return out;
}

// Every element node of the tree with the given tag, at any depth.
void CollectTag(const CXmlItem* node, int group, int element, std::vector<const CDicomItem*>& out)
{
    for (int i = 0; i < node->GetChildCount(); ++i) {
        const CXmlItem* child = node->GetChildItem(i);
        if (child->m_sName.size() == 5 && (child->m_sName[0] == u'g' || child->m_sName[0] == u'e')) {
            if (child->m_sName[0] == u'e' && CDicomItem::ParseElementName(child->m_sName) == element &&
                CDicomItem::ParseGroupName(node->m_sName) == group)
                out.push_back(static_cast<const CDicomItem*>(child));
            CollectTag(child, group, element, out);
        }
    }
}

// VRs whose explicit headers the raw scans cannot step over (they know only
// OB, OW, SQ and UN as long forms and read any other letters as implicit).
bool DerailsScan(const std::string& vr)
{
    for (const char* v : {"UT", "UC", "UR", "OF", "OD", "OL", "OV", "SV", "UV"})
        if (vr == v)
            return true;
    return false;
}

bool TreeUses(const CXmlItem* node, bool (*test)(const std::string&))
{
    for (int i = 0; i < node->GetChildCount(); ++i) {
        const CXmlItem* child = node->GetChildItem(i);
        if (child->m_sName.size() == 5 && child->m_sName[0] == u'e' &&
            test(static_cast<const CDicomItem*>(child)->GetVR()))
            return true;
        if (child->m_sName.size() == 5 && (child->m_sName[0] == u'g' || child->m_sName[0] == u'e') &&
            TreeUses(child, test))
            return true;
    }
    return false;
}

bool IsPlainTextVR(const std::string& vr)
{
    for (const char* v : {"UI", "CS", "DA", "TM", "IS", "DS", "AE", "AS"})
        if (vr == v)
            return true;
    return false;
}

}

TEST(MetaScanCorpus, RawScansAgreeWithTheTree)
{
    std::vector<std::string> files = CorpusFiles();
    if (files.empty())
        GTEST_SKIP() << "pydicom's sample data is not installed";
    int loaded = 0, compared = 0, skippedFiles = 0;
    for (const std::string& path : files) {
        CDataInMemory image(AsciiToWide(path));
        if (!image.IsValid() || image.GetSize() > 64u * 1024 * 1024)
            continue;
        const unsigned char* bytes = image.GetData();
        size_t size = static_cast<size_t>(image.GetSize());
        CDicomItem root(u"Object");
        if (!root.LoadObject(bytes, static_cast<int>(size)))
            continue;
        ++loaded;
        SCOPED_TRACE(path);
        auto* header = static_cast<CDicomItem*>(root.GetChildItem(u"Header"));
        auto* data = static_cast<CDicomItem*>(root.GetChildItem(u"Data"));
        ASSERT_TRUE(header && data);

        // The data set starts where the parser's group 0002 run ended.
        CDicomItem metaOnly(u"Header");
        std::string metaVR = CTagTable::FindVR(bytes[132] | bytes[133] << 8, bytes[134] | bytes[135] << 8);
        bool explicitMeta = metaVR.empty() || (bytes[136] == metaVR[0] && bytes[137] == metaVR[1]);
        uint32_t metaBytes = metaOnly.LoadTags(bytes + 132, static_cast<int>(size - 132), explicitMeta, 0x0002);
        ASSERT_NE(metaBytes, 0xFFFFFFFFu);
        EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(bytes, size), 132 + metaBytes);

        std::u16string syntax;
        ASSERT_TRUE(metaOnly.GetTagValue(0x0002, 0x0010, syntax));
        EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(AsciiToWide(path)), Trim(syntax));

        // GetDicomTag starts where the group length says the meta
        // information ends; files whose group length is off, or whose data
        // set holds VRs the scan cannot step over, are not compared.
        const unsigned char* first = DICOMINFO::GetFirstTagAfterMetaHeader(bytes, size);
        if (first != bytes + 132 + metaBytes || TreeUses(data, DerailsScan)) {
            ++skippedFiles;
            continue;
        }
        for (const Element& e : ElementsOf(data)) {
            if (e.group == 0x7FE0 && e.element == 0x0010)
                break;
            if (e.group == 0xFFFC || e.group == 0xFFFE)
                continue;
            SCOPED_TRACE(FormatText("(%04X,%04X)", e.group, e.element));
            std::u16string found;
            const unsigned char* value = DICOMINFO::GetDicomTag(bytes, size, static_cast<uint16_t>(e.group),
                                                                static_cast<uint16_t>(e.element), found);
            ASSERT_NE(value, nullptr);
            ++compared;
            if (e.node->GetData() && value == e.node->GetData()) {
                if (IsPlainTextVR(e.node->GetVR())) {
                    std::u16string stored;
                    e.node->GetTagValue(stored);
                    EXPECT_EQ(found, Trim(stored));
                }
                continue;
            }
            if (!e.node->GetData() && e.node->GetDataSize() <= 0 && found.empty() && value <= bytes + size) {
                // Empty or undefined-length values: nothing to point at.
                continue;
            }
            // Otherwise the scan stopped earlier at a nested element of the
            // same tag inside an undefined-length sequence.
            std::vector<const CDicomItem*> same;
            CollectTag(data, e.group, e.element, same);
            bool nested = std::any_of(same.begin(), same.end(), [&](const CDicomItem* n) {
                return n != e.node && n->GetData() == value;
            });
            EXPECT_TRUE(nested) << "value found at offset " << (value - bytes);
        }
    }
    EXPECT_GT(loaded, 40);
    EXPECT_GT(compared, 1000);
    RecordProperty("files", loaded);
    RecordProperty("elements", compared);
    RecordProperty("skipped_files", skippedFiles);
    std::printf("[ corpus   ] %d files loaded, %d elements compared, %d files not compared\n", loaded, compared,
                skippedFiles);
}

namespace {
void IgnoreTag(TAG_HEADER*, void*) {}
}

// Real files cut short at every early position and at steps further on:
// the scans and walkers stay inside each exact-size copy (the sanitizer
// build checks that) and never report a value past the cut.
TEST(MetaScanCorpus, ScansAndWalkersSurviveCutFiles)
{
    std::string root = parsefix::PydicomDataDir();
    if (root.empty())
        GTEST_SKIP() << "pydicom's sample data is not installed";
    for (const char* name : {"CT_small.dcm", "rtplan.dcm", "MR_small_implicit.dcm", "nested_priv_SQ.dcm",
                             "ExplVR_BigEndNoMeta.dcm", "rtstruct.dcm"}) {
        std::string path = root + "/test_files/" + name;
        CDataInMemory image(AsciiToWide(path));
        if (!image.IsValid())
            continue;
        SCOPED_TRACE(path);
        size_t size = static_cast<size_t>(image.GetSize());
        for (size_t cut = 0; cut <= size; cut += cut < 2048 ? 1 : 61) {
            std::vector<unsigned char> exact(image.GetData(), image.GetData() + cut);
            const unsigned char* p = exact.data();
            std::u16string text;
            const unsigned char* value = DICOMINFO::GetDicomTag(p, cut, 0x0010, 0x0010, text);
            if (value) {
                EXPECT_GE(value, p);
                EXPECT_LE(value, p + cut);
            }
            DICOMINFO::FindTag(p, cut, 0x0028, 0x0010, text);
            size_t meta = DICOMINFO::GetMetaHeaderSize(p, cut);
            EXPECT_LE(meta, cut);
            const unsigned char* dataSet = p + meta;
            int remaining = static_cast<int>(cut - meta);
            DICOMINFO::ReadTags(dataSet, remaining, IgnoreTag, nullptr);
            CXmlItem display(u"ROOT", u"", "ISO_IR 100");
            EXPECT_LE(DICOMINFO::LoadDicomData(dataSet, remaining, &display), static_cast<uint32_t>(remaining));
        }
    }
}
