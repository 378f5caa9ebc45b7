// The raw scans and walkers survive pydicom's sample files cut short (their
// agreement with the element tree on the whole corpus: tests/corpus).
#include <gtest/gtest.h>

#include <algorithm>

#include "dicomdata/dicomitem.h"
#include "support/dicomwriter.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "platform/datainmemory.h"
#include "platform/text.h"

using namespace zeldicom;

// Real files cut at every early position and at steps further on, in
// exact-size copies: scans and walkers stay inside (the sanitizer build
// checks) and report nothing beyond the cut.
TEST(MetaScanCorpus, ScansAndWalkersSurviveCutFiles)
{
    std::string root = testsupport::PydicomDataDir();
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
