// zeldicom probe FILE...: one line per file: whether it is DICOM, with or
// without file meta information, its transfer syntax, compression type and
// the size of its meta information.
#include <cstdio>
#include <string>

#include "dicomdata/bytecursor.h"
#include "imageinfo/dicominfo.h"
#include "imageinfo/transfersyntax.h"
#include "platform/datainmemory.h"
#include "platform/text.h"
#include "tools/commands.h"

using namespace zeldicom;

namespace {

// A data set without meta information written big endian: its first group
// is 0008 in big endian byte order and explicit VR letters follow the tag.
bool StartsWithBigEndianDataSet(const CDataInMemory& file)
{
    if (!file.IsValid() || file.GetSize() < 8)
        return false;
    const unsigned char* p = file.GetData();
    auto letter = [](unsigned char c) { return c >= 'A' && c <= 'Z'; };
    return p[0] == 0x00 && p[1] == 0x08 && letter(p[4]) && letter(p[5]);
}

std::string Describe(const std::string& uid)
{
    const TransferSyntaxInfo* row = FindTransferSyntax(uid);
    return row ? row->name : "unknown transfer syntax";
}

}

int RunProbe(int argc, char** argv)
{
    if (argc < 1 || std::string(argv[0]) == "--help") {
        std::fprintf(argc < 1 ? stderr : stdout,
                     "Usage: zeldicom probe FILE...\n"
                     "One line per file: DICOM or not, meta information and its size, transfer syntax\n"
                     "and compression type (0 none, 1 JPEG lossy, 2 JPEG lossless, 3 RLE,\n"
                     "4 JPEG 2000 lossless, 5 JPEG 2000). Exit status 1 when a file is not DICOM.\n");
        return argc < 1 ? 2 : 0;
    }
    int status = 0;
    DICOMINFO info;
    for (int i = 0; i < argc; ++i) {
        std::u16string path = Utf8ToUtf16(argv[i]);
        CDataInMemory file(path);
        if (!file.IsValid()) {
            std::printf("%s: unreadable (%s)\n", argv[i], file.GetError().c_str());
            status = 1;
            continue;
        }
        bool bigEndianNoMeta = false;
        if (!DICOMINFO::FileIsDicom(path, 0)) {
            bigEndianNoMeta = StartsWithBigEndianDataSet(file);
            if (!bigEndianNoMeta) {
                std::printf("%s: not DICOM\n", argv[i]);
                status = 1;
                continue;
            }
        }
        bool hasMeta = DICOMINFO::FileHasDicomMetaHeader(path) != 0;
        std::string uid = bigEndianNoMeta ? "1.2.840.10008.1.2.2" : WideToAscii(DICOMINFO::GetFileTransferSyntax(path));
        size_t metaSize = DICOMINFO::GetMetaHeaderSize(file.GetData(), static_cast<size_t>(file.GetSize()));
        std::string meta = hasMeta ? FormatText("meta information %zu bytes", metaSize) : "no meta information";
        if (!hasMeta && bigEndianNoMeta)
            meta += ", big endian";
        std::printf("%s: DICOM, %s, transfer syntax %s (%s), compression %d\n", argv[i], meta.c_str(), uid.c_str(),
                    Describe(uid).c_str(), info.GetCompTypeFromTransferSyntax(AsciiToWide(uid)));
    }
    return status;
}
