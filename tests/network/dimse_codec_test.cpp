// Data sets in the negotiated transfer syntax, the query/retrieve records
// and the C-FIND status table. The sweep has pydicom write the data sets of
// sample files (nested sequences, waveforms, numbers of every width) in the
// three uncompressed encodings; each must read back to the same elements
// and the same element tree.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dictionary.h"
#include "imageinfo/dicominfo.h"
#include "network/dataset_codec.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"
#include "support/cli.h"
#include "support/dicomwriter.h"
#include "support/files.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

namespace {

const char* const kSyntaxes[] = {"1.2.840.10008.1.2", "1.2.840.10008.1.2.1", "1.2.840.10008.1.2.2"};

// A socket whose contexts 1, 3, 5 were accepted in implicit VR, explicit
// VR little endian and explicit VR big endian.
struct EncodingSocket : CUserSocket {
    EncodingSocket()
    {
        for (int i = 0; i < 3; ++i) {
            AddPresentationContext("1.2.840.10008.5.1.4.1.2.2.1", 1, kSyntaxes[i]);
            m_AssociateData.ValidatePresContext(static_cast<unsigned char>(2 * i + 1), 0, kSyntaxes[i]);
        }
    }
    void Use(int encoding) { SetPresentationContext(static_cast<unsigned char>(2 * encoding + 1)); }
};

std::vector<uint8_t> Bytes(const CDynBuffer& buffer) { return {buffer.GetData(), buffer.GetData() + buffer.m_nSize}; }

struct Walked {
    std::vector<std::pair<uint32_t, std::vector<uint8_t>>> elements;
};
void Collect(uint16_t group, uint16_t element, uint32_t length, const unsigned char* value, void* parameter)
{
    static_cast<Walked*>(parameter)->elements.push_back({uint32_t(group) << 16 | element, {value, value + length}});
}

}

TEST(DimseCodec, AddTagWritesEachEncoding)
{
    EncodingSocket socket;
    const std::vector<uint8_t> expected[] = {
        {0x28, 0x00, 0x10, 0x00, 0x02, 0x00, 0x00, 0x00, 0x00, 0x02},
        {0x28, 0x00, 0x10, 0x00, 'U', 'S', 0x02, 0x00, 0x00, 0x02},
        {0x00, 0x28, 0x00, 0x10, 'U', 'S', 0x00, 0x02, 0x02, 0x00},
    };
    for (int encoding = 0; encoding < 3; ++encoding) {
        SCOPED_TRACE(kSyntaxes[encoding]);
        socket.Use(encoding);
        CDynBuffer rows, name, unknown;
        EXPECT_EQ(socket.AddTag(rows, 0x0028, 0x0010, uint16_t(512)), 1);
        EXPECT_EQ(Bytes(rows), expected[encoding]);
        // Odd text gets the VR's padding; a long-form VR its 12-byte header.
        EXPECT_EQ(socket.AddTag(name, 0x0010, 0x0010, "Doe", 3), 1);
        EXPECT_EQ(name.m_nSize, 12u);
        EXPECT_EQ(name.GetData()[11], ' ');
        CDynBuffer sequence;
        EXPECT_EQ(socket.AddTag(sequence, 0x0008, 0x1199, nullptr, 0), 1);
        EXPECT_EQ(sequence.m_nSize, encoding == 0 ? 8u : 12u);
        EXPECT_EQ(socket.AddTag(unknown, 0x0011, 0x1234, "x", 1), 0);
        EXPECT_EQ(unknown.m_nSize, 0u);
    }
}

TEST(DimseCodec, SampleDataSetsReadAlikeInEveryEncoding)
{
    testsupport::ScratchFolder scratch("encodings");
    const std::string folder = scratch.path;
    const char* const samples[] = {"rtplan.dcm", "rtstruct.dcm", "test-SR.dcm", "rtdose.dcm", "CT_small.dcm",
                                   "MR_small.dcm", "reportsi.dcm"};
    std::ofstream(folder + "/write.py") << R"(import sys, pydicom
from pydicom.filebase import DicomBytesIO
from pydicom.filewriter import write_dataset
for path in sys.argv[2:]:
    ds = pydicom.dcmread(path, force=True)
    if 'PixelData' in ds:
        del ds.PixelData
    for n, (implicit, little) in enumerate([(True, True), (False, True), (False, False)]):
        fp = DicomBytesIO()
        fp.is_implicit_VR, fp.is_little_endian = implicit, little
        write_dataset(fp, ds)
        open('%s/%s.%d' % (sys.argv[1], path.split('/')[-1], n), 'wb').write(fp.getvalue())
)";
    std::string command = "/usr/bin/python3 " + folder + "/write.py " + folder;
    for (const char* name : samples)
        command += " " + testsupport::PydicomDataDir() + "/test_files/" + name;
    auto [status, output] = testsupport::RunShell(command);
    ASSERT_EQ(status, 0) << output;

    EncodingSocket socket;
    for (const char* name : samples) {
        SCOPED_TRACE(name);
        Walked walked[3];
        std::vector<uint8_t> saved[3];
        for (int encoding = 0; encoding < 3; ++encoding) {
            std::vector<uint8_t> bytes = testsupport::ReadFile(folder + "/" + name + "." + std::to_string(encoding));
            ASSERT_FALSE(bytes.empty());
            socket.Use(encoding);
            EXPECT_TRUE(socket.ReadTags(bytes.data(), static_cast<int>(bytes.size()), Collect, &walked[encoding]));
            CDynBuffer keep, out;
            CDicomItem tree(u"Data");
            ASSERT_TRUE(socket.LoadDataSet(bytes.data(), static_cast<uint32_t>(bytes.size()), keep, tree));
            tree.RecalcTags(true, 0);
            tree.SaveTags(true, CDynBuffer::WriteProc, &out);
            saved[encoding] = Bytes(out);
        }
        ASSERT_GT(walked[0].elements.size(), 10u);
        // Written again from explicit VR little endian into implicit VR and
        // back (as store converts files), the elements and values stay.
        for (bool explicitVR : {false, true}) {
            std::vector<uint8_t> bytes = testsupport::ReadFile(folder + "/" + name + ".1");
            CDynBuffer implicit, again;
            ASSERT_TRUE(zeldicom::dataset::Reencode(bytes.data(), bytes.size(), {true, false}, {false, false},
                                                    CDynBuffer::WriteProc, &implicit));
            ASSERT_TRUE(zeldicom::dataset::Reencode(implicit.GetData(), implicit.m_nSize, {false, false},
                                                    {explicitVR, false}, CDynBuffer::WriteProc, &again));
            Walked rewalked;
            socket.Use(explicitVR ? 1 : 0);
            EXPECT_TRUE(socket.ReadTags(again.GetData(), static_cast<int>(again.m_nSize), Collect, &rewalked));
            EXPECT_EQ(rewalked.elements.size(), walked[0].elements.size());
        }
        // Explicit VR little and big endian give the same tree (implicit VR
        // loses private VRs and the choice of US or SS, so it is not compared).
        auto mismatch = std::mismatch(saved[1].begin(), saved[1].end(), saved[2].begin(), saved[2].end());
        EXPECT_TRUE(mismatch.first == saved[1].end() && mismatch.second == saved[2].end())
            << "the big endian tree differs at byte " << (mismatch.first - saved[1].begin()) << ": "
            << testsupport::ToHex(std::string(mismatch.first, std::min(mismatch.first + 24, saved[1].end()))) << " / "
            << testsupport::ToHex(std::string(mismatch.second, std::min(mismatch.second + 24, saved[2].end())));
        for (int encoding = 1; encoding < 3; ++encoding) {
            ASSERT_EQ(walked[encoding].elements.size(), walked[0].elements.size());
            for (size_t i = 0; i < walked[0].elements.size(); ++i) {
                const auto& [tag, value] = walked[0].elements[i];
                EXPECT_EQ(walked[encoding].elements[i].first, tag);
                const zeldicom::AttributeEntry* entry = zeldicom::FindAttribute(uint16_t(tag >> 16), uint16_t(tag));
                if (!entry || std::string(entry->vr()) != "SQ") {
                    EXPECT_EQ(walked[encoding].elements[i].second, value) << std::hex << tag;
                }
            }
        }
    }
}

TEST(DimseCodec, RefusesMalformedDataSets)
{
    EncodingSocket socket;
    socket.Use(1);
    // A value longer than the buffer, a VR that is no VR, an undefined-length
    // sequence without delimiter, and sequences nested past the depth limit.
    std::vector<std::vector<uint8_t>> hostile = {
        {0x10, 0x00, 0x10, 0x00, 'P', 'N', 0x20, 0x00, 'D', 'o'},
        {0x10, 0x00, 0x10, 0x00, 'z', 'z', 0x02, 0x00, 'D', 'o'},
        {0x08, 0x00, 0x99, 0x11, 'S', 'Q', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00, 0xE0, 0xFF, 0xFF, 0xFF, 0xFF},
    };
    std::vector<uint8_t> deep;
    for (int level = 0; level < 40; ++level)
        deep.insert(deep.end(), {0x08, 0x00, 0x99, 0x11, 'S', 'Q', 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE, 0xFF, 0x00,
                                 0xE0, 0xFF, 0xFF, 0xFF, 0xFF});
    hostile.push_back(deep);
    for (const auto& bytes : hostile) {
        Walked walked;
        CDynBuffer keep;
        CDicomItem tree(u"Data");
        EXPECT_FALSE(socket.ReadTags(bytes.data(), static_cast<int>(bytes.size()), Collect, &walked));
        EXPECT_TRUE(walked.elements.empty());
        EXPECT_FALSE(socket.LoadDataSet(bytes.data(), static_cast<uint32_t>(bytes.size()), keep, tree));
        EXPECT_FALSE(zeldicom::dataset::Reencode(bytes.data(), bytes.size(), {true, false}, {false, false}, nullptr,
                                                 nullptr));
    }
}

// A group length is counted again for the headers of the new encoding and
// the undefined lengths its sequences and items are written with.
TEST(DimseCodec, ReencodingCountsGroupLengthsAgain)
{
    using testsupport::cat, testsupport::elem, testsupport::item;
    const testsupport::Bytes group = cat(
        {elem(0x0008, 0x0016, "UI", "1.2.3"), elem(0x0008, 0x1140, "SQ", item(elem(0x0008, 0x1150, "UI", "1.2")))});
    testsupport::Bytes length;
    testsupport::put32(length, uint32_t(group.size()));
    const testsupport::Bytes input =
        cat({elem(0x0008, 0x0000, "UL", length), group, elem(0x0010, 0x0010, "PN", "Doe^")});
    for (bool explicitVR : {false, true}) {
        CDynBuffer out;
        ASSERT_TRUE(zeldicom::dataset::Reencode(input.data(), input.size(), {true, false}, {explicitVR, false},
                                                CDynBuffer::WriteProc, &out));
        // The group length element and (0010,0010) take 12 bytes each in
        // both encodings; the rest is group 0008.
        const unsigned char* value = out.GetData() + 8;
        uint32_t counted = value[0] | value[1] << 8 | value[2] << 16 | uint32_t(value[3]) << 24;
        EXPECT_EQ(counted, out.m_nSize - 24) << explicitVR;
        EXPECT_NE(counted, group.size()) << explicitVR;
    }
}

TEST(QueryRecords, FillFromIdentifiersAndGatherSeries)
{
    // An implicit VR identifier: Latin-1 name under ISO_IR 100, series fields.
    EncodingSocket socket;
    socket.Use(0);
    CDynBuffer identifier;
    socket.AddTag(identifier, 0x0008, 0x0005, "ISO_IR 100", 10);
    socket.AddTag(identifier, 0x0008, 0x0060, "MR", 2);
    socket.AddTag(identifier, 0x0008, 0x1030, "Head", 4);
    socket.AddTag(identifier, 0x0010, 0x0010, "M\xfcller^J", 8);
    socket.AddTag(identifier, 0x0018, 0x0015, "BRAIN", 5);
    socket.AddTag(identifier, 0x0020, 0x000D, "1.2.3", 5);
    socket.AddTag(identifier, 0x0020, 0x1209, "12", 2);
    QR_PATIENT_STUDY study;
    QR_SERIES series;
    DICOMINFO::ReadTags(identifier.GetData(), static_cast<int>(identifier.m_nSize),
                        [](TAG_HEADER* e, void* r) { QR_PATIENT_STUDY::ReadTagProc(e, static_cast<QR_PATIENT_STUDY*>(r)); },
                        &study);
    DICOMINFO::ReadTags(identifier.GetData(), static_cast<int>(identifier.m_nSize),
                        [](TAG_HEADER* e, void* r) { QR_SERIES::ReadTagProc(e, static_cast<QR_SERIES*>(r)); }, &series);
    EXPECT_EQ(study.sSpecificCharacterSet, u"ISO_IR 100");
    EXPECT_EQ(study.sPatientName, u"M\u00fcller^J");
    EXPECT_EQ(study.sStudyInstanceUID, u"1.2.3");
    EXPECT_EQ(series.sModality, u"MR");
    EXPECT_EQ(series.sDescription, u"Head");
    EXPECT_EQ(series.sBodyPartExamined, u"BRAIN");
    EXPECT_EQ(series.sNumberOfSeriesRelatedInstances, u"12");

    QR_MOVE move;
    QR_MOVE_INFO first{"1.2.3", "1.2.3.1"}, second{"1.2.3", "1.2.3.2"}, other{"1.2.4", "1.2.4.1"};
    EXPECT_EQ(move.AddSeriesInfo(&first), 1);
    EXPECT_EQ(move.AddSeriesInfo(&second), 1);
    EXPECT_EQ(move.GetStudiesCount(), 1);
    EXPECT_EQ(move.aStudies[0]->sSeriesInstanceUIDs, "1.2.3.1\\1.2.3.2");
    move.AddSeriesInfo(&other);
    QR_MOVE copy = move;
    EXPECT_EQ(copy.GetStudiesCount(), 2);
    EXPECT_NE(copy.aStudies[0].get(), move.aStudies[0].get());
}

TEST(QueryRecords, StatusesInWordsPerService)
{
    const struct {
        uint16_t status;
        const char* text;
        int good, final;
    } rows[] = {{0x0000, "Success", 1, 1}, {0xFF01, "Pending: Matches are continuing", 1, 0},
                {0xA700, "Refused: Out of Resources", 0, 1}, {0xC123, "Failed: Unable to Process", 0, 1},
                {0xB000, "Unknown status", 0, 1}};
    for (const auto& row : rows) {
        std::string text;
        int good = -1, final = -1;
        CUserSocket::AnalysFindResponseStatus(row.status, text, good, final);
        EXPECT_EQ(text, row.text);
        EXPECT_EQ(good, row.good);
        EXPECT_EQ(final, row.final);
    }
    // One table serves every service and the trace: each service's own
    // words first, the general ones for DIMSE-N and print.
    const struct {
        std::string words, expected;
    } words[] = {
        {CUserSocket::GetMoveStatusText(0xA801), "Refused: Move Destination unknown"},
        {CUserSocket::GetMoveStatusText(0xC001), "Failed: Unable to Process"},
        {CUserSocket::GetMoveStatusText(0x0110), "Unknown status (PROCESSING FAILURE)"},
        {CUserSocket::GetStoreStatusText(0xA702), "refused 0xA702: out of resources"},
        {CUserSocket::GetStoreStatusText(0xB007), "warning 0xB007: data set does not match SOP class"},
        {CUserSocket::GetStoreStatusText(0xFE00), "status 0xFE00 (CANCEL: SUB-OPERATIONS TERMINATED DUE TO CANCEL INDICATION)"},
        {CUserSocket::GetNStatusText(0x0112), "Failure: no such SOP instance"},
        {CUserSocket::GetNStatusText(0xB604), "image larger than the image box, demagnified"},
        {CUserSocket::GetNStatusText(0xD123), "status 0xD123 (UNKNOWN STATUS)"},
        {GetClearStatus(0xFF01), "PENDING: MATCHES ARE CONTINUING"},
        {GetClearStatus(0x0116), "UNKNOWN STATUS"},
    };
    for (const auto& row : words)
        EXPECT_EQ(row.words, row.expected);
    EXPECT_EQ(ClassifyDimseStatus(0x0021, 0xFF01), StatusClass::kPending);
    EXPECT_EQ(ClassifyDimseStatus(0x0120, 0xB604), StatusClass::kWarning);  // N-SET: image demagnified
    EXPECT_EQ(ClassifyDimseStatus(0x0001, 0xB123), StatusClass::kWarning);  // PS3.7 C: 0xBxxx
    EXPECT_EQ(ClassifyDimseStatus(0x0001, 0xA7FF), StatusClass::kFailure);
}

// Query keys as the identifier carries them: text in the declared character
// set (ISO_IR 192 declared for non-ASCII text when none is), binary numbers
// only when they fit their VR.
TEST(QueryRecords, IdentifierKeysInTheirCharacterSetAndRange)
{
    const std::string aeneas = "\xc3\x84neas*";  // "Äneas*" in UTF-8
    const struct {
        std::vector<QueryKey> keys;
        bool encodes;
        std::string declared, name;  // (0008,0005) and (0010,0010) as sent
    } rows[] = {
        {{{0x0010, 0x0010, aeneas}}, true, "ISO_IR 192", aeneas},
        {{{0x0008, 0x0005, "ISO_IR 100"}, {0x0010, 0x0010, aeneas}}, true, "ISO_IR 100", "\xc4neas*"},
        {{{0x0010, 0x0010, "DOE*"}}, true, "", "DOE*"},
        {{{0x0008, 0x0005, "ISO_IR 100"}, {0x0010, 0x0010, "\xe7\x8e\x8b"}}, false, "", ""},  // not in Latin-1
        {{{0x0028, 0x0010, "65535"}}, true, "", ""},
        {{{0x0028, 0x0010, "70000"}}, false, "", ""},
        {{{0x0028, 0x0010, "-1"}}, false, "", ""},
    };
    for (const auto& row : rows) {
        EncodingSocket socket;
        socket.Use(0);
        QR_REQUEST request;
        request.keys = row.keys;
        CDynBuffer identifier;
        ASSERT_EQ(socket.EncodeIdentifier(request, identifier), row.encodes) << row.keys.back().value;
        if (!row.encodes)
            continue;
        CDynBuffer keep;
        CDicomItem sent(u"Data");
        ASSERT_TRUE(socket.LoadDataSet(identifier.GetData(), identifier.m_nSize, keep, sent));
        auto text = [&](uint16_t group, uint16_t element) {
            const CDicomItem* node = sent.GetTagItem(group, element);
            std::string value = node ? std::string(reinterpret_cast<const char*>(node->GetData()), node->GetDataSize()) : "";
            while (!value.empty() && value.back() == ' ')
                value.pop_back();
            return value;
        };
        EXPECT_EQ(text(0x0008, 0x0005), row.declared);
        if (!row.name.empty()) {
            EXPECT_EQ(text(0x0010, 0x0010), row.name);
        }
    }
}
