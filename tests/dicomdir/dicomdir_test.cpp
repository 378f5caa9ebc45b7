// DICOMDIR files: the model (records added under their patient, study and
// series, walked by type and position), the links through load and save,
// the searches, and `zeldicom dicomdir`, judged by pydicom's FileSet,
// dcmdump, dciodvfy and dcmmkdir.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/directoryrecords.h"
#include "dicomdir/dicomdirex.h"
#include "dicomdir/dicomdirindex.h"
#include "dicomdir/dicomfsr.h"
#include "platform/text.h"
#include "support/cli.h"
#include "support/fileset.h"

using namespace testsupport;
using namespace zeldicom;
namespace fs = std::filesystem;

namespace {
const std::string kOracle = std::string(ZELDICOM_SOURCE_DIR) + "/tests/dicomdir/fileset_tree.py";

CliResult Oracle(const std::vector<std::string>& args)
{
    std::vector<std::string> all = {kOracle};
    all.insert(all.end(), args.begin(), args.end());
    return RunCli(all, "/usr/bin/python3");
}

std::vector<std::string> Types(const CDicomDirEx& dir)
{
    std::vector<std::string> types;
    for (int i = 0; CDicomItem* record = dir.GetRecord(i); ++i) {
        std::u16string type;
        record->GetTagValue(0x0004, 0x1430, type);
        types.push_back(Utf16ToUtf8(Trim(type)));
    }
    return types;
}

bool AddInstance(CDicomDirEx& dir, const std::u16string& fileId, const InstanceKeys& keys)
{
    std::unique_ptr<CDicomItem> instance(MakeInstance(keys));
    return dir.Add(fileId, instance.get());
}

uint32_t LinkOf(const CDicomItem* node, int element)
{
    const CDicomItem* item = node->GetTagItem(0x0004, element);
    return item && item->GetDataSize() == 4 ? static_cast<uint32_t>(item->GetData()[0] | item->GetData()[1] << 8 |
                                                                    item->GetData()[2] << 16 | item->GetData()[3] << 24)
                                            : 0xFFFFFFFFu;
}

void PutLink(Bytes& file, uint32_t at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        file[at + static_cast<uint32_t>(i)] = static_cast<unsigned char>(value >> (8 * i));
}
}

TEST(DicomDirModel, AddsUnderPatientStudyAndSeriesAndWalksByPosition)
{
    CDicomDirEx empty;
    EXPECT_EQ(empty.GetRecordCount("PATIENT", 0), -1);
    EXPECT_FALSE(empty.Add(u"X", nullptr));

    CDicomDirEx dir;
    ASSERT_TRUE(dir.Init());
    EXPECT_TRUE(AddInstance(dir, u"A\\1", {1, 1, 1, 1}));
    EXPECT_TRUE(AddInstance(dir, u"A\\2", {1, 1, 1, 2}));
    EXPECT_TRUE(AddInstance(dir, u"A\\2", {1, 1, 1, 2}));  // the same instance again adds nothing
    EXPECT_TRUE(AddInstance(dir, u"A\\3", {1, 1, 1, 3, "SR"}));
    EXPECT_TRUE(AddInstance(dir, u"A\\4", {1, 1, 1, 4, "ko"}));
    EXPECT_TRUE(AddInstance(dir, u"B\\1", {2, 1, 1, 1}));
    // A new study of the first patient goes after that patient's records,
    // not after the second patient's, where it would belong to that one.
    EXPECT_TRUE(AddInstance(dir, u"A\\5", {1, 2, 1, 1}));
    EXPECT_TRUE(AddInstance(dir, u"A\\6", {1, 1, 1, 5}));
    EXPECT_EQ(Types(dir), (std::vector<std::string>{"PATIENT", "STUDY", "SERIES", "IMAGE", "IMAGE", "SR DOCUMENT",
                                                    "KEY OBJECT DOC", "IMAGE", "STUDY", "SERIES", "IMAGE", "PATIENT",
                                                    "STUDY", "SERIES", "IMAGE"}));
    // The series' images, passing over its documents, up to the next patient.
    EXPECT_EQ(dir.GetRecordCount("IMAGE", 3), 3);
    EXPECT_EQ(dir.GetRecordCount("image", 3), 2);  // of level 6: the SR DOCUMENT record ends the walk
    EXPECT_EQ(dir.GetRecordPos("IMAGE", 3, 1), 4);
    EXPECT_EQ(dir.GetRecordPos("IMAGE", 3, 2), 7);
    EXPECT_EQ(dir.GetRecordPos("IMAGE", 3, 3), -1);
    EXPECT_EQ(dir.GetRecordCount("STUDY", 1), 2);
    EXPECT_EQ(dir.GetRecordCount("STUDY", 12), 1);
    EXPECT_EQ(dir.GetRecordCount("PATIENT", 0), 2);
    EXPECT_EQ(dir.GetRecordPos(dir.GetRecord(9), 0), 9);
    EXPECT_EQ(dir.GetRecordPos(dir.GetRecord(9), 10), -1);
    EXPECT_EQ(CDicomDirEx::GetRecordLevel("Image"), 6);
    EXPECT_EQ(CDicomDirEx::GetRecordType("SR DOCUMENT"), 5);

    // The records carry the instance's keys; the finder answers its file ID.
    CDicomItem* image = dir.GetRecord(4);
    std::u16string value;
    ASSERT_TRUE(image->GetTagValue(0x0004, 0x1511, value));
    EXPECT_EQ(Trim(value), Utf8ToUtf16(KeyUid("4", {1, 1, 1, 2})));
    ASSERT_TRUE(image->GetTagValue(0x0028, 0x0004, value));
    EXPECT_EQ(Trim(value), u"MONOCHROME2");
    EXPECT_TRUE(dir.GetRecord(5)->GetTagItem(0x0040, 0xA043));
    // An instance without the UIDs its records need is refused with the reason.
    std::unique_ptr<CDicomItem> incomplete(MakeInstance({5, 1, 1, 1}));
    static_cast<CDicomItem*>(incomplete->GetChildItem(std::u16string(u"Data")))->RemoveTag(0x0020, 0x000E);
    EXPECT_FALSE(dir.Add(u"C\\1", incomplete.get()));
    EXPECT_NE(dir.GetLastError().GetText().find("Series Instance UID"), std::string::npos);
    EXPECT_EQ(dir.GetRecordCount("PATIENT", 0), 2);
    CInstanceFinderDdir finder(&dir);
    std::u16string fileId = u"untouched";
    EXPECT_TRUE(finder.Find(u"1.2.840.10008.5.1.4.1.1.7", Utf8ToUtf16(KeyUid("4", {1, 1, 1, 2})), fileId));
    EXPECT_EQ(fileId, u"A\\2");
    EXPECT_EQ(finder.FindItem(u"1.2.840.10008.5.1.4.1.1.88.59", Utf8ToUtf16(KeyUid("4", {1, 1, 1, 4}))),
              dir.GetRecord(6));
    EXPECT_EQ(finder.FindItem(u"", Utf8ToUtf16(KeyUid("4", {1, 1, 1, 2}))), nullptr);
    EXPECT_EQ(finder.FindItem(u"1.2.840.10008.5.1.4.1.1.7", u"1.2.3"), nullptr);

    // Saved and loaded again: the links give the same records in the same order.
    ScratchFolder folder("dicomdir-model");
    std::string path = folder.path + "/DICOMDIR";
    ASSERT_TRUE(dir.m_pRoot->SaveToFile(Utf8ToUtf16(path)));
    CDicomDirEx loaded;
    ASSERT_TRUE(loaded.Load(Utf8ToUtf16(path)));
    EXPECT_EQ(Types(loaded), Types(dir));
    long secondPatient = 0;
    ASSERT_TRUE(dir.GetRecord(11)->GetItemValue(u"Offset", secondPatient));
    EXPECT_EQ(LinkOf(dir.m_pData, 0x1202), static_cast<uint32_t>(secondPatient));
    EXPECT_EQ(LinkOf(loaded.m_pData, 0x1202), static_cast<uint32_t>(secondPatient));
    // An empty directory saves with both root offsets 0.
    CDicomDirEx fresh;
    ASSERT_TRUE(fresh.Init());
    ASSERT_TRUE(fresh.m_pRoot->SaveToFile(Utf8ToUtf16(path)));
    ASSERT_TRUE(loaded.Load(Utf8ToUtf16(path)));
    EXPECT_EQ(LinkOf(loaded.m_pData, 0x1200), 0u);
    EXPECT_EQ(LinkOf(loaded.m_pData, 0x1202), 0u);
    EXPECT_EQ(loaded.GetRecordCount("PATIENT", 0), 0);
}

// Hostile links: a cycle, an offset past the end of the file, a record that
// two records link to. Loading answers what the links reach, once each.
TEST(DicomDirModel, HostileLinksAndFileIdsStayInsideTheFileSet)
{
    CDicomDirEx dir;
    ASSERT_TRUE(dir.Init());
    for (int i = 1; i <= 3; ++i)
        AddInstance(dir, u"IMG\\" + Utf8ToUtf16(std::to_string(i)), {1, 1, 1, i});
    // A file ID that climbs out of the folder, and one that is absolute.
    AddInstance(dir, u"..\\..\\ETC\\PASSWD", {1, 1, 1, 4});
    AddInstance(dir, u"X", {1, 1, 1, 5});
    dir.GetRecord(7)->GetTagItem(0x0004, 0x1500)->CopyData(u"\\ETC\\PASSWD");
    ScratchFolder folder("dicomdir-hostile");
    std::string path = folder.path + "/DICOMDIR";
    ASSERT_TRUE(dir.m_pRoot->SaveToFile(Utf8ToUtf16(path)));
    for (int i = 1; i <= 3; ++i)
        ASSERT_TRUE(WriteInstance(folder.path + "/IMG/" + std::to_string(i), {1, 1, 1, i}));

    std::vector<std::u16string> images, keyObjects;
    CDicomFSR::FindImages(Utf8ToUtf16(folder.path), u"DICOMDIR", images);
    ASSERT_EQ(images.size(), 3u);
    EXPECT_EQ(images[0], Utf8ToUtf16(folder.path + "/IMG/1"));

    Bytes file = ReadFile(path);
    uint32_t patient = LinkOf(dir.m_pData, 0x1200);
    std::vector<uint32_t> offsets;  // where the records were saved
    for (int i = 0; CDicomItem* record = dir.GetRecord(i); ++i) {
        long offset = 0;
        ASSERT_TRUE(record->GetItemValue(u"Offset", offset));
        offsets.push_back(static_cast<uint32_t>(offset));
    }
    // Each record's links sit at fixed places behind its item header:
    // (0004,1400) value at +16, (0004,1420) value at +38 (explicit VR).
    auto next = [&](int record) { return offsets[static_cast<size_t>(record)] + 16; };
    auto lower = [&](int record) { return offsets[static_cast<size_t>(record)] + 38; };
    ASSERT_EQ(LinkOf(dir.GetRecord(3), 0x1400), offsets[4]);
    ASSERT_EQ(Bytes(file.begin() + next(3), file.begin() + next(3) + 4),
              (Bytes{uint8_t(offsets[4]), uint8_t(offsets[4] >> 8), uint8_t(offsets[4] >> 16), 0}));
    PutLink(file, next(4), patient);          // the second image links back to the patient: a cycle
    PutLink(file, lower(2), offsets[4]);      // the series now starts at the second image
    PutLink(file, next(5), 0x7FFFFFF0u);      // an offset far outside the file
    ASSERT_TRUE(WriteFile(path, file));

    CliResult listed = RunCli({"dicomdir", "list", "--json", path});
    ASSERT_EQ(listed.status, 0) << listed.err;
    // PATIENT > STUDY > SERIES > IMAGE 2 (its next link, the cycle, ends the
    // chain); images 1, 3 and the two hostile records no link reaches.
    EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '{'), 4) << listed.out;
    EXPECT_NE(listed.err.find("4 records outside the hierarchy"), std::string::npos) << listed.err;
    images.clear();
    std::vector<std::u16string> objects;
    CDicomFSR::FindObjects(Utf8ToUtf16(folder.path), u"DICOMDIR", objects, keyObjects);
    for (const std::u16string& found : objects)
        EXPECT_EQ(found.find(u".."), std::u16string::npos);
    EXPECT_TRUE(keyObjects.empty());

    // Converted, the file keeps the hierarchy its links describe.
    std::string converted = folder.path + "/CONVERTED";
    ASSERT_EQ(RunCli({"convert", path, converted}).status, 0);
    CliResult again = RunCli({"dicomdir", "list", "--json", converted});
    EXPECT_EQ(again.out, listed.out);

    // A directory file that references itself is walked once.
    CDicomDirEx nested;
    ASSERT_TRUE(nested.Init());
    AddInstance(nested, u"IMG\\1", {1, 1, 1, 1});
    nested.GetRecord(0)->AddTag(0x0004, 0x1500, std::u16string(u"NESTED"), u"CS");
    ASSERT_TRUE(nested.m_pRoot->SaveToFile(Utf8ToUtf16(folder.path + "/NESTED")));
    images.clear();
    CDicomFSR::FindImages(Utf8ToUtf16(folder.path), u"NESTED", images);
    EXPECT_EQ(images.size(), 1u);  // the PATIENT record names its own file: walked once
}

// pydicom's sample directories (explicit, implicit, records stored in
// reverse order, offsets left out): `list --json` gives the hierarchy that
// pydicom's FileSet follows, and so does the file `convert` writes.
TEST(DicomDirCorpus, ListAndConvertFollowTheLinksPydicomFollows)
{
    PYDICOM_DATA_OR_FAIL(dataDir);
    std::string base = dataDir + "/test_files/dicomdirtests/";
    ScratchFolder folder("dicomdir-corpus");
    for (const char* name :
         {"DICOMDIR", "DICOMDIR-implicit", "DICOMDIR-reordered", "DICOMDIR-nooffset", "TINY_ALPHA/DICOMDIR"}) {
        std::string json = folder.path + "/list.json", converted = folder.path + "/converted";
        CliResult listed = RunCli({"dicomdir", "list", "--json", base + name});
        ASSERT_EQ(listed.status, 0) << name << ": " << listed.err;
        ASSERT_TRUE(WriteFile(json, Bytes(listed.out.begin(), listed.out.end())));
        CliResult compared = Oracle({base + name, json});
        EXPECT_EQ(compared.out, "same\n") << name << ": " << compared.err;
        ASSERT_EQ(RunCli({"convert", base + name, converted}).status, 0) << name;
        compared = Oracle({converted, json});
        EXPECT_EQ(compared.out, "same\n") << name << " converted: " << compared.err;
    }
}

// `create` over nested folders of several patients, studies and series,
// found in an order that interleaves them; `add` on top; `--copy` for a
// file-set whose paths are not file IDs. Every peer reads the result.
TEST(DicomDirPeers, CreatedDirectoriesAreReadByDcmtkDicom3toolsAndPydicom)
{
    ScratchFolder folder("dicomdir-create");
    std::string set = folder.path + "/SET";
    const struct {
        const char* path;
        InstanceKeys keys;
    } files[] = {
        {"A/P2/IM1", {2, 1, 1, 1}},       {"B/P1/S1/IM1", {1, 1, 1, 1}},     {"B/P1/S2/IM1", {1, 1, 2, 1}},
        {"C/IM1", {1, 1, 1, 2}},          {"C/IM2", {2, 1, 1, 2}},           {"C/SR1", {1, 2, 1, 1, "SR"}},
        {"D/DEEP/ER/STILL/IM1", {1, 2, 2, 1}}, {"D/KO1", {1, 2, 1, 2, "KO"}}, {"E/IM1", {3, 1, 1, 1}},
    };
    for (const auto& file : files)
        ASSERT_TRUE(WriteInstance(set + "/" + file.path, file.keys));
    ASSERT_TRUE(WriteFile(set + "/README", Bytes{'h', 'i', '\n'}));
    ASSERT_TRUE(WriteInstance(set + "/lower/case.dcm", {4, 1, 1, 1}));
    // The last instance is added afterwards.
    std::string later = set + "/E/IM1";
    std::string held = folder.path + "/held";
    fs::rename(later, held);

    CliResult created = RunCli({"dicomdir", "create", set});
    ASSERT_EQ(created.status, 0) << created.err;
    EXPECT_NE(created.err.find("README: skipped"), std::string::npos) << created.err;
    EXPECT_NE(created.err.find("lower/case.dcm: skipped"), std::string::npos) << created.err;
    fs::rename(held, later);
    CliResult added = RunCli({"dicomdir", "add", set + "/DICOMDIR", later});
    ASSERT_EQ(added.status, 0) << added.err;
    EXPECT_FALSE(fs::exists(set + "/DICOMDIR.tmp"));

    std::string copy = folder.path + "/COPY";
    ASSERT_EQ(RunCli({"dicomdir", "create", "--copy", copy, set}).status, 0);

    const size_t conformant = std::size(files);
    for (const auto& [directory, expected] : {std::pair{set + "/DICOMDIR", conformant},
                                              std::pair{copy + "/DICOMDIR", conformant + 1}}) {
        CliResult checked = Oracle({"--check", directory});
        EXPECT_EQ(checked.out, "ok " + std::to_string(expected) + "\n") << directory << ": " << checked.err;
        CliResult dcmdump = RunCli({directory}, "/usr/bin/dcmdump");
        EXPECT_EQ(dcmdump.status, 0) << dcmdump.err;
        EXPECT_EQ(dcmdump.err, "") << directory;
        auto [status, report] = RunShell("/usr/bin/dciodvfy '" + directory + "'");
        EXPECT_EQ(report.find("Error"), std::string::npos) << directory << ":\n" << report;
        std::string json = folder.path + "/list.json";
        CliResult listed = RunCli({"dicomdir", "list", "--json", directory});
        ASSERT_TRUE(WriteFile(json, Bytes(listed.out.begin(), listed.out.end())));
        EXPECT_EQ(Oracle({directory, json}).out, "same\n") << directory;
    }

    // DCMTK's media creator over the same file-set gives the same hierarchy.
    std::string theirs = folder.path + "/DCMTK";
    fs::create_directories(theirs);
    fs::remove(set + "/README");
    fs::remove_all(set + "/lower");
    fs::rename(set + "/DICOMDIR", folder.path + "/OURS");
    auto [status, output] = RunShell("cd '" + set + "' && /usr/bin/dcmmkdir +r -Pgp +I +D '" + theirs +
                                     "/DICOMDIR'");
    ASSERT_EQ(status, 0) << output;
    CliResult same = Oracle({"--same", folder.path + "/OURS", theirs + "/DICOMDIR"});
    EXPECT_EQ(same.out, "same\n") << same.err;
}

// Files nobody here wrote: pydicom's CT and MR samples, then a copy of the
// CT with new study, series and instance UIDs (made by pydicom) added to the
// directory, which must stand under the CT's patient; pydicom's whole
// sample folder, whose empty Type 1 keys must not reach the records; its SR
// sample, whose record keeps only the document's title modifiers.
TEST(DicomDirPeers, RecordsOfPydicomSamplesStandUnderTheirPatientAndPassDciodvfy)
{
    PYDICOM_DATA_OR_FAIL(dataDir);
    std::string samples = dataDir + "/test_files";
    ScratchFolder folder("dicomdir-samples");
    std::string set = folder.path + "/SET";
    fs::create_directories(set);
    fs::copy_file(samples + "/CT_small.dcm", set + "/CT");
    fs::copy_file(samples + "/MR_small.dcm", set + "/MR");
    fs::copy_file(samples + "/test-SR.dcm", set + "/SR");
    ASSERT_EQ(RunCli({"dicomdir", "create", set}).status, 0);
    auto [made, why] = PydicomRewrite(samples + "/CT_small.dcm", set + "/CT2",
                                      "ds.StudyInstanceUID, ds.SeriesInstanceUID, ds.SOPInstanceUID = uid(), uid(), uid()\n"
                                      "ds.file_meta.MediaStorageSOPInstanceUID = ds.SOPInstanceUID");
    ASSERT_EQ(made, 0) << why;
    CliResult added = RunCli({"dicomdir", "add", set + "/DICOMDIR", set + "/CT2"});
    ASSERT_EQ(added.status, 0) << added.err;
    CliResult checked = Oracle({"--check", set + "/DICOMDIR"});
    EXPECT_EQ(checked.out, "ok 4\n") << checked.err;
    EXPECT_EQ(IodErrorLines(set + "/DICOMDIR"), std::set<std::string>{});
    CDicomDirEx dir;
    ASSERT_TRUE(dir.Load(Utf8ToUtf16(set + "/DICOMDIR")));
    CDicomItem* report = nullptr;
    for (int i = 0; CDicomItem* record = dir.GetRecord(i); ++i)
        if (CDicomDirEx::GetRecordType(Utf16ToUtf8(DirIndex::TextKey(record, 0x0004, 0x1430))) == 5)
            report = record;
    ASSERT_NE(report, nullptr);
    CDicomItem* content = report->GetTagItem(0x0040, 0xA730);
    for (int i = 0; CDicomItem* item = content ? content->GetTagItem(0xFFFE, 0xE000, i) : nullptr; ++i) {
        EXPECT_EQ(DirIndex::TextKey(item, 0x0040, 0xA010), u"HAS CONCEPT MOD");
        EXPECT_EQ(item->GetTagItem(0x0040, 0xA730), nullptr);
    }

    // The whole sample folder: what cannot be referenced is named, the rest
    // gives records without empty Type 1 keys.
    std::string copy = folder.path + "/COPY";
    CliResult all = RunCli({"dicomdir", "create", "--copy", copy, samples});
    ASSERT_EQ(all.status, 0) << all.err;
    EXPECT_NE(all.err.find("skipped, not added: no Study Instance UID (0020,000D)"), std::string::npos) << all.err;
    EXPECT_EQ(IodErrorLines(copy + "/DICOMDIR"), std::set<std::string>{});
    checked = Oracle({"--check", copy + "/DICOMDIR"});
    EXPECT_EQ(checked.out.rfind("ok ", 0), 0u) << checked.out << checked.err;

    // A folder without a DICOM file gives no directory, as dcmmkdir does.
    std::string empty = folder.path + "/EMPTY";
    fs::create_directories(empty);
    ASSERT_TRUE(WriteFile(empty + "/README", Bytes{'h', 'i', '\n'}));
    CliResult none = RunCli({"dicomdir", "create", empty});
    EXPECT_EQ(none.status, 1);
    EXPECT_NE(none.err.find("no DICOM file found"), std::string::npos) << none.err;
    EXPECT_FALSE(fs::exists(empty + "/DICOMDIR"));
}
