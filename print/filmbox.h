#pragma once
// The attributes of one Basic Film Box and one Basic Grayscale Image Box
// (PS3.4 H.4.1, H.4.3) and their data sets: the N-CREATE of the film box,
// the N-SET of the image box (up to the pixel data header: the pixels
// follow on the wire from a file), and the image box references that the
// film box N-CREATE response returns. Everything in implicit VR little endian.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "dicomdata/tagheader.h"

class CDynBuffer;

class CDicomFilmBox {
public:
    CDicomFilmBox() = default;
    CDicomFilmBox(const CDicomFilmBox&) = default;
    CDicomFilmBox& operator=(const CDicomFilmBox&) = default;
    ~CDicomFilmBox() = default;

    // Empties buffer and writes the film box N-CREATE data set: group 2010
    // with its group length in front. False when an index lies outside its
    // list or a text cannot be written in ISO_IR 100.
    bool FillFilmBoxAtrb(CDynBuffer& buffer) const;
    // Appends Referenced Film Session Sequence (2010,0500), one item.
    void AddFilmSessionSequence(CDynBuffer& buffer) const;
    // DICOMINFO::ReadTags callbacks for the N-CREATE response: the items of
    // (2010,0510) give the image box class and instance (the last item wins).
    static void ReadResponseProc(TAG_HEADER* element, CDicomFilmBox* filmBox);
    static void ImageBoxProc(TAG_HEADER* element, CDicomFilmBox* filmBox);

    // The value lists the indexes select from, in PS3.3 C.13.8 order.
    static const char* OrientationText(int index);
    static const char* FilmSizeText(int index);
    static const char* MagnificationText(int index);
    static const char* DensityText(int index);  // border and empty image density
    static const char* TrimText(int index);

    int nCopies = 1;  // goes into the film session (2000,0010)
    std::u16string sImageDisplayFormat = u"STANDARD\\1,1";
    int nFilmOrientation = 0;   // PORTRAIT
    int nFilmSize = 5;          // 14INX17IN
    int nMagnificationType = 3; // CUBIC
    int nReserved1 = -1;
    int nBorderDensity = 0;     // BLACK
    int nEmptyImageDensity = 0; // BLACK
    int nReserved2 = -1, nReserved3 = -1;
    int nTrim = 1;              // YES
    std::u16string sReserved;
    std::u16string sRefFilmSessionSOPClassUID;
    std::u16string sRefFilmSessionSOPInstanceUID;
    std::u16string sRefImageBoxSOPClassUID;     // from the N-CREATE response
    std::u16string sRefImageBoxSOPInstanceUID;  // from the N-CREATE response
    // Every item of (2010,0510): class and instance, in the response's order.
    std::vector<std::pair<std::u16string, std::u16string>> aRefImageBoxes;
};

class CDicomImageBox {
public:
    CDicomImageBox() = default;
    CDicomImageBox(const CDicomImageBox&) = default;
    CDicomImageBox& operator=(const CDicomImageBox&) = default;
    ~CDicomImageBox() = default;

    // Empties buffer and writes the image box N-SET data set up to and
    // including the pixel data header; the group length (2020,0000) counts
    // the pixel data length too, as the pixels follow the buffer on the wire.
    // False when the pixel data length does not fit a 32-bit length.
    bool FillImageBoxAtrb(CDynBuffer& buffer);
    // Appends Basic Grayscale Image Sequence (2020,0110) of one item whose
    // last element is the header of Pixel Data; sets nPixelDataLength.
    bool AddImageSequence(CDynBuffer& buffer);

    uint16_t wImagePosition = 1;
    uint16_t wSamplesPerPixel = 1;
    int nPhotometric = 2;  // MONOCHROME2
    uint16_t wRows = 0;
    uint16_t wColumns = 0;
    std::u16string sPixelAspectRatio = u"1\\1";
    uint16_t wBitsAllocated = 8;
    uint16_t wBitsStored = 8;
    uint16_t wHighBit = 7;
    uint16_t wPixelRepresentation = 0;
    std::u16string sPixelFile;  // its first nPixelDataLength bytes are the pixels
    uint32_t nPixelDataLength = 0;
};
