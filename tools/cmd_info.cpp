// zeldicom info [--json] FILE...: the image information record of each file,
// as readable text or as one JSON object per file whose keys are the
// record's field names.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <string>

#include "dicomdata/dicomitem.h"
#include "dicomdata/tagtable.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/orientation.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/options.h"

using namespace zeldicom;

namespace {

std::string U8(const std::u16string& text)
{
    return Utf16ToUtf8(text);
}

// --- JSON

void JsonString(std::string& out, const std::string& utf8)
{
    out += '"';
    for (unsigned char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            if (c < 0x20)
                out += FormatText("\\u%04x", c);
            else
                out += static_cast<char>(c);
        }
    }
    out += '"';
}

// The shortest text that reads back as the same double: 350.7, not
// 350.69999999999999.
std::string Exact(double value)
{
    if (value == std::trunc(value) && std::fabs(value) < 1e15)
        return FormatText("%.0f", value);
    for (int digits = 1; digits < 17; ++digits) {
        std::string text = FormatText("%.*g", digits, value);
        if (std::strtod(text.c_str(), nullptr) == value)
            return text;
    }
    return FormatText("%.17g", value);
}

void JsonNumber(std::string& out, double value)
{
    if (!std::isfinite(value))
        out += "null";
    else
        out += Exact(value);
}

class JsonObject {
public:
    explicit JsonObject(std::string& out) : m_out(out) { m_out += '{'; }
    ~JsonObject() { m_out += '}'; }
    std::string& Key(const char* name)
    {
        if (m_count++)
            m_out += ',';
        JsonString(m_out, name);
        m_out += ':';
        return m_out;
    }
    void Int(const char* name, long long value) { Key(name) += FormatText("%lld", value); }
    void Text(const char* name, const std::u16string& value) { JsonString(Key(name), U8(value)); }
    void Bool(const char* name, bool value) { Key(name) += value ? "true" : "false"; }

private:
    std::string& m_out;
    int m_count = 0;
};

void JsonCode(std::string& out, const CCodeSequenceMacro& code)
{
    JsonObject o(out);
    o.Text("m_strCodingSchemeDesignator", code.m_strCodingSchemeDesignator);
    o.Text("m_strCodeValue", code.m_strCodeValue);
    o.Text("m_strCodeMeaning", code.m_strCodeMeaning);
}

void JsonCodes(std::string& out, const std::vector<CCodeSequenceMacro>& codes)
{
    out += '[';
    for (size_t i = 0; i < codes.size(); ++i) {
        if (i)
            out += ',';
        JsonCode(out, codes[i]);
    }
    out += ']';
}

template <typename T>
void JsonArray(std::string& out, const T* values, int count)
{
    if (!values) {
        out += "null";
        return;
    }
    out += '[';
    for (int i = 0; i < count; ++i)
        out += FormatText(i ? ",%u" : "%u", static_cast<unsigned>(values[i]));
    out += ']';
}

// The first value mapped, negative when the LUT maps signed stored values.
long long FirstMapped(const CModalityLutDesc& lut)
{
    if (lut.IsFirstEntrySigned())
        return static_cast<int32_t>(lut.nFirstMapped);
    return lut.nFirstMapped;
}

// What the file holds where the record normalises it: Patient's Name with
// its component carets (sPatientName has them turned to blanks) and Patient's
// Sex as written (sPatientSex is M, F or O, O also for no value).
struct FileValues {
    std::u16string patientName, patientSex;
    explicit FileValues(const DICOMINFO& info)
        : patientName(Trim(info.sDicomPatientName)), patientSex(info.sDicomPatientSex)
    {
    }
};

// With file set, the object's first key "file" names it.
std::string ToJson(const DICOMINFO& info, const FileValues& values, const std::string* file)
{
    std::string out;
    {
        JsonObject o(out);
        if (file)
            JsonString(o.Key("file"), *file);
        // The file's own values, under their DICOM keywords, beside the record's fields.
        o.Text("PatientName", values.patientName);
        o.Text("PatientSex", values.patientSex);
        int count = 0;
        const INFOFIELD* fields = DICOMINFO::GetFieldTable(count);
        for (int i = 0; i < count; ++i) {
            const INFOFIELD& f = fields[i];
            switch (f.kind) {
            case INFOFIELD::Int:
                o.Int(f.name, info.*f.member.n);
                break;
            case INFOFIELD::Word:
                o.Int(f.name, info.*f.member.w);
                break;
            case INFOFIELD::Byte:
                o.Int(f.name, info.*f.member.b);
                break;
            case INFOFIELD::Text:
                o.Text(f.name, info.*f.member.s);
                break;
            case INFOFIELD::Double:
                JsonNumber(o.Key(f.name), info.*f.member.d);
                break;
            case INFOFIELD::Float:
                JsonNumber(o.Key(f.name), info.*f.member.f);
                break;
            }
        }
        JsonArray(o.Key("pFrameIncrementPointers"), info.pFrameIncrementPointers.get(),
                  info.nFrameIncrementPointerCount);
        JsonArray(o.Key("pFrameOffsets"), info.pFrameOffsets.get(), info.nFrameOffsetCount);
        std::string& empty = o.Key("aEmptyNumberElements");
        empty += '[';
        for (size_t i = 0; i < info.aEmptyNumberElements.size(); ++i)
            JsonString(empty += i ? "," : "", FormatText("%08X", info.aEmptyNumberElements[i]));
        empty += ']';
        JsonCode(o.Key("ViewCode"), info.ViewCode);
        JsonCodes(o.Key("aViewModifierCodes"), info.aViewModifierCodes);
        JsonCode(o.Key("PatientSpeciesCode"), info.PatientSpeciesCode);
        JsonCode(o.Key("PatientBreedCode"), info.PatientBreedCode);
        JsonCodes(o.Key("aBreedRegistryCodes"), info.aBreedRegistryCodes);
        std::string& windows = o.Key("windows");
        windows += '[';
        for (size_t i = 0; i < info.aWindows.size(); ++i) {
            if (i)
                windows += ',';
            JsonObject w(windows);
            w.Text("sExplanation", info.aWindows[i]->sExplanation);
            w.Int("nCenter", info.aWindows[i]->nCenter);
            w.Int("nWidth", info.aWindows[i]->nWidth);
            JsonNumber(w.Key("dCenter"), info.aWindows[i]->dCenter);
            JsonNumber(w.Key("dWidth"), info.aWindows[i]->dWidth);
        }
        windows += ']';
        std::string& overlays = o.Key("overlays");
        overlays += '[';
        for (size_t i = 0; i < info.aOverlays.size(); ++i) {
            const DICOM_OVERLAY& ov = *info.aOverlays[i];
            if (i)
                overlays += ',';
            JsonObject v(overlays);
            v.Int("nIndex", ov.nIndex);
            v.Int("wRows", ov.wRows);
            v.Int("wColumns", ov.wColumns);
            v.Int("wPlanes", ov.wPlanes);
            v.Text("sType", ov.sType);
            v.Int("nOriginColumn", ov.nOriginColumn);
            v.Int("nOriginRow", ov.nOriginRow);
            v.Int("wBitsAllocated", ov.wBitsAllocated);
            v.Int("wBitPosition", ov.wBitPosition);
            v.Int("nDataSize", ov.nDataSize);
        }
        overlays += ']';
        const std::pair<const char*, const CModalityLutDesc*> luts[] = {{"ModalityLut", &info.ModalityLut},
                                                                        {"VoiLut", &info.VoiLut}};
        for (const auto& [name, lut] : luts) {
            JsonObject m(o.Key(name));
            m.Int("nEntries", lut->nEntries);
            m.Int("nFirstMapped", FirstMapped(*lut));
            m.Int("nBits", lut->nBits);
            m.Bool("bDataPresent", lut->IsDataPresent());
        }
        const std::pair<const char*, const DICOM_LUT*> palettes[] = {{"RedPaletteLut", &info.RedPaletteLut},
                                                                    {"GreenPaletteLut", &info.GreenPaletteLut},
                                                                    {"BluePaletteLut", &info.BluePaletteLut}};
        for (const auto& [name, lut] : palettes) {
            JsonObject p(o.Key(name));
            p.Int("nEntries", lut->nEntries);
            p.Int("nFirstMapped", lut->nFirstMapped);
            p.Int("wBits", lut->wBits);
            p.Bool("bDataPresent", lut->pData != nullptr);
        }
    }
    out += '\n';
    return out;
}

// --- readable text

const char* PhotometricName(int value)
{
    static const char* const kNames[] = {"MONOCHROME1", "MONOCHROME2", "PALETTE COLOR", "RGB",  "YBR_FULL",
                                         "YBR_FULL_422", "YBR_RCT",     "YBR_ICT",       "other"};
    return value >= 0 && value <= 8 ? kNames[value] : "other";
}

// ISO 8601: YYYY-MM-DD (the record's yyyymmdd; 18000000 or less is no date).
std::string Date(int date)
{
    if (date <= 18000000)
        return "-";
    return U8(DICOMINFO::FormatDateTimeIso(DICOMINFO::ConvertDateToDicom(date), "DA"));
}

// ISO 8601: HH:MM:SS (the record's hhmmss; negative is no time).
std::string Time(int time)
{
    if (time < 0)
        return "-";
    return U8(DICOMINFO::FormatDateTimeIso(DICOMINFO::ConvertTimeToDicom(time), "TM"));
}

// "  %-22s %s\n" without the printf machinery (the value ends at a NUL, as %s would).
void Line(std::string& out, const char* label, const std::string& value)
{
    size_t width = std::strlen(label);
    out += "  ";
    out.append(label, width);
    if (width < 22)
        out.append(22 - width, ' ');
    out.push_back(' ');
    out += value.c_str();
    out.push_back('\n');
}

std::string LutLine(uint32_t entries, long long first, uint32_t bits, bool data)
{
    return FormatText("%u entries from %lld, %u bits, %s", entries, first, bits, data ? "data loaded" : "no data");
}


void PaletteLines(std::string& out, const DICOMINFO& info)
{
    const std::pair<const char*, const DICOM_LUT*> palettes[] = {
        {"red palette", &info.RedPaletteLut}, {"green palette", &info.GreenPaletteLut},
        {"blue palette", &info.BluePaletteLut}};
    for (const auto& [name, lut] : palettes)
        Line(out, name, LutLine(lut->nEntries, lut->nFirstMapped, lut->wBits, lut->pData != nullptr));
}

// The file's value, and the record's beside it where it differs.
std::string Beside(const std::u16string& file, const std::u16string& record)
{
    std::string text = file.empty() ? "(no value)" : U8(file);
    return file == record ? text : text + " (record: " + U8(record) + ")";
}

std::string ToText(const char* path, const DICOMINFO& info, const FileValues& file)
{
    std::string out = FormatText("%s\n", path);
    out += "Identification\n";
    Line(out, "SOP class", U8(info.sSOPClassUID));
    Line(out, "SOP instance", U8(info.sSOPInstanceUID));
    Line(out, "transfer syntax", FormatText("%s (compression %d)", U8(info.sTransferSyntax).c_str(),
                                            info.nCompressionType));
    Line(out, "modality", U8(info.sModality));
    Line(out, "manufacturer", U8(info.sManufacturer));
    Line(out, "image type", U8(info.sImageType));
    out += "Patient\n";
    Line(out, "name", Beside(file.patientName, info.sPatientName));
    Line(out, "ID", U8(info.sPatientID));
    Line(out, "sex", Beside(file.patientSex, info.sPatientSex));
    Line(out, "birth date", Date(info.lPatientBirthDate));
    out += "Study and series\n";
    Line(out, "study date and time", Date(info.lStudyDate) + " " + Time(info.lStudyTime));
    Line(out, "content date and time", Date(info.lContentDate) + " " + Time(info.lContentTime));
    Line(out, "study instance UID", U8(info.sStudyInstanceUID));
    Line(out, "series instance UID", U8(info.sSeriesInstanceUID));
    Line(out, "study description", U8(info.sStudyDescription));
    Line(out, "series number", U8(info.sSeriesNumber));
    Line(out, "instance number", U8(info.sInstanceNumber));
    out += "Pixels\n";
    if (info.nRows <= 0 || info.nColumns <= 0) {
        // A report, plan or other object without Rows and Columns: the
        // record's pixel, display and orientation defaults describe nothing.
        Line(out, "image", "none (the object has no Rows and Columns)");
        // A Color Palette object is its LUTs.
        if (info.RedPaletteLut.pData || info.GreenPaletteLut.pData || info.BluePaletteLut.pData)
            PaletteLines(out, info);
        return out;
    }
    Line(out, "size", FormatText("%d columns x %d rows, %d frame(s)", info.nColumns, info.nRows,
                                 info.nNumberOfFrames));
    Line(out, "samples", FormatText("%u per pixel, planar configuration %u", info.wSamplesPerPixel,
                                    info.wPlanarConfiguration));
    Line(out, "bits", FormatText("allocated %d, stored %d, high bit %d, %s", info.nBitsAllocated, info.nBitsStored,
                                 info.nHighBit, info.wPixelRepresentation ? "signed" : "unsigned"));
    Line(out, "photometric", FormatText("%s (%d)", PhotometricName(info.nPhotometric), info.nPhotometric));
    Line(out, "spacing", FormatText("row %g mm, column %g mm", info.dRowSpacing, info.dColumnSpacing));
    Line(out, "aspect ratio", FormatText("%d:%d", info.nPixelAspectRatioV, info.nPixelAspectRatioH));
    Line(out, "pixel data offset", FormatText("%d", info.nPixelDataOffset));
    out += "Display\n";
    // The record's integers, then the exact values they were truncated from.
    Line(out, "window", FormatText("centre %d, width %d%s (exact %s, %s)", info.nWindowCenter, info.nWindowWidth,
                                   (info.nFlags & 3) == 3 ? "" : " (default)", Exact(info.dWindowCenter).c_str(),
                                   Exact(info.dWindowWidth).c_str()));
    for (const auto& window : info.aWindows)
        Line(out, "  alternative", FormatText("%s: centre %d, width %d (exact %s, %s)",
                                              U8(window->sExplanation).c_str(), window->nCenter, window->nWidth,
                                              Exact(window->dCenter).c_str(), Exact(window->dWidth).c_str()));
    Line(out, "rescale", FormatText("intercept %d (exact %s), slope %s %s", info.nRescaleIntercept,
                                    Exact(info.dRescaleIntercept).c_str(), Exact(info.dRescaleSlope).c_str(),
                                    U8(info.sRescaleType).c_str()));
    // Elements the file holds without a value: the record kept its defaults.
    for (uint32_t tag : info.aEmptyNumberElements) {
        std::u16string vr, name;
        CTagTable::GetTagInfo(static_cast<int>(tag >> 16), static_cast<int>(tag & 0xFFFF), vr, name);
        Line(out, "empty in the file", FormatText("(%04X,%04X) %s", tag >> 16, tag & 0xFFFF, U8(name).c_str()));
    }
    Line(out, "modality LUT", LutLine(info.ModalityLut.nEntries, FirstMapped(info.ModalityLut),
                                      info.ModalityLut.nBits, info.ModalityLut.IsDataPresent()));
    if (info.VoiLut.nEntries > 0)
        Line(out, "VOI LUT", LutLine(info.VoiLut.nEntries, FirstMapped(info.VoiLut), info.VoiLut.nBits,
                                     info.VoiLut.IsDataPresent()));
    if (info.nPhotometric == DICOMINFO::PALETTE_COLOR || info.RedPaletteLut.pData)
        PaletteLines(out, info);
    for (const auto& overlay : info.aOverlays)
        Line(out, "overlay", FormatText("group %04X: %u x %u at row %d column %d, type %s, bit %u, %d bytes",
                                        0x6000 + overlay->nIndex, overlay->wColumns, overlay->wRows,
                                        overlay->nOriginRow, overlay->nOriginColumn, U8(overlay->sType).c_str(),
                                        overlay->wBitPosition, overlay->nDataSize));
    if (info.pFrameOffsets) {
        std::string offsets;
        int shown = std::min(info.nNumberOfFrames, 8);
        for (int i = 0; i < shown; ++i)
            offsets += FormatText(i ? ", %u" : "%u", info.pFrameOffsets[i]);
        if (info.nNumberOfFrames > shown)
            offsets += FormatText(", ... (%d frames)", info.nNumberOfFrames);
        Line(out, "frame offsets", offsets);
    }
    out += "Orientation\n";
    Line(out, "patient orientation", U8(info.sPatientOrientation));
    CPatientOrientation markers;
    if (markers.FromDicom(WideToAscii(info.sPatientOrientation), 0))
        Line(out, "edge markers", FormatText("top %s, left %s, right %s, bottom %s", U8(markers.sTop).c_str(),
                                             U8(markers.sLeft).c_str(), U8(markers.sRight).c_str(),
                                             U8(markers.sBottom).c_str()));
    Line(out, "image position", U8(info.sImagePositionPatient));
    Line(out, "image orientation", U8(info.sImageOrientationPatient));
    return out;
}

}  // namespace

int RunInfo(int argc, char** argv)
{
    OptionReader reader("info", "FILE...",
                        "The image information record of each file: identification, patient, study, pixel\n"
                        "description, windows, LUTs, overlays, frame layout, orientation. Dates are shown as\n"
                        "YYYY-MM-DD, times as HH:MM:SS.");
    bool json = false, ndjson = false;
    reader.Flag("--json", "one JSON object keyed by the record's field names; with several files one line per "
                          "file, {\"file\": PATH, ...}",
                json);
    reader.Flag("--ndjson", "one such line per file, even for one file", ndjson);
    reader.Example("zeldicom info --ndjson *.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const std::vector<std::string>& files = reader.Operands();
    json = json || ndjson;
    ndjson = ndjson || (json && files.size() > 1);
    int status = kExitDone;
    for (const std::string& path : files) {
        DICOMINFO info;
        if (!info.ReadFileInfo(Utf8ToUtf16(path))) {
            std::fflush(stdout);
            std::fprintf(stderr, "zeldicom info: %s: %s\n", path.c_str(), info.GetLastError().GetText().c_str());
            status = kExitFailed;
            continue;
        }
        FileValues values(info);
        std::string text = json ? ToJson(info, values, ndjson ? &path : nullptr) : ToText(path.c_str(), info, values);
        std::fwrite(text.data(), 1, text.size(), stdout);
    }
    return FinishOutput("info") ? status : kExitFailed;
}
