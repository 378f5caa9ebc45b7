// Film box and image box data sets (PS3.4 H.4.1.2.1, H.4.3.1.2.1), the
// film box N-CREATE response, and the value lists of their coded attributes.
#include "print/filmbox.h"

#include "imageinfo/dicominfo.h"
#include "platform/dynbuffer.h"
#include "platform/text.h"

using namespace zeldicom;

namespace {

constexpr char16_t kCharacterSet[] = u"ISO_IR 100";

constexpr const char* kOrientations[] = {"PORTRAIT", "LANDSCAPE"};
constexpr const char* kFilmSizes[] = {"8INX10IN", "10INX12IN", "10INX14IN", "11INX14IN", "14INX14IN",
                                      "14INX17IN", "24CMX24CM", "24CMX30CM", "A4"};
constexpr const char* kMagnifications[] = {"NONE", "REPLICATE", "BILINEAR", "CUBIC"};
constexpr const char* kDensities[] = {"BLACK", "WHITE"};
constexpr const char* kTrims[] = {"NO", "YES"};

template <size_t N>
const char* Pick(const char* const (&list)[N], int index)
{
    return index >= 0 && static_cast<size_t>(index) < N ? list[index] : nullptr;
}

// An element or item header alone (implicit VR): what goes in front of a
// value built apart, or of pixels sent behind the buffer.
void PutHeader(CDynBuffer& buffer, uint16_t group, uint16_t element, uint32_t length, bool front)
{
    const unsigned char header[8] = {uint8_t(group), uint8_t(group >> 8), uint8_t(element), uint8_t(element >> 8),
                                     uint8_t(length), uint8_t(length >> 8), uint8_t(length >> 16),
                                     uint8_t(length >> 24)};
    if (front)
        buffer.Insert(header, 8, 0);
    else
        buffer.Add(header, 8);
}

void AddText(CDynBuffer& buffer, uint16_t group, uint16_t element, const char16_t* vr, const std::string& text)
{
    DICOMINFO::AddTagByVR(buffer, vr, group, element, text.data(), static_cast<uint32_t>(text.size()));
}

}

const char* CDicomFilmBox::OrientationText(int index) { return Pick(kOrientations, index); }
const char* CDicomFilmBox::FilmSizeText(int index) { return Pick(kFilmSizes, index); }
const char* CDicomFilmBox::MagnificationText(int index) { return Pick(kMagnifications, index); }
const char* CDicomFilmBox::DensityText(int index) { return Pick(kDensities, index); }
const char* CDicomFilmBox::TrimText(int index) { return Pick(kTrims, index); }

bool CDicomFilmBox::FillFilmBoxAtrb(CDynBuffer& buffer) const
{
    buffer.m_nSize = 0;
    const struct {
        uint16_t element;
        const char* text;
    } coded[] = {
        {0x0040, OrientationText(nFilmOrientation)}, {0x0050, FilmSizeText(nFilmSize)},
        {0x0060, MagnificationText(nMagnificationType)}, {0x0100, DensityText(nBorderDensity)},
        {0x0110, DensityText(nEmptyImageDensity)}, {0x0140, TrimText(nTrim)},
    };
    for (const auto& row : coded)
        if (!row.text)
            return false;
    if (!DICOMINFO::AddTagByVR(buffer, u"ST", 0x2010, 0x0010, sImageDisplayFormat, kCharacterSet))
        return false;
    for (const auto& row : coded)
        AddText(buffer, 0x2010, row.element, u"CS", row.text);
    AddFilmSessionSequence(buffer);
    DICOMINFO::InsertTag(buffer, 0x2010, 0x0000, buffer.m_nSize, 0);
    return true;
}

void CDicomFilmBox::AddFilmSessionSequence(CDynBuffer& buffer) const
{
    CDynBuffer item;
    AddText(item, 0x0008, 0x1150, u"UI", WideToAscii(sRefFilmSessionSOPClassUID));
    AddText(item, 0x0008, 0x1155, u"UI", WideToAscii(sRefFilmSessionSOPInstanceUID));
    // Explicit lengths throughout: the item header carries the body's
    // length and the sequence the whole item's, so no delimiters follow.
    PutHeader(item, 0xFFFE, 0xE000, item.m_nSize, true);
    DICOMINFO::AddTagByVR(buffer, u"SQ", 0x2010, 0x0500, item.GetData(), item.m_nSize);
}

void CDicomFilmBox::ReadResponseProc(TAG_HEADER* element, CDicomFilmBox* filmBox)
{
    // Referenced Image Box Sequence (PS3.4 H.4.1.2.1.2); a walker hands an
    // element over only when its whole value lies in the buffer.
    if (!element || !filmBox || element->wGroup != 0x2010 || element->wElement != 0x0510)
        return;
    const auto* value = reinterpret_cast<const unsigned char*>(element) + sizeof(TAG_HEADER);
    int size = element->nLength == kUndefinedLength ? DICOMINFO::CalcSequenceSize(element, INT32_MAX)
                                                    : static_cast<int>(element->nLength);
    if (size > 0)
        DICOMINFO::ReadSequence(
            value, size, [](TAG_HEADER* item, void* box) { ImageBoxProc(item, static_cast<CDicomFilmBox*>(box)); },
            filmBox);
}

void CDicomFilmBox::ImageBoxProc(TAG_HEADER* element, CDicomFilmBox* filmBox)
{
    if (!element || !filmBox || element->wGroup != 0x0008)
        return;
    std::u16string text;
    if (element->wElement == 0x1150) {
        DICOMINFO::GetStringTagValue(element, text);
        filmBox->sRefImageBoxSOPClassUID = text;
    } else if (element->wElement == 0x1155) {
        DICOMINFO::GetStringTagValue(element, text);
        filmBox->sRefImageBoxSOPInstanceUID = text;
        filmBox->aRefImageBoxes.emplace_back(filmBox->sRefImageBoxSOPClassUID, text);
    }
}

bool CDicomImageBox::FillImageBoxAtrb(CDynBuffer& buffer)
{
    buffer.m_nSize = 0;
    DICOMINFO::AddTag(buffer, 0x2020, 0x0010, wImagePosition);
    if (!AddImageSequence(buffer))
        return false;
    // The pixels follow the buffer on the wire and belong to the group.
    const uint64_t groupLength = uint64_t(buffer.m_nSize) + nPixelDataLength;
    if (groupLength > 0xFFFFFFF0u)
        return false;
    DICOMINFO::InsertTag(buffer, 0x2020, 0x0000, static_cast<uint32_t>(groupLength), 0);
    return true;
}

bool CDicomImageBox::AddImageSequence(CDynBuffer& buffer)
{
    CDynBuffer item;
    DICOMINFO::AddTag(item, 0x0028, 0x0002, wSamplesPerPixel);
    AddText(item, 0x0028, 0x0004, u"CS", FormatText("MONOCHROME%d", nPhotometric));
    DICOMINFO::AddTag(item, 0x0028, 0x0010, wRows);
    DICOMINFO::AddTag(item, 0x0028, 0x0011, wColumns);
    AddText(item, 0x0028, 0x0034, u"IS", WideToAscii(sPixelAspectRatio));
    DICOMINFO::AddTag(item, 0x0028, 0x0100, wBitsAllocated);
    DICOMINFO::AddTag(item, 0x0028, 0x0101, wBitsStored);
    DICOMINFO::AddTag(item, 0x0028, 0x0102, wHighBit);
    DICOMINFO::AddTag(item, 0x0028, 0x0103, wPixelRepresentation);
    // Whole bytes per sample: 12 bits allocated count one byte, as the
    // printer reads the pixels the caller sends.
    const uint64_t pixels = uint64_t(wBitsAllocated / 8) * wRows * wColumns * wSamplesPerPixel;
    // The item, the sequence and the group all count the pixels too.
    if (pixels + item.m_nSize + 64 > 0xFFFFFFF0u)
        return false;
    nPixelDataLength = static_cast<uint32_t>(pixels);
    // Pixel Data: the header alone, its length the pixels sent behind it.
    PutHeader(item, 0x7FE0, 0x0010, nPixelDataLength, false);
    // The item and the sequence count the pixels that follow them.
    PutHeader(item, 0xFFFE, 0xE000, item.m_nSize + nPixelDataLength, true);
    PutHeader(buffer, 0x2020, 0x0110, item.m_nSize + nPixelDataLength, false);
    return buffer.Add(item.GetData(), item.m_nSize);
}
