// Preparing a print job: grayscale images rendered to 8 bits through their
// modality and VOI transformations (PS3.3 C.11), and the job folder of
// page files that CDicomPrintSocketEx sends.
#include "print/printjob.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "dicomdata/dicomitem.h"
#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"
#include "print/printsocket.h"
#include "print/printsocketex.h"

using namespace zeldicom;

namespace {

// The stored value of a raw sample masked to its bits stored (at most 16),
// sign extended for Pixel Representation 1 (PS3.5 8.1.1).
int32_t StoredValue(uint32_t raw, int bitsStored, bool isSigned)
{
    const uint32_t sign = 1u << (bitsStored - 1);
    return isSigned && (raw & sign) ? static_cast<int32_t>(raw) - static_cast<int32_t>(sign << 1)
                                    : static_cast<int32_t>(raw);
}

// PS3.3 C.11.2.1.2.1: the linear VOI function onto 0..255.
uint8_t Window(double x, double centre, double width)
{
    if (x <= centre - 0.5 - (width - 1) / 2)
        return 0;
    if (x > centre - 0.5 + (width - 1) / 2)
        return 255;
    return static_cast<uint8_t>(std::lround(((x - (centre - 0.5)) / (width - 1) + 0.5) * 255.0));
}

bool WriteFile(const std::u16string& path, const CDynBuffer& bytes, std::string& reason)
{
    const std::string name = Utf16ToUtf8(path);
    FILE* file = std::fopen(name.c_str(), "wb");
    bool written = file && std::fwrite(bytes.GetData(), 1, bytes.m_nSize, file) == bytes.m_nSize;
    if (file && std::fclose(file) != 0)
        written = false;
    if (!written)
        reason = "cannot write " + name;
    return written;
}

// Preamble and file meta information of an object of the print classes.
void FileHead(CDynBuffer& buffer, const char* sopClass, const std::u16string& sopInstance)
{
    metaHeaderInfo meta;
    meta.sMediaStorageSOPClassUID = AsciiToWide(sopClass);
    meta.sMediaStorageSOPInstanceUID = sopInstance;
    meta.sTransferSyntax = AsciiToWide(printuid::kImplicitLittleEndian);
    meta.sImplementationClassUID = DICOMINFO::GetDicomRoot();
    meta.sImplementationVersionName = DICOMINFO::DefaultImplementationVersionName();
    DICOMINFO::CreateMetaHeaderBuffer(buffer, &meta);
}

// The image box group of one image at a position of the film, pixels included.
bool AddImageBox(CDynBuffer& buffer, const PRINT_IMAGE& image, int position)
{
    CDicomImageBox box;
    box.wImagePosition = static_cast<uint16_t>(position);
    box.nPhotometric = image.nPhotometric;
    box.wRows = image.wRows;
    box.wColumns = image.wColumns;
    CDynBuffer group;
    if (!box.FillImageBoxAtrb(group) || box.nPixelDataLength != image.aPixels.size())
        return false;
    return buffer.Add(group.GetData(), group.m_nSize) &&
           buffer.Add(image.aPixels.data(), static_cast<uint32_t>(image.aPixels.size()));
}

}

bool RenderPrintImage(const std::u16string& path, PRINT_IMAGE& image, std::string& reason)
{
    DICOMINFO info;
    CDicomItem root(u"Root");
    if (!info.ReadFileInfo(path) || !root.LoadObject(path)) {
        const std::string why = !info.GetLastError().GetText().empty() ? info.GetLastError().GetText()
                                                                       : root.GetLastError().GetText();
        reason = "not a DICOM image that can be read" + (why.empty() ? "" : ": " + why);
        return false;
    }
    auto* data = static_cast<CDicomItem*>(root.GetChildItem(std::u16string(u"Data")));
    const CDicomItem* pixels = data ? data->GetTagItem(0x7FE0, 0x0010) : nullptr;
    if (!pixels || info.nRows <= 0 || info.nColumns <= 0) {
        reason = "no pixel data";
        return false;
    }
    // Only native pixel data is rendered here: the little endian syntaxes
    // (deflate compresses the data set, not the pixels).
    const std::u16string& syntax = info.sTransferSyntax;
    if (syntax != u"1.2.840.10008.1.2" && syntax != u"1.2.840.10008.1.2.1" && syntax != u"1.2.840.10008.1.2.1.99") {
        reason = "compressed pixel data (" + Utf16ToUtf8(info.sTransferSyntax) + ") cannot be printed";
        return false;
    }
    if (info.wSamplesPerPixel != 1 ||
        (info.nPhotometric != DICOMINFO::MONOCHROME1 && info.nPhotometric != DICOMINFO::MONOCHROME2)) {
        std::u16string photometric;
        data->GetTagValue(0x0028, 0x0004, photometric);
        reason = "a colour image (" + Utf16ToUtf8(Trim(photometric)) + ", " +
                 std::to_string(info.wSamplesPerPixel) + " samples) cannot go on a grayscale film";
        return false;
    }
    if ((info.nBitsAllocated != 8 && info.nBitsAllocated != 16) || info.nBitsStored < 1 ||
        info.nBitsStored > info.nBitsAllocated || info.nRows > 0xFFFF || info.nColumns > 0xFFFF) {
        reason = FormatText("%d bits allocated, %d stored, cannot be printed", info.nBitsAllocated, info.nBitsStored);
        return false;
    }
    const int bytes = info.nBitsAllocated / 8;
    const size_t count = size_t(info.nRows) * size_t(info.nColumns);
    if (pixels->GetDataSize() < 0 || size_t(pixels->GetDataSize()) < count * bytes) {
        reason = "the pixel data is shorter than the image";
        return false;
    }
    // One entry per raw value the bits stored can hold (at most 65536):
    // its stored value's modality value, then its grey level. The pixels
    // then cost one byte each, whatever their number.
    const bool isSigned = info.wPixelRepresentation == 1;
    const size_t values = size_t(1) << info.nBitsStored;
    std::vector<double> modality(values);
    for (size_t raw = 0; raw < values; ++raw) {
        const int32_t stored = StoredValue(static_cast<uint32_t>(raw), info.nBitsStored, isSigned);
        modality[raw] = info.ModalityLut.IsDataPresent() ? info.ModalityLut.GetEntry(static_cast<uint32_t>(stored))
                                                         : stored * info.dRescaleSlope + info.dRescaleIntercept;
    }
    const uint32_t mask = static_cast<uint32_t>(values - 1);
    auto rawAt = [&](size_t i) {
        const unsigned char* p = pixels->GetData() + i * bytes;
        return (bytes == 1 ? p[0] : uint32_t(p[0] | (p[1] << 8))) & mask;
    };
    // The image's own window when it has one; a window the record supplies
    // by default (a CT without one) is not the image's. Else the full range
    // of the values the image holds.
    const bool ownWindow = data->FindTag(0x0028, 0x1050) && data->FindTag(0x0028, 0x1051) && info.dWindowWidth >= 1;
    double low = 0, high = 0;
    if (!ownWindow && count > 0) {
        low = high = modality[rawAt(0)];
        for (size_t i = 1; i < count; ++i) {
            low = std::min(low, modality[rawAt(i)]);
            high = std::max(high, modality[rawAt(i)]);
        }
    }
    std::vector<uint8_t> grey(values);
    for (size_t raw = 0; raw < values; ++raw) {
        if (ownWindow)
            grey[raw] = Window(modality[raw], info.dWindowCenter, info.dWindowWidth);
        else if (high > low)
            grey[raw] = static_cast<uint8_t>(std::clamp(std::lround((modality[raw] - low) * 255.0 / (high - low)), 0L, 255L));
    }
    image.wRows = static_cast<uint16_t>(info.nRows);
    image.wColumns = static_cast<uint16_t>(info.nColumns);
    image.nPhotometric = info.nPhotometric == DICOMINFO::MONOCHROME1 ? 1 : 2;
    image.aPixels.resize(count);
    for (size_t i = 0; i < count; ++i)
        image.aPixels[i] = grey[rawAt(i)];
    return true;
}

bool WritePrintPage(const std::u16string& folder, int index, const PRINT_JOB_SETTINGS& settings,
                    const std::vector<const PRINT_IMAGE*>& images, std::string& reason)
{
    if (images.empty() || !images[0]) {
        reason = "a page without image";
        return false;
    }
    CDynBuffer page, group;
    FileHead(page, printuid::kGrayscaleMeta, CDicomItem::GetUID());
    CDicomFilmBox filmBox = settings.FilmBox;
    if (!CDicomPrintSocket::FillSessionAtrb(group, settings.FilmBox.nCopies, settings.nPriority, settings.nMedium, -1,
                                            nullptr, 0) ||
        !page.Add(group.GetData(), group.m_nSize) || !filmBox.FillFilmBoxAtrb(group) ||
        !page.Add(group.GetData(), group.m_nSize)) {
        reason = "a film session or film box value outside its list";
        return false;
    }
    if (!AddImageBox(page, *images[0], 1)) {
        reason = "the image is too large for an image box";
        return false;
    }
    if (!settings.sLutInstanceUID.empty()) {
        // Referenced Presentation LUT Sequence (2050,0500) of the film box.
        CDynBuffer item, lut;
        DICOMINFO::AddTagByVR(item, u"UI", 0x0008, 0x1150, printuid::kPresentationLut,
                              static_cast<uint32_t>(std::char_traits<char>::length(printuid::kPresentationLut)));
        DICOMINFO::AddTagByVR(item, u"UI", 0x0008, 0x1155, settings.sLutInstanceUID.data(),
                              static_cast<uint32_t>(settings.sLutInstanceUID.size()));
        DICOMINFO::AddTagByVR(lut, u"SQ", 0xFFFE, 0xE000, item.GetData(), item.m_nSize);
        group.m_nSize = 0;
        DICOMINFO::AddTagByVR(group, u"SQ", 0x2050, 0x0500, lut.GetData(), lut.m_nSize);
        DICOMINFO::InsertTag(group, 0x2050, 0x0000, group.m_nSize, 0);
        page.Add(group.GetData(), group.m_nSize);
    }
    if (!WriteFile(CDicomPrintSocketEx::GetPagePath(folder, index), page, reason))
        return false;
    // Further image boxes of the film, each a file of its own.
    for (size_t position = 2; position <= images.size(); ++position) {
        CDynBuffer box;
        FileHead(box, printuid::kGrayscaleMeta, CDicomItem::GetUID());
        if (!images[position - 1] || !AddImageBox(box, *images[position - 1], static_cast<int>(position))) {
            reason = "the image is too large for an image box";
            return false;
        }
        if (!WriteFile(CDicomPrintSocketEx::GetImageBoxPath(folder, index, static_cast<int>(position)), box, reason))
            return false;
    }
    return true;
}

bool WriteIdentityPresentationLut(const std::u16string& folder, std::string& instanceUid, std::string& reason)
{
    const std::u16string instance = CDicomItem::GetUID();
    CDynBuffer file, group;
    FileHead(file, printuid::kPresentationLut, instance);
    // PS3.3 C.11.4: Presentation LUT Shape IDENTITY, no LUT data.
    DICOMINFO::AddTagByVR(group, u"CS", 0x2050, 0x0020, "IDENTITY", 8);
    DICOMINFO::InsertTag(group, 0x2050, 0x0000, group.m_nSize, 0);
    file.Add(group.GetData(), group.m_nSize);
    instanceUid = WideToAscii(instance);
    return WriteFile(CDicomPrintSocketEx::GetFilePathForPresentationLut(folder), file, reason);
}
