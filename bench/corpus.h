#pragma once
// The benchmark corpus, generated rather than downloaded: CT-like single
// frame objects with a realistic header and one large multi-frame object.
// Shared by the corpus generator program, the benchmarks (which build their
// inputs in memory) and the corpus tests, so it is header-only.
//
// Everything is written little endian; explicit VR unless asked otherwise.
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "dicomdata/vrtable.h"

namespace zelbench {

// Appends DICOM elements to a byte string. Values of odd length get the pad
// byte of their VR (a space for text VRs, a zero byte for the others).
class ElementWriter {
public:
    explicit ElementWriter(bool explicitVR = true) : m_explicit(explicitVR) {}

    static bool IsLongForm(std::string_view vr) { return zeldicom::IsLongFormVR(vr); }
    static char PadByte(std::string_view vr) { return static_cast<char>(zeldicom::PaddingByteOf(vr)); }

    // Header only: the caller supplies length bytes of value afterwards.
    void Header(uint16_t group, uint16_t element, std::string_view vr, uint32_t length)
    {
        U16(group);
        U16(element);
        if (!m_explicit || group == 0xFFFE) {
            U32(length);
        } else if (IsLongForm(vr)) {
            m_bytes.append(vr.data(), 2);
            U16(0);
            U32(length);
        } else {
            m_bytes.append(vr.data(), 2);
            U16(static_cast<uint16_t>(length));
        }
    }
    void Bytes(uint16_t group, uint16_t element, std::string_view vr, const void* value, size_t size)
    {
        const bool odd = (size & 1) != 0;
        Header(group, element, vr, static_cast<uint32_t>(size + (odd ? 1 : 0)));
        m_bytes.append(static_cast<const char*>(value), size);
        if (odd)
            m_bytes.push_back(PadByte(vr));
    }
    void Text(uint16_t group, uint16_t element, std::string_view vr, std::string_view value)
    {
        Bytes(group, element, vr, value.data(), value.size());
    }
    void US(uint16_t group, uint16_t element, uint16_t value)
    {
        const unsigned char le[2] = {static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8)};
        Bytes(group, element, "US", le, 2);
    }
    void UL(uint16_t group, uint16_t element, uint32_t value)
    {
        ElementWriter le;
        le.U32(value);
        Bytes(group, element, "UL", le.m_bytes.data(), 4);
    }
    void AT(uint16_t group, uint16_t element, uint16_t pointedGroup, uint16_t pointedElement)
    {
        ElementWriter le;
        le.U16(pointedGroup);
        le.U16(pointedElement);
        Bytes(group, element, "AT", le.m_bytes.data(), 4);
    }
    // A sequence of already encoded item data sets. Undefined length writes
    // undefined-length items with item delimiters and a sequence delimiter,
    // as many modalities do; otherwise every length is given.
    void Sequence(uint16_t group, uint16_t element, const std::vector<std::string>& items, bool undefinedLength)
    {
        if (undefinedLength) {
            Header(group, element, "SQ", 0xFFFFFFFFu);
            for (const std::string& item : items) {
                Header(0xFFFE, 0xE000, "", 0xFFFFFFFFu);
                m_bytes += item;
                Header(0xFFFE, 0xE00D, "", 0);
            }
            Header(0xFFFE, 0xE0DD, "", 0);
            return;
        }
        size_t total = 0;
        for (const std::string& item : items)
            total += 8 + item.size();
        Header(group, element, "SQ", static_cast<uint32_t>(total));
        for (const std::string& item : items) {
            Header(0xFFFE, 0xE000, "", static_cast<uint32_t>(item.size()));
            m_bytes += item;
        }
    }

    void U16(uint16_t value)
    {
        m_bytes.push_back(static_cast<char>(value & 0xFF));
        m_bytes.push_back(static_cast<char>(value >> 8));
    }
    void U32(uint32_t value)
    {
        U16(static_cast<uint16_t>(value & 0xFFFF));
        U16(static_cast<uint16_t>(value >> 16));
    }

    bool IsExplicit() const { return m_explicit; }
    const std::string& Result() const { return m_bytes; }
    std::string& Result() { return m_bytes; }

private:
    bool m_explicit;
    std::string m_bytes;
};

// Fixed identities of the corpus. UIDs below 2.25 need no registered root.
inline constexpr const char* kCtImageStorage = "1.2.840.10008.5.1.4.1.1.2";
inline constexpr const char* kMultiFrameWordScStorage = "1.2.840.10008.5.1.4.1.1.7.3";
inline constexpr const char* kExplicitLittleEndian = "1.2.840.10008.1.2.1";
inline constexpr const char* kUidBase = "2.25.271828182845904523536028747135266249";
inline constexpr const char* kImplementationClassUid = "2.25.271828182845904523536028747135266249.9";

inline std::string CorpusUid(const char* kind, int number)
{
    return std::string(kUidBase) + "." + kind + "." + std::to_string(number);
}

// Preamble, "DICM" and the file meta information group (explicit VR).
inline std::string MetaHeader(const std::string& sopClass, const std::string& sopInstance)
{
    ElementWriter group;
    const unsigned char version[2] = {0x00, 0x01};
    group.Bytes(0x0002, 0x0001, "OB", version, 2);
    group.Text(0x0002, 0x0002, "UI", sopClass);
    group.Text(0x0002, 0x0003, "UI", sopInstance);
    group.Text(0x0002, 0x0010, "UI", kExplicitLittleEndian);
    group.Text(0x0002, 0x0012, "UI", kImplementationClassUid);
    group.Text(0x0002, 0x0013, "SH", "ZELBENCH_1");
    ElementWriter out;
    out.Result().assign(128, '\0');
    out.Result() += "DICM";
    out.UL(0x0002, 0x0000, static_cast<uint32_t>(group.Result().size()));
    out.Result() += group.Result();
    return std::move(out.Result());
}

inline std::string DecimalText(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

// One item of Referenced Image / Source Image / Referenced Study Sequence.
inline std::string ReferenceItem(bool explicitVR, const char* sopClass, const std::string& sopInstance)
{
    ElementWriter item(explicitVR);
    item.Text(0x0008, 0x1150, "UI", sopClass);
    item.Text(0x0008, 0x1155, "UI", sopInstance);
    return std::move(item.Result());
}

// Patient, general study and general series modules shared by both kinds of
// object; group 0008 elements are written by the callers, in tag order.
inline void WritePatientModule(ElementWriter& w)
{
    w.Text(0x0010, 0x0010, "PN", "M\xFCller^J\xFCrgen");  // ISO_IR 100 (Latin-1)
    w.Text(0x0010, 0x0020, "LO", "ZB-0042-7781");
    w.Text(0x0010, 0x0030, "DA", "19700412");
    w.Text(0x0010, 0x0040, "CS", "M");
    w.Text(0x0010, 0x1010, "AS", "054Y");
    w.Text(0x0010, 0x1020, "DS", "1.82");
    w.Text(0x0010, 0x1030, "DS", "81.5");
    w.Text(0x0010, 0x21B0, "LT", "Persistent cough for three weeks; rule out pneumonia.");
    w.Text(0x0010, 0x4000, "LT", "Benchmark corpus object, synthetic data.");
}

// The data set of small CT object number index (0-based): about 150
// elements with four sequences, a private group and 128x128x16-bit pixels.
inline std::string SmallCtDataSet(int index, bool explicitVR = true)
{
    const int rows = 128;
    const int columns = 128;
    const std::string instanceUid = CorpusUid("3", index + 1);
    ElementWriter w(explicitVR);

    w.Text(0x0008, 0x0005, "CS", "ISO_IR 100");
    w.Text(0x0008, 0x0008, "CS", "ORIGINAL\\PRIMARY\\AXIAL");
    w.Text(0x0008, 0x0012, "DA", "20260311");
    w.Text(0x0008, 0x0013, "TM", "101502.120000");
    w.Text(0x0008, 0x0016, "UI", kCtImageStorage);
    w.Text(0x0008, 0x0018, "UI", instanceUid);
    w.Text(0x0008, 0x0020, "DA", "20260311");
    w.Text(0x0008, 0x0021, "DA", "20260311");
    w.Text(0x0008, 0x0022, "DA", "20260311");
    w.Text(0x0008, 0x0023, "DA", "20260311");
    w.Text(0x0008, 0x0030, "TM", "100712");
    w.Text(0x0008, 0x0031, "TM", "101044.5");
    w.Text(0x0008, 0x0032, "TM", "101101.25");
    w.Text(0x0008, 0x0033, "TM", "101502.12");
    w.Text(0x0008, 0x0050, "SH", "ACC20260311017");
    w.Text(0x0008, 0x0060, "CS", "CT");
    w.Text(0x0008, 0x0070, "LO", "Zel Medical Systems");
    w.Text(0x0008, 0x0080, "LO", "St. Elisabeth Klinikum");
    w.Text(0x0008, 0x0081, "ST", "Hauptstra\xDF" "e 12, 80331 M\xFCnchen");
    w.Text(0x0008, 0x0090, "PN", "Schr\xF6" "der^Anna^^Dr.");
    w.Text(0x0008, 0x1010, "SH", "CTSCAN01");
    w.Text(0x0008, 0x1030, "LO", "CT THORAX WITH CONTRAST");
    {
        ElementWriter code(explicitVR);
        code.Text(0x0008, 0x0100, "SH", "ZB-CT-0071");
        code.Text(0x0008, 0x0102, "SH", "99ZELBENCH");
        code.Text(0x0008, 0x0103, "SH", "1.0");
        code.Text(0x0008, 0x0104, "LO", "CT Thorax with contrast");
        w.Sequence(0x0008, 0x1032, {code.Result()}, true);
    }
    w.Text(0x0008, 0x103E, "LO", "Thorax 1.0 B30f");
    w.Text(0x0008, 0x1040, "LO", "Radiologie");
    w.Text(0x0008, 0x1050, "PN", "Weber^Thomas");
    w.Text(0x0008, 0x1070, "PN", "Fischer^Lena");
    w.Text(0x0008, 0x1090, "LO", "ZelScan 64");
    w.Sequence(0x0008, 0x1110, {ReferenceItem(explicitVR, "1.2.840.10008.3.1.2.3.1", CorpusUid("7", 1))}, false);
    {
        // The neighbouring slices and the scout this slice was planned on.
        std::vector<std::string> items;
        items.push_back(ReferenceItem(explicitVR, kCtImageStorage, CorpusUid("5", 1)));
        items.push_back(ReferenceItem(explicitVR, kCtImageStorage, CorpusUid("3", index > 0 ? index : index + 3)));
        items.push_back(ReferenceItem(explicitVR, kCtImageStorage, CorpusUid("3", index + 2)));
        w.Sequence(0x0008, 0x1140, items, true);
    }
    {
        std::vector<std::string> items;
        items.push_back(ReferenceItem(explicitVR, kCtImageStorage, CorpusUid("6", 2 * index + 1)));
        items.push_back(ReferenceItem(explicitVR, kCtImageStorage, CorpusUid("6", 2 * index + 2)));
        w.Sequence(0x0008, 0x2112, items, false);
    }

    // A vendor's private block: creator, a few values and an opaque blob.
    w.Text(0x0009, 0x0010, "LO", "ZELBENCH PRIVATE 1.0");
    w.Text(0x0009, 0x1001, "LO", "RECON-STANDARD");
    w.Text(0x0009, 0x1002, "DS", "0.625");
    w.UL(0x0009, 0x1003, static_cast<uint32_t>(index));
    {
        std::string blob(4096, '\0');
        for (size_t i = 0; i < blob.size(); ++i)
            blob[i] = static_cast<char>((i * 31 + static_cast<size_t>(index)) & 0xFF);
        w.Bytes(0x0009, 0x1010, "OB", blob.data(), blob.size());
    }

    WritePatientModule(w);

    const double sliceLocation = -250.0 + 0.625 * index;
    w.Text(0x0018, 0x0015, "CS", "CHEST");
    w.Text(0x0018, 0x0022, "CS", "HELICAL MODE");
    w.Text(0x0018, 0x0050, "DS", "0.625");
    w.Text(0x0018, 0x0060, "DS", "120");
    w.Text(0x0018, 0x0088, "DS", "0.625");
    w.Text(0x0018, 0x0090, "DS", "500");
    w.Text(0x0018, 0x1000, "LO", "ZS64-000817");
    w.Text(0x0018, 0x1020, "LO", "ZelScan VB20A");
    w.Text(0x0018, 0x1030, "LO", "Thorax_KM_1.0");
    w.Text(0x0018, 0x1100, "DS", "350");
    w.Text(0x0018, 0x1110, "DS", "1085.6");
    w.Text(0x0018, 0x1111, "DS", "595");
    w.Text(0x0018, 0x1120, "DS", "0");
    w.Text(0x0018, 0x1130, "DS", "152");
    w.Text(0x0018, 0x1140, "CS", "CW");
    w.Text(0x0018, 0x1150, "IS", "500");
    w.Text(0x0018, 0x1151, "IS", "214");
    w.Text(0x0018, 0x1152, "IS", "107");
    w.Text(0x0018, 0x1160, "SH", "FLAT");
    w.Text(0x0018, 0x1170, "IS", "26");
    w.Text(0x0018, 0x1190, "DS", "1.2");
    w.Text(0x0018, 0x1210, "SH", "B30f");
    w.Text(0x0018, 0x5100, "CS", "HFS");

    w.Text(0x0020, 0x000D, "UI", CorpusUid("1", 1));
    w.Text(0x0020, 0x000E, "UI", CorpusUid("2", 1));
    w.Text(0x0020, 0x0010, "SH", "4471");
    w.Text(0x0020, 0x0011, "IS", "3");
    w.Text(0x0020, 0x0012, "IS", "1");
    w.Text(0x0020, 0x0013, "IS", std::to_string(index + 1));
    w.Text(0x0020, 0x0032, "DS", "-175.5\\-180.2\\" + DecimalText(sliceLocation));
    w.Text(0x0020, 0x0037, "DS", "1\\0\\0\\0\\1\\0");
    w.Text(0x0020, 0x0052, "UI", CorpusUid("4", 1));
    w.Text(0x0020, 0x1040, "LO", "SN");
    w.Text(0x0020, 0x1041, "DS", DecimalText(sliceLocation));
    w.Text(0x0020, 0x4000, "LT", "Venous phase");

    w.US(0x0028, 0x0002, 1);
    w.Text(0x0028, 0x0004, "CS", "MONOCHROME2");
    w.US(0x0028, 0x0010, static_cast<uint16_t>(rows));
    w.US(0x0028, 0x0011, static_cast<uint16_t>(columns));
    w.Text(0x0028, 0x0030, "DS", "2.734375\\2.734375");
    w.US(0x0028, 0x0100, 16);
    w.US(0x0028, 0x0101, 12);
    w.US(0x0028, 0x0102, 11);
    w.US(0x0028, 0x0103, 0);
    w.Text(0x0028, 0x1050, "DS", "40\\-600");
    w.Text(0x0028, 0x1051, "DS", "400\\1500");
    w.Text(0x0028, 0x1052, "DS", "-1024");
    w.Text(0x0028, 0x1053, "DS", "1");
    w.Text(0x0028, 0x1054, "LO", "HU");
    w.Text(0x0028, 0x1055, "LO", "MEDIASTINUM\\LUNG");

    w.Text(0x0032, 0x1060, "LO", "CT Thorax");

    w.Text(0x0040, 0x0244, "DA", "20260311");
    w.Text(0x0040, 0x0245, "TM", "100712");
    w.Text(0x0040, 0x0253, "SH", "PPS4471");
    w.Text(0x0040, 0x0254, "LO", "CT Thorax with contrast");
    {
        ElementWriter request(explicitVR);
        request.Text(0x0040, 0x0007, "LO", "CT Thorax");
        request.Text(0x0040, 0x0009, "SH", "SPS4471");
        request.Text(0x0040, 0x1001, "SH", "RP4471");
        w.Sequence(0x0040, 0x0275, {request.Result()}, true);
    }

    // A water-filled disc with some texture: 12-bit values, air outside.
    std::string pixels(static_cast<size_t>(rows) * columns * 2, '\0');
    for (int y = 0; y < rows; ++y) {
        for (int x = 0; x < columns; ++x) {
            const int dx = x - columns / 2;
            const int dy = y - rows / 2;
            const int value = dx * dx + dy * dy < 50 * 50 ? 1024 + ((x * 7 + y * 13 + index) & 63) : 0;
            const size_t at = (static_cast<size_t>(y) * columns + x) * 2;
            pixels[at] = static_cast<char>(value & 0xFF);
            pixels[at + 1] = static_cast<char>(value >> 8);
        }
    }
    w.Bytes(0x7FE0, 0x0010, "OW", pixels.data(), pixels.size());
    return std::move(w.Result());
}

// The complete Part 10 file image of small CT object number index.
inline std::string SmallCtFile(int index)
{
    return MetaHeader(kCtImageStorage, CorpusUid("3", index + 1)) + SmallCtDataSet(index, true);
}

// Bytes of pixel data of a multi-frame object of 16-bit pixels; 0 when the
// size cannot be held in a defined 32-bit length.
inline uint32_t MultiFramePixelBytes(int frames, int rows, int columns)
{
    if (frames <= 0 || rows <= 0 || columns <= 0 || rows > 0xFFFF || columns > 0xFFFF)
        return 0;
    const uint64_t bytes = static_cast<uint64_t>(frames) * static_cast<uint64_t>(rows) *
                           static_cast<uint64_t>(columns) * 2u;
    return bytes < 0xFFFFFFFFu ? static_cast<uint32_t>(bytes) : 0;
}

// The header of the multi-frame object, up to and including the pixel data
// element's own header (the frames follow it in the file).
inline std::string MultiFrameHeader(int frames, int rows, int columns)
{
    const std::string instanceUid = CorpusUid("8", frames);
    std::string file = MetaHeader(kMultiFrameWordScStorage, instanceUid);
    ElementWriter w;
    w.Text(0x0008, 0x0005, "CS", "ISO_IR 100");
    w.Text(0x0008, 0x0008, "CS", "DERIVED\\SECONDARY");
    w.Text(0x0008, 0x0016, "UI", kMultiFrameWordScStorage);
    w.Text(0x0008, 0x0018, "UI", instanceUid);
    w.Text(0x0008, 0x0020, "DA", "20260311");
    w.Text(0x0008, 0x0030, "TM", "100712");
    w.Text(0x0008, 0x0050, "SH", "ACC20260311018");
    w.Text(0x0008, 0x0060, "CS", "OT");
    w.Text(0x0008, 0x0064, "CS", "WSD");
    w.Text(0x0008, 0x0070, "LO", "Zel Medical Systems");
    w.Text(0x0008, 0x0090, "PN", "Schr\xF6" "der^Anna^^Dr.");
    w.Text(0x0008, 0x1030, "LO", "CT THORAX WITH CONTRAST");
    w.Text(0x0008, 0x103E, "LO", "Cine reformat");
    WritePatientModule(w);
    w.Text(0x0018, 0x1063, "DS", "33.3");
    w.Text(0x0020, 0x000D, "UI", CorpusUid("1", 1));
    w.Text(0x0020, 0x000E, "UI", CorpusUid("2", 2));
    w.Text(0x0020, 0x0010, "SH", "4471");
    w.Text(0x0020, 0x0011, "IS", "90");
    w.Text(0x0020, 0x0013, "IS", "1");
    w.Text(0x0020, 0x0020, "CS", "L\\P");
    w.US(0x0028, 0x0002, 1);
    w.Text(0x0028, 0x0004, "CS", "MONOCHROME2");
    w.Text(0x0028, 0x0008, "IS", std::to_string(frames));
    w.AT(0x0028, 0x0009, 0x0018, 0x1063);
    w.US(0x0028, 0x0010, static_cast<uint16_t>(rows));
    w.US(0x0028, 0x0011, static_cast<uint16_t>(columns));
    w.US(0x0028, 0x0100, 16);
    w.US(0x0028, 0x0101, 16);
    w.US(0x0028, 0x0102, 15);
    w.US(0x0028, 0x0103, 0);
    w.Text(0x0028, 0x1050, "DS", "2048");
    w.Text(0x0028, 0x1051, "DS", "4096");
    w.Header(0x7FE0, 0x0010, "OW", MultiFramePixelBytes(frames, rows, columns));
    return file + w.Result();
}

// Writes small CT object number index to path. False (and why) on failure.
inline bool WriteSmallCtFile(const std::string& path, int index, std::string& error)
{
    const std::string bytes = SmallCtFile(index);
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        error = "cannot create " + path;
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed)
        error = "cannot write " + path;
    return written && closed;
}

// Writes the multi-frame object (frames of rows x columns, 16 bits) to path,
// one frame at a time: memory use stays at one frame whatever the total.
// Every frame differs (a moving ramp) so that no tool can fold them.
inline bool WriteMultiFrameFile(const std::string& path, int frames, int rows, int columns, std::string& error)
{
    if (MultiFramePixelBytes(frames, rows, columns) == 0) {
        error = "the pixel data of " + std::to_string(frames) + " frames of " + std::to_string(rows) + "x" +
                std::to_string(columns) + " does not fit a 32-bit length";
        return false;
    }
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (!file) {
        error = "cannot create " + path;
        return false;
    }
    const std::string header = MultiFrameHeader(frames, rows, columns);
    bool written = std::fwrite(header.data(), 1, header.size(), file) == header.size();
    std::vector<unsigned char> frame(static_cast<size_t>(rows) * static_cast<size_t>(columns) * 2u);
    for (int f = 0; written && f < frames; ++f) {
        for (int y = 0; y < rows; ++y) {
            unsigned char* line = frame.data() + static_cast<size_t>(y) * static_cast<size_t>(columns) * 2u;
            for (int x = 0; x < columns; ++x) {
                const unsigned value = static_cast<unsigned>(x * 4 + y * 3 + f * 16) & 0x0FFFu;
                line[2 * x] = static_cast<unsigned char>(value & 0xFF);
                line[2 * x + 1] = static_cast<unsigned char>(value >> 8);
            }
        }
        written = std::fwrite(frame.data(), 1, frame.size(), file) == frame.size();
    }
    const bool closed = std::fclose(file) == 0;
    if (!written || !closed)
        error = "cannot write " + path;
    return written && closed;
}

}  // namespace zelbench
