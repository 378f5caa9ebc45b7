// zeldicom capture [--from REF.dcm] IMAGE OUT.dcm: a Secondary Capture
// object from a netpbm image (PGM greyscale of 8 or 16 bits, PPM RGB), the
// way a host application turns a screen capture into DICOM: an image record
// is filled (patient and study taken from REF), its header written by the
// record's header writer, the file meta information put in front and the
// pixels behind. OUT is replaced only by a complete file.
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <cstring>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/options.h"

using namespace zeldicom;

namespace {

constexpr char16_t kSecondaryCaptureImageStorage[] = u"1.2.840.10008.5.1.4.1.1.7";
constexpr char16_t kImplicitLittleEndian[] = u"1.2.840.10008.1.2";

int Fail(const std::string& message)
{
    std::fprintf(stderr, "zeldicom capture: %s\n", message.c_str());
    return 1;
}

// A decoded netpbm image: samples little endian, interleaved (R, G, B).
struct NetpbmImage {
    unsigned width = 0, height = 0, samples = 0, maxValue = 0;
    std::vector<unsigned char> pixels;
    unsigned BytesPerSample() const { return maxValue > 255 ? 2 : 1; }
};

// Reads the header fields and samples of a netpbm file (one image, the
// first of the file). Every count is checked against the bytes left.
class NetpbmReader {
public:
    explicit NetpbmReader(const std::vector<unsigned char>& bytes) : m_Bytes(bytes) {}

    bool Read(NetpbmImage& image, std::string& error)
    {
        if (m_Bytes.size() < 2 || m_Bytes[0] != 'P' || !std::strchr("2356", m_Bytes[1]) || m_Bytes[1] == 0) {
            error = "not a PGM or PPM image (P2, P3, P5 or P6)";
            return false;
        }
        char kind = static_cast<char>(m_Bytes[1]);
        m_nPos = 2;
        bool plain = kind == '2' || kind == '3';
        image.samples = kind == '3' || kind == '6' ? 3 : 1;
        if (!Number(image.width) || !Number(image.height) || !Number(image.maxValue)) {
            error = "damaged netpbm header";
            return false;
        }
        // Rows and Columns are 16-bit (US); a sample is at most 16 bits.
        if (image.width == 0 || image.height == 0 || image.width > 65535 || image.height > 65535) {
            error = FormatText("%u x %u pixels: DICOM holds 1 to 65535 rows and columns", image.width, image.height);
            return false;
        }
        if (image.maxValue == 0 || image.maxValue > 65535) {
            error = FormatText("maximum value %u: netpbm allows 1 to 65535", image.maxValue);
            return false;
        }
        uint64_t count = uint64_t{image.width} * image.height * image.samples;
        uint64_t size = count * image.BytesPerSample();
        // The pixel data element's length is 32 bits, the meta header sits in front.
        if (size > 0xFFFF0000u) {
            error = "image larger than a DICOM pixel data element holds";
            return false;
        }
        if (plain)
            return ReadPlain(image, count, error);
        // One white space byte separates the header from the samples.
        if (m_nPos >= m_Bytes.size() || !IsSpace(m_Bytes[m_nPos])) {
            error = "damaged netpbm header";
            return false;
        }
        ++m_nPos;
        if (m_Bytes.size() - m_nPos < size) {
            error = FormatText("truncated image: %llu sample bytes expected, %llu present",
                               static_cast<unsigned long long>(size),
                               static_cast<unsigned long long>(m_Bytes.size() - m_nPos));
            return false;
        }
        image.pixels.assign(m_Bytes.begin() + static_cast<std::ptrdiff_t>(m_nPos),
                            m_Bytes.begin() + static_cast<std::ptrdiff_t>(m_nPos + size));
        // Netpbm stores 16-bit samples most significant byte first.
        if (image.BytesPerSample() == 2)
            for (size_t i = 0; i + 1 < image.pixels.size(); i += 2)
                std::swap(image.pixels[i], image.pixels[i + 1]);
        return CheckRange(image, error);
    }

private:
    static bool IsSpace(unsigned char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f'; }

    void SkipSpaceAndComments()
    {
        while (m_nPos < m_Bytes.size()) {
            if (IsSpace(m_Bytes[m_nPos])) {
                ++m_nPos;
            } else if (m_Bytes[m_nPos] == '#') {
                while (m_nPos < m_Bytes.size() && m_Bytes[m_nPos] != '\n' && m_Bytes[m_nPos] != '\r')
                    ++m_nPos;
            } else {
                return;
            }
        }
    }

    // A decimal number of at most 9 digits.
    bool Number(unsigned& value)
    {
        SkipSpaceAndComments();
        size_t digits = 0;
        value = 0;
        while (m_nPos < m_Bytes.size() && m_Bytes[m_nPos] >= '0' && m_Bytes[m_nPos] <= '9') {
            if (++digits > 9)
                return false;
            value = value * 10 + (m_Bytes[m_nPos++] - '0');
        }
        return digits > 0;
    }

    bool ReadPlain(NetpbmImage& image, uint64_t count, std::string& error)
    {
        // A plain sample takes at least two bytes (a digit and a separator):
        // a count the file cannot hold is refused before anything is allocated.
        if (count > (m_Bytes.size() - m_nPos + 1) / 2) {
            error = "truncated image: fewer samples than the header announces";
            return false;
        }
        image.pixels.reserve(count * image.BytesPerSample());
        for (uint64_t i = 0; i < count; ++i) {
            unsigned value = 0;
            if (!Number(value)) {
                error = "truncated image: fewer samples than the header announces";
                return false;
            }
            image.pixels.push_back(static_cast<unsigned char>(value));
            if (image.BytesPerSample() == 2)
                image.pixels.push_back(static_cast<unsigned char>(value >> 8));
            if (value > image.maxValue) {
                error = FormatText("sample %u above the maximum value %u", value, image.maxValue);
                return false;
            }
        }
        return true;
    }

    static bool CheckRange(const NetpbmImage& image, std::string& error)
    {
        if (image.BytesPerSample() == 1 && image.maxValue == 255)
            return true;
        for (size_t i = 0; i < image.pixels.size(); i += image.BytesPerSample()) {
            unsigned value = image.pixels[i] | (image.BytesPerSample() == 2 ? image.pixels[i + 1] << 8 : 0);
            if (value > image.maxValue) {
                error = FormatText("sample %u above the maximum value %u", value, image.maxValue);
                return false;
            }
        }
        return true;
    }

    const std::vector<unsigned char>& m_Bytes;
    size_t m_nPos = 0;
};

bool ReadWholeFile(const char* path, std::vector<unsigned char>& bytes, std::string& error)
{
    FILE* file = std::fopen(path, "rb");
    if (!file) {
        error = std::strerror(errno);
        return false;
    }
    unsigned char chunk[65536];
    for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, file)) > 0;) {
        if (bytes.size() + n > 0xFFFF8000u) {
            std::fclose(file);
            error = "file larger than 4 GiB";
            return false;
        }
        bytes.insert(bytes.end(), chunk, chunk + n);
    }
    bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed)
        error = "read error";
    return !failed;
}

// The number of significant bits of the largest sample value.
int BitsFor(unsigned maxValue)
{
    int bits = 0;
    while (maxValue >> bits)
        ++bits;
    return bits;
}

void FillPixelDescription(DICOMINFO& info, const NetpbmImage& image)
{
    info.nColumns = static_cast<int>(image.width);
    info.nRows = static_cast<int>(image.height);
    info.wSamplesPerPixel = static_cast<uint16_t>(image.samples);
    info.nPhotometric = image.samples == 3 ? DICOMINFO::RGB : DICOMINFO::MONOCHROME2;
    info.nBitsAllocated = 8 * static_cast<int>(image.BytesPerSample());
    info.nBitsStored = image.samples == 3 ? info.nBitsAllocated : BitsFor(image.maxValue);
    info.nHighBit = info.nBitsStored - 1;
    info.wPixelRepresentation = 0;
    info.wPlanarConfiguration = 0;
    info.nNumberOfFrames = 1;
    // The full range of the image's values as the default window.
    info.nWindowWidth = static_cast<int>(image.maxValue) + 1;
    info.nWindowCenter = info.nWindowWidth / 2;
    // The pixels are new: the reference's pixel transforms do not apply.
    info.nRescaleIntercept = 0;
    info.ModalityLut = CModalityLutDesc();
    info.RedPaletteLut.Free();
    info.GreenPaletteLut.Free();
    info.BluePaletteLut.Free();
    info.FreeOverlayData();
    info.dRowSpacing = info.dColumnSpacing = 0.0;
}

void SetNow(DICOMINFO& info, bool study)
{
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    int date = (local.tm_year + 1900) * 10000 + (local.tm_mon + 1) * 100 + local.tm_mday;
    int time = local.tm_hour * 10000 + local.tm_min * 100 + local.tm_sec;
    info.lContentDate = date;
    info.lContentTime = time;
    if (study) {
        info.lStudyDate = date;
        info.lStudyTime = time;
    }
}

}  // namespace

int RunCapture(int argc, char** argv)
{
    OptionReader reader("capture", "IMAGE OUT",
                        "Makes a Secondary Capture DICOM file (implicit VR little endian) from a netpbm image:\n"
                        "PGM (P2/P5, 8 or 16 bits) or PPM RGB (P3/P6, 8 or 16 bits).");
    std::string referenceFile;
    reader.Text("--from", "REF.dcm",
                "take the patient, study and series of REF (a new SOP Instance UID is made in every case)",
                referenceFile);
    reader.Example("zeldicom capture --from ct.dcm screen.pgm capture.dcm");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    const char* reference = referenceFile.empty() ? nullptr : referenceFile.c_str();
    const char* imagePath = reader.Operands()[0].c_str();
    const char* out = reader.Operands()[1].c_str();

    std::vector<unsigned char> bytes;
    std::string error;
    NetpbmImage image;
    if (!ReadWholeFile(imagePath, bytes, error) || !NetpbmReader(bytes).Read(image, error))
        return Fail(FormatText("%s: %s", imagePath, error.c_str()));
    bytes.clear();
    bytes.shrink_to_fit();

    // UIDs and the meta information's implementation class need a root.
    UseToolIdentity();
    DICOMINFO info;
    if (reference) {
        DICOMINFO source;
        if (!source.ReadFileInfo(Utf8ToUtf16(reference)))
            return Fail(FormatText("%s: %s", reference, source.GetLastError().GetText().c_str()));
        info.SetCommonInfo(&source);
        // A reference without them (not an image) still gives a study and series.
        if (Trim(info.sStudyInstanceUID).empty())
            info.sStudyInstanceUID = CDicomItem::GetUID();
        if (Trim(info.sSeriesInstanceUID).empty())
            info.sSeriesInstanceUID = CDicomItem::GetUID();
        SetNow(info, false);
    } else {
        info.sStudyInstanceUID = CDicomItem::GetUID();
        info.sSeriesInstanceUID = CDicomItem::GetUID();
        info.sSeriesNumber = u"1";
        SetNow(info, true);
    }
    if (Trim(info.sModality).empty())
        info.sModality = u"OT";  // PS3.3 C.7.3.1.1.1: other
    info.sSOPClassUID = kSecondaryCaptureImageStorage;
    info.sSOPInstanceUID = CDicomItem::GetUID();
    info.sInstanceNumber = u"1";
    FillPixelDescription(info, image);

    // File meta information, the record's header, then the pixel data.
    info.sMediaStorageSOPClassUID = info.sSOPClassUID;
    info.sMediaStorageSOPInstanceUID = info.sSOPInstanceUID;
    info.sTransferSyntax = kImplicitLittleEndian;
    CDynBuffer file;
    info.CreateMetaHeaderBuffer(file);
    CDynBuffer header;
    info.CreateHeader(header);
    bool built = file.Add(header.GetData(), header.m_nSize);
    uint32_t before = file.m_nSize;
    DICOMINFO::AddTagByVR(file, image.BytesPerSample() == 2 ? u"OW" : u"OB", 0x7FE0, 0x0010, image.pixels.data(),
                          static_cast<uint32_t>(image.pixels.size()));
    if (!built || file.m_nSize == before)
        return Fail("out of memory");
    image.pixels = std::vector<unsigned char>();

    // Loaded again and saved through the tree: the file is replaced only by
    // a complete one.
    CDicomItem root(u"Object");
    if (!root.LoadObject(file.GetData(), static_cast<int>(file.m_nSize)))
        return Fail(FormatText("the new object does not load again: %s", root.GetLastError().GetText().c_str()));
    if (!root.SaveToFile(Utf8ToUtf16(out)))
        return Fail(FormatText("%s: %s", out, root.GetLastError().GetText().c_str()));
    return 0;
}
