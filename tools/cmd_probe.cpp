// zeldicom probe FILE...: one line per file: whether it is DICOM, with or
// without file meta information, its transfer syntax, compression type and
// the size of its meta information. Each file is read once and examined in
// memory.
#include <cstdio>
#include <string>

#include "imageinfo/dicominfo.h"
#include "imageinfo/transfersyntax.h"
#include "platform/datainmemory.h"
#include "platform/text.h"
#include "tools/commands.h"
#include "tools/options.h"

using namespace zeldicom;

namespace {

// A data set without meta information written big endian: its first group
// is 0008 in big endian byte order and explicit VR letters follow the tag.
bool StartsWithBigEndianDataSet(const unsigned char* p, size_t size)
{
    if (size < 8)
        return false;
    auto letter = [](unsigned char c) { return c >= 'A' && c <= 'Z'; };
    return p[0] == 0x00 && p[1] == 0x08 && letter(p[4]) && letter(p[5]);
}

std::string Describe(const std::string& uid)
{
    const TransferSyntaxInfo* row = FindTransferSyntax(uid);
    return row ? row->name : "unknown transfer syntax";
}

// The compression type code, or "other" for compressed pixel data whose
// syntax has no code of its own (JPEG-LS, HTJ2K, video), which the code 0
// would call uncompressed.
std::string Compression(const std::string& uid)
{
    const TransferSyntaxInfo* row = FindTransferSyntax(uid);
    int code = DICOMINFO().GetCompTypeFromTransferSyntax(AsciiToWide(uid));
    if (code == 0 && row && row->compressed)
        return "other";
    return FormatText("%d", code);
}

// The line for one file, and whether it is DICOM.
bool Probe(const char* name, std::string& line)
{
    CDataInMemory file(Utf8ToUtf16(name));
    if (!file.IsValid()) {
        line = FormatText("unreadable (%s)", file.GetError().c_str());
        return false;
    }
    const unsigned char* bytes = file.GetData();
    size_t size = static_cast<size_t>(file.GetSize());
    bool hasMeta = DICOMINFO::HasDicomMetaHeader(bytes, size) != 0;
    bool bigEndianNoMeta = false;
    if (hasMeta) {
        // "DICM" alone, or meta information cut short, is no DICOM file.
        if (!DICOMINFO::HasCompleteMetaHeader(bytes, size)) {
            line = "not DICOM (file meta information missing or cut short)";
            return false;
        }
    } else if (!DICOMINFO::BufferIsDicom(bytes, size, 0)) {
        bigEndianNoMeta = StartsWithBigEndianDataSet(bytes, size);
        if (!bigEndianNoMeta) {
            line = "not DICOM";
            return false;
        }
    }
    std::string uid = bigEndianNoMeta ? "1.2.840.10008.1.2.2"
                                      : WideToAscii(DICOMINFO::GetBufferTransferSyntax(bytes, size));
    std::string meta = hasMeta ? FormatText("meta information %zu bytes", DICOMINFO::GetMetaHeaderSize(bytes, size))
                               : "no meta information";
    if (!hasMeta && bigEndianNoMeta)
        meta += ", big endian";
    line = FormatText("DICOM, %s, transfer syntax %s (%s), compression %s", meta.c_str(), uid.c_str(),
                      Describe(uid).c_str(), Compression(uid).c_str());
    return true;
}

}

int RunProbe(int argc, char** argv)
{
    OptionReader reader("probe", "FILE...",
                        "One line per file: DICOM or not, meta information and its size, transfer syntax\n"
                        "and compression type (0 none, 1 JPEG lossy, 2 JPEG lossless, 3 RLE,\n"
                        "4 JPEG 2000 lossless, 5 JPEG 2000, other: compressed without a type code,\n"
                        "such as JPEG-LS). A file that is not DICOM makes the exit status 1.");
    reader.Example("zeldicom probe incoming/*");
    if (int status = reader.Read(argc, argv); status >= 0)
        return status;
    int status = kExitDone;
    for (const std::string& file : reader.Operands()) {
        std::string line;
        if (!Probe(file.c_str(), line))
            status = kExitFailed;
        std::printf("%s: %s\n", file.c_str(), line.c_str());
    }
    return FinishOutput("probe") ? status : kExitFailed;
}
