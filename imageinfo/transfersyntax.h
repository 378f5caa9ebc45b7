#pragma once
// The transfer syntaxes the library can name: UID, display name and the
// compression type code that DICOMINFO::GetCompTypeFromTransferSyntax gives.
#include <string_view>

// Compression type codes of a transfer syntax.
enum DICOM_COMPRESSION_TYPE {
    COMPRESSION_NONE = 0,           // not compressed, or not known
    COMPRESSION_JPEG_LOSSY = 1,     // JPEG with a lossy process
    COMPRESSION_JPEG_LOSSLESS = 2,  // JPEG lossless processes 14, 15, 28, 29 and SV1
    COMPRESSION_RLE = 3,
    COMPRESSION_J2K_LOSSLESS = 4,
    COMPRESSION_J2K = 5,
};

namespace zeldicom {

struct TransferSyntaxInfo {
    const char* uid;
    const char* name;
    int compressionType;
    // The pixel data is compressed (encapsulated for a codec), whether or
    // not the syntax has a compression type code of its own (JPEG-LS,
    // HTJ2K and the video syntaxes have none: their code is 0).
    bool compressed;
};

// The row of a UID (exact, case-sensitive comparison of the whole text), or null.
const TransferSyntaxInfo* FindTransferSyntax(std::string_view uid);
// Compression type of a UID; 0 for a UID not in the table.
int TransferSyntaxCompressionType(std::string_view uid);

}  // namespace zeldicom
