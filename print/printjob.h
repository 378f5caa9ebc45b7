#pragma once
// Preparing a print job for CDicomPrintSocketEx: grayscale images rendered
// to 8 bits for image boxes, and the job folder of page files (and the
// optional identity Presentation LUT) that the client sends.
#include <cstdint>
#include <string>
#include <vector>

#include "print/filmbox.h"

// One image rendered for an image box: 8 bits, one sample per pixel.
struct PRINT_IMAGE {
    uint16_t wRows = 0;
    uint16_t wColumns = 0;
    int nPhotometric = 2;  // 1 or 2: MONOCHROME1 is kept, the printer inverts it
    std::vector<uint8_t> aPixels;
};

// What every page of a job carries: the film session and film box attributes.
struct PRINT_JOB_SETTINGS {
    CDicomFilmBox FilmBox;  // copies, display format, orientation, size, magnification, ...
    int nPriority = -1;     // index into HIGH, MED, LOW; -1 leaves it out
    int nMedium = -1;       // index into PAPER, CLEAR FILM, BLUE FILM; -1 leaves it out
    std::string sLutInstanceUID;  // the identity Presentation LUT the pages refer to; empty: none
};

// The first frame of a grayscale image file as 8 bits: the modality
// transformation (LUT or rescale), then the image's own window (PS3.3
// C.11.2.1.2), or, when it has none, the full range of its values. False
// with the reason for a file that is not an uncompressed monochrome image.
bool RenderPrintImage(const std::u16string& path, PRINT_IMAGE& image, std::string& reason);

// Writes the job folder: page index (from 0) holds the session and film box
// of settings and the image boxes of its images (image box 1 in the page
// file, image box k in Page%04d-%02d.dcm), each with its own window into
// the film. False with the reason when a file cannot be written.
bool WritePrintPage(const std::u16string& folder, int index, const PRINT_JOB_SETTINGS& settings,
                    const std::vector<const PRINT_IMAGE*>& images, std::string& reason);
// IdentityPresentationLUT.dcm (Presentation LUT Shape IDENTITY); its instance UID in instanceUid.
bool WriteIdentityPresentationLut(const std::u16string& folder, std::string& instanceUid, std::string& reason);
