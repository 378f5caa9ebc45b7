// The transfer syntax table (PS3.6 annex A), one row per UID in UID order:
// UID, name, compression type code, whether the pixel data is compressed.
#include "imageinfo/transfersyntax.h"

#include <iterator>

namespace zeldicom {

namespace {

constexpr TransferSyntaxInfo kTransferSyntaxes[] = {
    {"1.2.840.10008.1.2", "Implicit VR Little Endian", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.1", "Explicit VR Little Endian", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.1.98", "Encapsulated Uncompressed Explicit VR Little Endian", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.1.99", "Deflated Explicit VR Little Endian", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.2", "Explicit VR Big Endian", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.4.50", "JPEG Baseline (Process 1)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.51", "JPEG Extended (Process 2 & 4)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.52", "JPEG Extended (Process 3 & 5)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.53", "JPEG Spectral Selection, Non-Hierarchical (Process 6 & 8)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.54", "JPEG Spectral Selection, Non-Hierarchical (Process 7 & 9)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.55", "JPEG Full Progression, Non-Hierarchical (Process 10 & 12)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.56", "JPEG Full Progression, Non-Hierarchical (Process 11 & 13)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.57", "JPEG Lossless, Non-Hierarchical (Process 14)", COMPRESSION_JPEG_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.58", "JPEG Lossless, Non-Hierarchical (Process 15)", COMPRESSION_JPEG_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.59", "JPEG Extended, Hierarchical (Process 16 & 18)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.60", "JPEG Extended, Hierarchical (Process 17 & 19)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.61", "JPEG Spectral Selection, Hierarchical (Process 20 & 22)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.62", "JPEG Spectral Selection, Hierarchical (Process 21 & 23)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.63", "JPEG Full Progression, Hierarchical (Process 24 & 26)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.64", "JPEG Full Progression, Hierarchical (Process 25 & 27)", COMPRESSION_JPEG_LOSSY, true},
    {"1.2.840.10008.1.2.4.65", "JPEG Lossless, Hierarchical (Process 28)", COMPRESSION_JPEG_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.66", "JPEG Lossless, Hierarchical (Process 29)", COMPRESSION_JPEG_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.70", "JPEG Lossless, Non-Hierarchical, First-Order Prediction (Process 14 [Selection Value 1])",
     COMPRESSION_JPEG_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.80", "JPEG-LS Lossless", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.81", "JPEG-LS Lossy (Near-Lossless)", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.90", "JPEG 2000 Image Compression (Lossless Only)", COMPRESSION_J2K_LOSSLESS, true},
    {"1.2.840.10008.1.2.4.91", "JPEG 2000 Image Compression", COMPRESSION_J2K, true},
    {"1.2.840.10008.1.2.4.92", "JPEG 2000 Part 2 Multi-component Image Compression (Lossless Only)", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.93", "JPEG 2000 Part 2 Multi-component Image Compression", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.94", "JPIP Referenced", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.95", "JPIP Referenced Deflate", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.100", "MPEG2 Main Profile / Main Level", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.101", "MPEG2 Main Profile / High Level", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.102", "MPEG-4 AVC/H.264 High Profile / Level 4.1", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.103", "MPEG-4 AVC/H.264 BD-compatible High Profile / Level 4.1", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.104", "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 2D Video", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.105", "MPEG-4 AVC/H.264 High Profile / Level 4.2 For 3D Video", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.106", "MPEG-4 AVC/H.264 Stereo High Profile / Level 4.2", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.107", "HEVC/H.265 Main Profile / Level 5.1", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.108", "HEVC/H.265 Main 10 Profile / Level 5.1", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.201", "High-Throughput JPEG 2000 Image Compression (Lossless Only)", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.202", "High-Throughput JPEG 2000 with RPCL Options Image Compression (Lossless Only)",
     COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.4.203", "High-Throughput JPEG 2000 Image Compression", COMPRESSION_NONE, true},
    {"1.2.840.10008.1.2.5", "RLE Lossless", COMPRESSION_RLE, true},
    {"1.2.840.10008.1.2.6.1", "RFC 2557 MIME encapsulation", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.2.6.2", "XML Encoding", COMPRESSION_NONE, false},
    {"1.2.840.10008.1.20", "Papyrus 3 Implicit VR Little Endian", COMPRESSION_NONE, false},
};

}

const TransferSyntaxInfo* FindTransferSyntax(std::string_view uid)
{
    for (const TransferSyntaxInfo& row : kTransferSyntaxes)
        if (uid == row.uid)
            return &row;
    return nullptr;
}

int TransferSyntaxCompressionType(std::string_view uid)
{
    const TransferSyntaxInfo* row = FindTransferSyntax(uid);
    return row ? row->compressionType : COMPRESSION_NONE;
}

}  // namespace zeldicom
