// Structured reports against their peers: pydicom's SR samples and DCMTK's
// re-encodings of them render every concept name, text, code meaning,
// number and unit that pydicom reads; what `sr resave` writes is read by
// DCMTK's dsrdump and dicom3tools' dciodvfy no worse than its source and
// renders the same; a report built by the library passes the same peers.
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

#include "dicomdata/dicomsettings.h"
#include "platform/apppath.h"
#include "platform/instancedata.h"
#include "platform/text.h"
#include "platform/xmlitem.h"
#include "sr/sr.h"
#include "support/cli.h"
#include "support/files.h"

using namespace testsupport;
using zeldicom::Utf16ToUtf8;
using zeldicom::Utf8ToUtf16;

namespace {

std::string Quote(const std::string& path)
{
    return "'" + path + "'";
}

// Lines of a peer's report that name a problem: dsrdump's "E:"/"F:" lines,
// dciodvfy's "Error" lines.
int CountLines(const std::string& output, const std::string& prefix1, const std::string& prefix2 = "\x01")
{
    int count = 0;
    for (const std::string& line : Lines(output))
        count += line.rfind(prefix1, 0) == 0 || line.rfind(prefix2, 0) == 0;
    return count;
}
int DsrdumpErrors(const std::string& path, int* status = nullptr)
{
    auto [code, output] = RunShell("dsrdump " + Quote(path));
    if (status)
        *status = code;
    return CountLines(output, "E:", "F:");
}
int DciodvfyErrors(const std::string& path)
{
    return CountLines(RunShell("dciodvfy " + Quote(path)).second, "Error");
}

void ExpectPeersReadWithoutError(const std::string& path)
{
    int status = -1;
    EXPECT_EQ(DsrdumpErrors(path, &status), 0) << RunShell("dsrdump " + Quote(path)).second;
    EXPECT_EQ(status, 0);
    EXPECT_EQ(DciodvfyErrors(path), 0) << RunShell("dciodvfy " + Quote(path)).second;
}

std::string Render(const std::string& path)
{
    CliResult result = RunCli({"sr", "render", path});
    EXPECT_EQ(result.status, 0) << path << ": " << result.err;
    return result.out;
}

class SrPeers : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(PydicomDataDir().empty()) << "pydicom and its sample files are needed";
        ASSERT_EQ(RunShell("command -v dsrdump dcmconv dciodvfy").first, 0) << "dcmtk and dicom3tools are needed";
    }

    // What `sr resave` writes from path: dsrdump reads it as well as the
    // source, dciodvfy finds no more errors, and it renders the same.
    void ExpectResaveKeepsTheReport(const std::string& path, const std::string& rendered)
    {
        std::string out = folder + "/resaved.dcm";
        CliResult resave = RunCli({"sr", "resave", path, out});
        ASSERT_EQ(resave.status, 0) << path << ": " << resave.err;
        int sourceStatus = 0, outStatus = 0;
        int sourceErrors = DsrdumpErrors(path, &sourceStatus);
        int outErrors = DsrdumpErrors(out, &outStatus);
        if (sourceStatus == 0) {
            EXPECT_EQ(outStatus, 0) << path;
        }
        EXPECT_LE(outErrors, sourceErrors) << path;
        EXPECT_LE(DciodvfyErrors(out), DciodvfyErrors(path)) << path;
        EXPECT_EQ(Render(out), rendered) << path;
    }

    ScratchFolder scratchFolder{"sr"};
    const std::string folder = scratchFolder.path;
};

TEST_F(SrPeers, SamplesAndTheirReencodingsRenderEveryValueAndSurviveResave)
{
    for (const char* name : {"test-SR.dcm", "reportsi.dcm", "reportsi_with_empty_number_tags.dcm"}) {
        std::string source = PydicomDataDir() + "/test_files/" + name;
        auto [oracleStatus, oracle] = RunShell("/usr/bin/python3 " + Quote(std::string(ZELDICOM_SOURCE_DIR) +
                                                                             "/tests/sr/sr_render_oracle.py") +
                                                   " " + Quote(source),
                                               false);
        std::vector<std::string> expected = Lines(oracle);
        ASSERT_EQ(oracleStatus, 0) << name;
        ASSERT_GT(expected.size(), 5u) << name;

        // DCMTK's re-encodings: implicit VR, and defined or undefined lengths.
        std::vector<std::string> variants{source};
        for (const char* options : {"+ti +e", "+ti -e", "+te +e"}) {
            std::string variant = folder + "/" + std::to_string(variants.size()) + "-" + name;
            ASSERT_EQ(RunShell(std::string("dcmconv ") + options + " " + Quote(source) + " " + Quote(variant)).first,
                      0);
            variants.push_back(variant);
        }
        std::string first;
        for (const std::string& variant : variants) {
            SCOPED_TRACE(variant);
            std::string rendered = Render(variant);
            for (const std::string& text : expected)
                EXPECT_NE(rendered.find(text), std::string::npos) << "missing: " << text;
            if (first.empty())
                first = rendered;
            EXPECT_EQ(rendered, first) << "an encoding changes what is shown";
            ExpectResaveKeepsTheReport(variant, rendered);
        }
    }
}

// A dictionary in a configuration folder of the test's own.
void UseDictionary(const std::string& folder)
{
    WriteFile(folder + "/srcode.xml",
              [] {
                  std::string xml =
                      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Codes>\n"
                      " <Scheme><Designator>DCM</Designator>\n"
                      "  <Code><Value>126000</Value><en>Imaging Measurement Report</en></Code>\n"
                      "  <Code><Value>121071</Value><en>Finding</en></Code>\n"
                      "  <Code><Value>121008</Value><en>Person Observer Name</en></Code>\n"
                      "  <Code><Value>111060</Value><en>Study Date</en></Code>\n"
                      "  <Code><Value>111061</Value><en>Study Time</en></Code>\n"
                      "  <Code><Value>121112</Value><en>Source of Measurement</en></Code>\n"
                      "  <Code><Value>113012</Value><en>Key Object Description</en></Code>\n"
                      "  <Code><Value>121070</Value><en>Findings</en></Code>\n"
                      " </Scheme>\n"
                      " <Scheme><Designator>SCT</Designator>\n"
                      "  <Code><Value>410668003</Value><en>Length</en></Code>\n"
                      "  <Code><Value>4147007</Value><en>Mass</en></Code>\n"
                      " </Scheme>\n"
                      " <Scheme><Designator>UCUM</Designator><Version>1.4</Version>\n"
                      "  <Code><Value>mm</Value><en>millimeter</en></Code>\n"
                      " </Scheme>\n</Codes>\n";
                  return Bytes(xml.begin(), xml.end());
              }());
    CAppPath::GetAppPathInstance().SetPath(u"config", Utf8ToUtf16(folder + "/"));
    CSR::g_dictionary.Free();
}

constexpr const char* kCtImage = "1.2.840.10008.5.1.4.1.1.2";

// An Enhanced SR: general modules from the host's description, then the
// content tree with every value type the builder writes, nested containers
// and references. With hostAttributes, the host also sets the document's
// root item, flags and evidence itself.
std::unique_ptr<CSR> BuildReport(CXmlItem& patient, bool hostAttributes = true)
{
    patient.AddItem(u"LastName", u"Doe", "");
    patient.AddItem(u"FirstName", u"Jane", "");
    patient.AddItem(u"PatientID", u"P-17", "");
    patient.AddItem(u"BirthDate", 19700412L, "");
    patient.AddItem(u"Sex", u"female", "");
    CXmlItem* study = patient.AddItem(u"Study", u"", "");
    study->AddItem(u"StudyDate", 20240102L, "");
    study->AddItem(u"StudyTime", 93000L, "");
    study->AddItem(u"StudyInstanceUID", u"1.2.826.0.1.3680043.2.1125.1.17", "");
    study->AddItem(u"AccessionNumber", u"A-1", "");

    // The identity settings a host makes before it builds anything.
    CDicomInfoStatics::SetDicomRoot(u"1.2.826.0.1.3680043.2.1125");
    CDicomInfoStatics::SetDicomCompanyName(u"ZelDicom tests");
    CDicomInfoStatics::SetDicomApplicationName(u"sr_test");
    auto report = std::make_unique<CSR>();
    EXPECT_TRUE(report->Init("1.2.840.10008.5.1.4.1.1.88.22"));
    EXPECT_TRUE(report->FillGeneralData(study, u""));
    // The document's own root item and SR Document General attributes,
    // which the host sets on the data set.
    CDicomItem* data = report->GetDataItem();
    CSR::InsertCodeItem(data->InsertSequence(0x0040, 0xA043), "126000", "DCM", "");
    if (hostAttributes) {
        data->ReplaceTag(0x0040, 0xA040, u"CONTAINER", u"CS");
        data->ReplaceTag(0x0040, 0xA050, u"SEPARATE", u"CS");
        data->ReplaceTag(0x0040, 0xA491, u"COMPLETE", u"CS");
        data->ReplaceTag(0x0040, 0xA493, u"UNVERIFIED", u"CS");
    }
    // The evidence only the host knows: the study and series of the
    // instances the content references (PS3.3 C.17.2.3).
    {
        CDicomItem* evidence = data->InsertSequence(0x0040, 0xA375)->InsertSequenceItem();
        evidence->ReplaceTag(0x0020, 0x000D, u"1.2.826.0.1.3680043.2.1125.1.17", u"UI");
        CDicomItem* series = evidence->InsertSequence(0x0008, 0x1115)->InsertSequenceItem();
        series->ReplaceTag(0x0020, 0x000E, u"1.2.826.0.1.3680043.2.1125.1.17.1", u"UI");
        CDicomItem* instances = series->InsertSequence(0x0008, 0x1199);
        for (const char16_t* uid : {u"1.2.826.0.1.3680043.2.1125.1.21", u"1.2.826.0.1.3680043.2.1125.1.22",
                                    u"1.2.826.0.1.3680043.2.1125.1.23"}) {
            CDicomItem* reference = instances->InsertSequenceItem();
            reference->ReplaceTag(0x0008, 0x1150, Utf8ToUtf16(kCtImage), u"UI");
            reference->ReplaceTag(0x0008, 0x1155, uid, u"UI");
        }
    }

    CSR::AddNode(data, "HAS OBS CONTEXT", "PNAME", "121008", "DCM", "Smith^John^M");
    CSR::AddNode(data, "HAS OBS CONTEXT", "DATE", "111060", "DCM", "20240102");
    CSR::AddNode(data, "HAS OBS CONTEXT", "TIME", "111061", "DCM", "093015");
    CDicomItem* findings = CSR::AddContainer(data, "CONTAINS", "SEPARATE", "121070", "DCM");
    CDicomItem* finding = CSR::AddCodeNode(findings, "CONTAINS", "121071", "DCM", "4147007", "SCT");
    CDicomItem* size = CSR::AddNumNode(finding, "HAS PROPERTIES", "410668003", "SCT", "mm", "UCUM", "1.4", "12.5");
    CSR::AddImageNode(size, "INFERRED FROM", kCtImage, "1.2.826.0.1.3680043.2.1125.1.22");
    CDicomItem* nested = CSR::AddContainer(findings, "CONTAINS", "CONTINUOUS", "121070", "DCM");
    CSR::AddNode(nested, "CONTAINS", "TEXT", "113012", "DCM", "Round mass\r\nin the left lobe");
    CSR::AddImageNode(data, "CONTAINS", kCtImage, "1.2.826.0.1.3680043.2.1125.1.21");
    CSR::AddCompositeNode(data, "CONTAINS", "121112", "DCM", kCtImage, "1.2.826.0.1.3680043.2.1125.1.22");
    CSR::AddImageNode(data, "CONTAINS", kCtImage, "1.2.826.0.1.3680043.2.1125.1.23");
    return report;
}

TEST_F(SrPeers, ReportBuiltByTheLibraryIsReadByPeersRendersAsBuiltAndNavigates)
{
    UseDictionary(folder);
    CXmlItem patient(u"Patient", u"", "");
    std::unique_ptr<CSR> report = BuildReport(patient);
    std::string path = folder + "/built.dcm";
    ASSERT_TRUE(report->Save(Utf8ToUtf16(path)));

    ExpectPeersReadWithoutError(path);

    // The library's drawing of the tree in memory and the command's drawing
    // of the saved file agree, and show what was built.
    CSRTextContext drawn;
    SR_LAYOUT layout;
    layout.bIndent = layout.bRelationship = layout.bIsoDates = true;
    report->Draw(drawn, layout);
    std::string rendered = Render(path);
    EXPECT_EQ(rendered, drawn.GetText());
    for (const char* shown :
         {"Patient's Name : Doe Jane", "Imaging Measurement Report", "  (HAS OBS CONTEXT) Person Observer Name : Smith John",
          "Study Date : 2024-01-02", "Study Time : 09:30:15", "Patient's Birth Date : 1970-04-12", "  (CONTAINS) Findings", "    (CONTAINS) Finding : Mass",
          "      (HAS PROPERTIES) Length : 12.5 millimeter",
          "        (INFERRED FROM) : CT Image Storage 1.2.826.0.1.3680043.2.1125.1.22",
          "(CONTAINS) Key Object Description : Round mass\n", "in the left lobe",
          "(CONTAINS) Source of Measurement : CT Image Storage 1.2.826.0.1.3680043.2.1125.1.22"})
        EXPECT_NE(rendered.find(shown), std::string::npos) << "missing: " << shown << "\n" << rendered;
    ExpectResaveKeepsTheReport(path, rendered);

    // The reading operations on the same tree, and the drawing's plain layout.
    const CDicomItem* data = report->GetDataItem();

    std::string text = "untouched", value, scheme;
    EXPECT_EQ(CSR::GetNode(data, "121070", "dcm", 0), CSR::GetNode(data, 3));
    EXPECT_EQ(CSR::SearchNode(data->GetTagItem(0x0040, 0xA730), "121070", "dcm"), nullptr);
    const CDicomItem* findings = CSR::GetNode(data, "121070", "DCM", 0);
    EXPECT_EQ(CSR::GetNode(findings, "121070", "DCM", 0), CSR::GetNode(findings, 1));  // the second child
    EXPECT_FALSE(CSR::GetNodeData(findings, text, true));
    EXPECT_EQ(text, "untouched");
    EXPECT_TRUE(CSR::GetNodeData(data, "121008", "DCM", text, 0));
    EXPECT_EQ(text, "Smith^John^M");
    EXPECT_TRUE(CSR::GetNodeData(CSR::GetNode(data, 0), text, true));
    EXPECT_EQ(text, "Smith John");
    EXPECT_TRUE(CSR::GetNodeData(CSR::GetNode(data, 2), text, true));
    EXPECT_EQ(text, "09:30");
    EXPECT_TRUE(CSR::GetNodeCodeData(findings, "121071", "DCM", value, scheme));
    EXPECT_EQ(value + "/" + scheme, "4147007/SCT");
    EXPECT_TRUE(CSR::GetNodeCompositeData(data, "121112", "DCM", value, scheme));
    EXPECT_EQ(scheme, "1.2.826.0.1.3680043.2.1125.1.22");
    // The unit's code item carries its version; an unknown code its value as meaning.
    const CDicomItem* unit = CSR::GetNode(CSR::GetNode(findings, 0), 0)
                                 ->GetSequenceItem(0x0040, 0xA300)
                                 ->GetSequenceItem(0x0040, 0x08EA);
    std::u16string version;
    EXPECT_TRUE(unit->GetTagValue(0x0008, 0x0103, version));

    // Top-level images only, in document order (the list: last first).
    std::vector<std::u16string> images;
    report->FillImageList(images);
    std::vector<CInstanceData*> instances;
    report->FillInstanceFinding(instances);
    ASSERT_EQ(images.size(), 2u);
    ASSERT_EQ(instances.size(), 2u);
    EXPECT_EQ(images[0], u"1.2.826.0.1.3680043.2.1125.1.23");
    EXPECT_EQ(instances[0]->m_sSOPInstanceUID, u"1.2.826.0.1.3680043.2.1125.1.21");
    EXPECT_EQ(instances[1]->m_sSOPInstanceUID, images[0]);
    for (CInstanceData* instance : instances)
        delete instance;
    std::u16string sex, modality;
    data->GetTagValue(0x0010, 0x0040, sex);
    data->GetTagValue(0x0008, 0x0060, modality);
    EXPECT_EQ(sex + u"/" + modality, u"F/SR");

    // The plain layout: header lines, one blank line, the title and one line
    // per item, not indented; the extent is the widest line by all of them.
    CSRTextContext plain;
    SR_EXTENT extent = report->Draw(plain);
    ASSERT_EQ(static_cast<size_t>(extent.cy), plain.m_lines.size());
    size_t widest = 0, blank = 0;
    for (size_t i = 0; i < plain.m_lines.size(); ++i) {
        widest = std::max(widest, plain.m_lines[i].size());
        if (plain.m_lines[i].empty() && blank == 0)
            blank = i;
    }
    EXPECT_EQ(static_cast<size_t>(extent.cx), widest);
    EXPECT_EQ(blank, 9u);  // the nine header attributes are all present
    EXPECT_EQ(Utf16ToUtf8(plain.m_lines[blank + 1]), "Imaging Measurement Report");
    EXPECT_EQ(Utf16ToUtf8(plain.m_lines[blank + 5]), "Findings");

    // Without patient attributes the title is the first line.
    CDicomItem* writable = report->GetDataItem();
    for (int element : {0x0010, 0x0020, 0x0030, 0x0040})
        writable->RemoveTag(0x0010, element);
    for (int element : {0x0090, 0x0023, 0x0033})
        writable->RemoveTag(0x0008, element);
    writable->RemoveTag(0x0040, 0xA491);
    writable->RemoveTag(0x0040, 0xA493);
    CSRTextContext bare;
    report->Draw(bare);
    EXPECT_EQ(Utf16ToUtf8(bare.m_lines.at(0)), "Imaging Measurement Report");
}

// The same report without a code dictionary and without the host's own
// root item and flags: what the library writes is what dsrdump and
// dciodvfy read without error.
TEST_F(SrPeers, ReportBuiltWithoutConfigurationOrHostAttributesIsValid)
{
    CAppPath::GetAppPathInstance().SetPath(u"config", Utf8ToUtf16(folder + "/"));
    CSR::g_dictionary.Free();
    CXmlItem patient(u"Patient", u"", "");
    std::unique_ptr<CSR> report = BuildReport(patient, false);
    std::string path = folder + "/bare.dcm";
    ASSERT_TRUE(report->Save(Utf8ToUtf16(path)));
    ExpectPeersReadWithoutError(path);
    // A code without a dictionary meaning keeps its value as the meaning.
    CDicomItem scratch(u"Data");
    const CDicomItem* unknown = CSR::InsertCodeItem(scratch.InsertSequence(0x0008, 0x0100), "X", "99LOCAL", "");
    std::u16string meaning;
    EXPECT_TRUE(unknown->GetTagValue(0x0008, 0x0104, meaning));
    EXPECT_EQ(zeldicom::Trim(meaning), u"X");
    EXPECT_EQ(unknown->GetTagItem(0x0008, 0x0103), nullptr);
}

// Content nested far deeper than any report, built in memory (the parser
// refuses such files): drawing stops at its depth limit.
TEST(SrHostile, DeepContentTreeDrawsBoundedOutput)
{
    CSR report;
    ASSERT_TRUE(report.Init("1.2.840.10008.5.1.4.1.1.88.11"));
    CDicomItem* node = report.GetDataItem();
    for (int depth = 0; depth < 500; ++depth)
        node = CSR::AddContainer(node, "CONTAINS", "SEPARATE", "", "");
    CSRTextContext text;
    SR_EXTENT extent = report.Draw(text);
    EXPECT_LT(extent.cy, 100);
    EXPECT_EQ(Utf16ToUtf8(text.m_lines.back()), "...");
}

}  // namespace
