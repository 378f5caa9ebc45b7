// The raw scans agree with the element tree on pydicom's sample corpus, and
// survive its files cut short.
#include <gtest/gtest.h>

#include <algorithm>

#include "dicomdata/dicomitem.h"
#include "dicomdata/parse_fixtures.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/datainmemory.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {
bool IsNode(const CXmlItem* n, char16_t kind)
{
    return n->m_sName.size() == 5 && n->m_sName[0] == kind;
}
// Any element below node (at any depth) with the tag whose value is at value.
bool HoldsValueAt(const CXmlItem* node, int group, int element, const unsigned char* value)
{
    for (const CXmlItem* child : node->m_children) {
        if (IsNode(child, u'e') && CDicomItem::ParseGroupName(node->m_sName) == group &&
            CDicomItem::ParseElementName(child->m_sName) == element &&
            static_cast<const CDicomItem*>(child)->GetData() == value)
            return true;
        if ((IsNode(child, u'g') || IsNode(child, u'e')) && HoldsValueAt(child, group, element, value))
            return true;
    }
    return false;
}
}

// For every loadable file: GetMetaHeaderSize is where the parser's group 0002
// run ends, GetFileTransferSyntax is its (0002,0010), and GetDicomTag of each
// top-level element before the pixel data points at the value the tree
// holds (or at an earlier one of the same tag inside an undefined-length
// sequence, which the scan enters).
TEST(MetaScanCorpus, RawScansAgreeWithTheTree)
{
    std::string root = parsefix::PydicomDataDir();
    if (root.empty())
        FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)";
    int loaded = 0, compared = 0;
    for (const std::string& path : parsefix::CorpusFiles(root)) {
        CDataInMemory image(AsciiToWide(path));
        CDicomItem object(u"Object");
        if (!image.IsValid() || !object.LoadObject(image.GetData(), static_cast<int>(image.GetSize())))
            continue;
        const unsigned char* bytes = image.GetData();
        size_t size = static_cast<size_t>(image.GetSize());
        // Bare data sets have no meta information; a deflated data set is
        // not scanned raw.
        if (!DICOMINFO::HasDicomMetaHeader(bytes, size) ||
            DICOMINFO::GetFileTransferSyntax(AsciiToWide(path)) == u"1.2.840.10008.1.2.1.99")
            continue;
        ++loaded;
        SCOPED_TRACE(path);
        std::string vr = CTagTable::FindVR(bytes[132] | bytes[133] << 8, bytes[134] | bytes[135] << 8);
        bool explicitMeta = vr.empty() || (bytes[136] == vr[0] && bytes[137] == vr[1]);
        CDicomItem meta(u"Header");
        uint32_t metaBytes = meta.LoadTags(bytes + 132, static_cast<int>(size - 132), explicitMeta, 0x0002);
        EXPECT_EQ(DICOMINFO::GetMetaHeaderSize(bytes, size), 132 + metaBytes);
        // The meta information's transfer syntax, or without one the object's
        // inferred from the data set (the scan's default is the same).
        std::u16string syntax;
        if (!meta.GetTagValue(0x0002, 0x0010, syntax))
            static_cast<CDicomItem*>(object.GetChildItem(u"Header"))->GetTagValue(0x0002, 0x0010, syntax);
        EXPECT_EQ(DICOMINFO::GetFileTransferSyntax(AsciiToWide(path)), Trim(syntax));

        auto* data = static_cast<CDicomItem*>(object.GetChildItem(u"Data"));
        if (DICOMINFO::GetFirstTagAfterMetaHeader(bytes, size) != bytes + 132 + metaBytes)
            continue;  // a group length that is off
        for (const CXmlItem* groupNode : data->m_children) {
            int group = CDicomItem::ParseGroupName(groupNode->m_sName);
            for (const CXmlItem* node : groupNode->m_children) {
                int element = CDicomItem::ParseElementName(node->m_sName);
                if (group < 0 || element < 0 || group >= 0x7FE0)
                    continue;
                auto* e = static_cast<const CDicomItem*>(node);
                std::u16string found;
                const unsigned char* value = DICOMINFO::GetDicomTag(bytes, size, group, element, found);
                ASSERT_NE(value, nullptr) << FormatText("(%04X,%04X)", group, element);
                ++compared;
                bool same = value == e->GetData() || (!e->GetData() && found.empty());
                EXPECT_TRUE(same || (value < e->GetData() && HoldsValueAt(data, group, element, value)))
                    << FormatText("(%04X,%04X) at offset %td", group, element, value - bytes);
            }
        }
    }
    EXPECT_GT(loaded, 40);
    EXPECT_GT(compared, 1000);
}

// Real files cut at every early position and at steps further on, in
// exact-size copies: scans and walkers stay inside (the sanitizer build
// checks) and report nothing beyond the cut.
TEST(MetaScanCorpus, ScansAndWalkersSurviveCutFiles)
{
    std::string root = parsefix::PydicomDataDir();
    if (root.empty())
        FAIL() << "pydicom's sample data is not installed (scripts/setup installs it)";
    for (const char* name : {"CT_small.dcm", "rtplan.dcm", "MR_small_implicit.dcm", "nested_priv_SQ.dcm",
                             "ExplVR_BigEndNoMeta.dcm", "rtstruct.dcm"}) {
        CDataInMemory image(AsciiToWide(root + "/test_files/" + name));
        size_t size = image.IsValid() ? static_cast<size_t>(image.GetSize()) : 0;
        for (size_t cut = 0; cut <= size; cut += cut < 2048 ? 1 : 61) {
            std::vector<unsigned char> exact(image.GetData(), image.GetData() + cut);
            std::u16string text;
            const unsigned char* value = DICOMINFO::GetDicomTag(exact.data(), cut, 0x0010, 0x0010, text);
            EXPECT_TRUE(!value || (value >= exact.data() && value <= exact.data() + cut)) << name;
            DICOMINFO::FindTag(exact.data(), cut, 0x0028, 0x0010, text);
            size_t meta = DICOMINFO::GetMetaHeaderSize(exact.data(), cut);
            ASSERT_LE(meta, cut) << name;
            int remaining = static_cast<int>(cut - meta);
            DICOMINFO::ReadTags(exact.data() + meta, remaining, [](TAG_HEADER*, void*) {}, nullptr);
            CXmlItem display(u"ROOT", u"", "ISO_IR 100");
            EXPECT_LE(DICOMINFO::LoadDicomData(exact.data() + meta, remaining, &display), uint32_t(remaining));
        }
    }
}
