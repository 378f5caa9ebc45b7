// The image record of every image in pydicom's corpus (and of DCMTK's
// re-encodings, and of two objects pydicom builds with overlays, a modality
// LUT and 16-bit palettes) against what pydicom reads from the same file.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "dicomdata/parse_fixtures.h"
#include "imageinfo/dicominfo.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

uint32_t Checksum(const uint16_t* values, uint32_t count)
{
    uint64_t sum = 0;
    for (uint32_t i = 0; i < count; ++i)
        sum += static_cast<uint64_t>(i + 1) * values[i];
    return static_cast<uint32_t>(sum);
}

uint32_t Checksum(const unsigned char* bytes, int count)
{
    uint64_t sum = 0;
    for (int i = 0; i < count; ++i)
        sum += static_cast<uint64_t>(i + 1) * bytes[i];
    return static_cast<uint32_t>(sum);
}

std::string LutData(const uint16_t* data, uint32_t entries)
{
    return data ? FormatText("%u %u", entries, Checksum(data, entries)) : "none";
}

// The record's value for an oracle key, in the oracle's form.
std::string RecordValue(const DICOMINFO& info, const std::string& key)
{
    int count = 0;
    const INFOFIELD* fields = DICOMINFO::GetFieldTable(count);
    for (int i = 0; i < count; ++i) {
        const INFOFIELD& f = fields[i];
        if (key != f.name)
            continue;
        switch (f.kind) {
        case INFOFIELD::Int:
            return std::to_string(info.*f.member.n);
        case INFOFIELD::Word:
            return std::to_string(info.*f.member.w);
        case INFOFIELD::Byte:
            return std::to_string(info.*f.member.b);
        case INFOFIELD::Text:
            return Utf16ToUtf8(Trim(info.*f.member.s));
        case INFOFIELD::Double:
            return FormatText("%.9g", info.*f.member.d);
        case INFOFIELD::Float:
            return FormatText("%.9g", info.*f.member.f);
        }
    }
    if (key.rfind("pFrameOffsets.", 0) == 0) {
        std::string out;
        for (int i = 0; info.pFrameOffsets && i < info.nFrameOffsetCount; ++i)
            out += (i ? " " : "") + std::to_string(info.pFrameOffsets[i]);
        return out;
    }
    const std::pair<const char*, const DICOM_LUT*> palettes[] = {
        {"RedPaletteLut", &info.RedPaletteLut}, {"GreenPaletteLut", &info.GreenPaletteLut},
        {"BluePaletteLut", &info.BluePaletteLut}};
    for (const auto& [name, lut] : palettes) {
        if (key == name)
            return FormatText("%u %u %u", lut->nEntries, lut->nFirstMapped, lut->wBits);
        if (key == std::string(name) + ".data")
            return LutData(lut->pData.get(), lut->nEntries);
    }
    const CModalityLutDesc& modality = info.ModalityLut;
    if (key == "ModalityLut")
        return FormatText("%u %u %u", modality.nEntries, modality.nFirstMapped, modality.nBits);
    if (key == "ModalityLut.data")
        return LutData(modality.GetData(), modality.nEntries);
    if (key.rfind("overlay.", 0) == 0) {
        const DICOM_OVERLAY* ov = info.GetOverlay(std::stoi(key.substr(8)));
        if (!ov)
            return "missing";
        return FormatText("%u %u %u %s %d %d %u %u %d %u", ov->wRows, ov->wColumns, ov->wPlanes,
                          Utf16ToUtf8(ov->sType).c_str(), ov->nOriginRow, ov->nOriginColumn, ov->wBitsAllocated,
                          ov->wBitPosition, ov->nDataSize, Checksum(ov->pData.get(), ov->nDataSize));
    }
    return "unknown key";
}

bool SameValue(const std::string& key, const std::string& expected, const std::string& actual)
{
    if (key[0] == 'd') {  // spacings: single-precision values divided in double
        double e = std::stod(expected), a = std::stod(actual);
        return std::fabs(e - a) <= 1e-6 * std::max(1.0, std::fabs(e));
    }
    return expected == actual;
}

TEST(InfoCorpus, RecordAgreesWithPydicom)
{
    std::string data = parsefix::PydicomDataDir();
    ASSERT_FALSE(data.empty()) << "pydicom and its sample data are required";
    std::string scratch = parsefix::ScratchPath("info-corpus");
    std::filesystem::create_directories(scratch);
    auto [status, oracle] = parsefix::RunShell("/usr/bin/python3 " ZELDICOM_SOURCE_DIR
                                               "/tests/imageinfo/info_pydicom_oracle.py '" + data + "' '" +
                                               scratch + "'", false);
    ASSERT_EQ(status, 0) << "the pydicom oracle failed";

    std::istringstream lines(oracle);
    std::string line, file;
    DICOMINFO* info = nullptr;
    std::map<std::string, int> seen;  // which kinds of content were checked
    for (bool more = true; more;) {
        more = static_cast<bool>(std::getline(lines, line));
        if (!more || line.rfind("FILE ", 0) == 0) {
            delete info;
            info = nullptr;
            if (!more)
                break;
            file = line.substr(5);
            info = new DICOMINFO;
            ++seen[file.find("/dcmtk_") != std::string::npos ? "dcmtk" : "file"];
            EXPECT_EQ(info->ReadFileInfo(Utf8ToUtf16(file)), 1) << file << ": " << info->GetLastError().GetText();
            continue;
        }
        size_t blank = line.find(' ');
        std::string key = line.substr(0, blank), expected = line.substr(blank + 1);
        std::string actual = RecordValue(*info, key);
        EXPECT_TRUE(SameValue(key, expected, actual)) << file << " " << key << ": pydicom " << expected
                                                       << ", record " << actual;
        if (key.find(".data") != std::string::npos && expected != "none")
            ++seen["lut data"];
        ++seen[key.substr(0, key.find('.') == 0 ? key.size() : std::min(key.find('.'), key.size()))];
        if (key.rfind("pFrameOffsets.", 0) == 0 && std::count(expected.begin(), expected.end(), ' ') > 1)
            ++seen[key + " multi-frame"];
    }
    std::filesystem::remove_all(scratch);
    for (const char* kind : {"file", "dcmtk", "lut data", "overlay", "ModalityLut", "RedPaletteLut",
                             "pFrameOffsets.native multi-frame", "pFrameOffsets.table multi-frame",
                             "pFrameOffsets.fragments multi-frame"})
        EXPECT_GT(seen[kind], 0) << "the sweep checked no " << kind;
}

}  // namespace
