// Writes the starting corpora of the fuzz targets:
//   fuzz_seeds <output folder> [folder of sample DICOM files ...]
// into <output folder>/<target>/. Generated seeds cover the shapes the
// parser must know (explicit and implicit VR, defined- and undefined-length
// sequences and items, encapsulated pixel data with an offset table, Part 10
// files); sample files (the pydicom corpus, read where the package installs
// it) add real-world shapes. Each target's seed carries the target's own
// leading selector bytes (see fuzz/targets.h).
#include <cstdio>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/vrtable.h"
#include "platform/text.h"
#include "targets.h"
#include "support/dicomwriter.h"
#include "tests/network/pdu_fixtures.h"

using namespace zeldicom;

namespace {

// Elements are written by the tests' DICOM byte writer.
using namespace testsupport;
// Larger samples slow every execution down without adding new shapes.
constexpr long kMaxSampleSize = 64 * 1024;

void Append(Bytes& out, const Bytes& more)
{
    out.insert(out.end(), more.begin(), more.end());
}

Bytes Text(const std::string& text)
{
    Bytes out(text.begin(), text.end());
    if (out.size() % 2 != 0)
        out.push_back(text.empty() ? 0 : ' ');
    return out;
}

Bytes Uid(const std::string& uid)
{
    Bytes out(uid.begin(), uid.end());
    if (out.size() % 2 != 0)
        out.push_back(0);
    return out;
}

Bytes Item(const Bytes& content, bool undefinedLength)
{
    Bytes out = elemAs(false, 0xFFFE, 0xE000, "", content, undefinedLength ? kUndefined : content.size());
    if (undefinedLength)
        Append(out, elemAs(false, 0xFFFE, 0xE00D, "", {}));
    return out;
}

Bytes Sequence(bool explicitVR, uint16_t group, uint16_t element, const Bytes& items, bool undefinedLength)
{
    Bytes out = elemAs(explicitVR, group, element, "SQ", items, undefinedLength ? kUndefined : items.size());
    if (undefinedLength)
        Append(out, elemAs(false, 0xFFFE, 0xE0DD, "", {}));
    return out;
}

// Encapsulated pixel data: an offset table for two frames, the first frame
// in two fragments, the second in one, then the sequence delimiter.
Bytes EncapsulatedPixelData(bool explicitVR)
{
    Bytes fragments;
    Append(fragments, Item({0xFF, 0xD8, 0x01, 0x02}, false));
    Append(fragments, Item({0x03, 0x04, 0xFF, 0xD9}, false));
    uint32_t secondFrame = static_cast<uint32_t>(fragments.size());
    Append(fragments, Item({0xFF, 0xD8, 0x05, 0x06, 0x07, 0x08, 0xFF, 0xD9}, false));
    Bytes table;
    put32(table, 0);
    put32(table, secondFrame);
    Bytes value = Item(table, false);
    Append(value, fragments);
    Append(value, elemAs(false, 0xFFFE, 0xE0DD, "", {}));
    return elemAs(explicitVR, 0x7FE0, 0x0010, "OB", value, kUndefined);
}

// A small image data set with nested sequences of both length forms.
Bytes DataSet(bool explicitVR, bool encapsulated)
{
    Bytes out;
    Append(out, elemAs(explicitVR, 0x0008, 0x0005, "CS", Text("ISO_IR 100")));
    Append(out, elemAs(explicitVR, 0x0008, 0x0016, "UI", Uid("1.2.840.10008.5.1.4.1.1.7")));
    Append(out, elemAs(explicitVR, 0x0008, 0x0018, "UI", Uid("1.2.3.4.5.6.7.8.9")));
    Bytes referenced = elemAs(explicitVR, 0x0008, 0x1150, "UI", Uid("1.2.840.10008.5.1.4.1.1.7"));
    Append(referenced, elemAs(explicitVR, 0x0008, 0x1155, "UI", Uid("1.2.3.4.5.6.7.8.10")));
    Append(out, Sequence(explicitVR, 0x0008, 0x1140, Item(referenced, false), false));
    Append(out, elemAs(explicitVR, 0x0010, 0x0010, "PN", Text("Doe^John")));
    Append(out, elemAs(explicitVR, 0x0010, 0x0020, "LO", Text("ID42")));
    // A sequence of undefined length holding an undefined-length item that
    // itself holds a defined-length sequence.
    Bytes code = elemAs(explicitVR, 0x0008, 0x0100, "SH", Text("T-D1100"));
    Append(code, elemAs(explicitVR, 0x0008, 0x0102, "SH", Text("SRT")));
    Bytes region = Sequence(explicitVR, 0x0008, 0x2228, Item(code, false), false);
    Append(out, Sequence(explicitVR, 0x0008, 0x2218, Item(region, true), true));
    Append(out, elemAs(explicitVR, 0x0009, 0x0010, "LO", Text("PRIVATE CREATOR")));
    Append(out, elemAs(explicitVR, 0x0009, 0x1001, "UN", {1, 2, 3, 4}));
    Append(out, elemAs(explicitVR, 0x0028, 0x0002, "US", us(1)));
    Append(out, elemAs(explicitVR, 0x0028, 0x0004, "CS", Text("MONOCHROME2")));
    Append(out, elemAs(explicitVR, 0x0028, 0x0008, "IS", Text("2")));
    Append(out, elemAs(explicitVR, 0x0028, 0x0010, "US", us(2)));
    Append(out, elemAs(explicitVR, 0x0028, 0x0011, "US", us(2)));
    Append(out, elemAs(explicitVR, 0x0028, 0x0100, "US", us(encapsulated ? 8 : 16)));
    Append(out, elemAs(explicitVR, 0x0028, 0x0101, "US", us(encapsulated ? 8 : 12)));
    if (encapsulated) {
        Append(out, EncapsulatedPixelData(explicitVR));
    } else {
        Bytes pixels;
        for (uint16_t sample : {0, 100, 200, 4095})
            put16(pixels, sample);
        Append(out, elemAs(explicitVR, 0x7FE0, 0x0010, "OW", pixels));
    }
    return out;
}

// A Part 10 file image: preamble, "DICM", explicit VR meta information.
Bytes FileImage(const std::string& transferSyntax, const Bytes& dataSet)
{
    Bytes meta;
    Append(meta, elemAs(true, 0x0002, 0x0001, "OB", {0, 1}));
    Append(meta, elemAs(true, 0x0002, 0x0002, "UI", Uid("1.2.840.10008.5.1.4.1.1.7")));
    Append(meta, elemAs(true, 0x0002, 0x0003, "UI", Uid("1.2.3.4.5.6.7.8.9")));
    Append(meta, elemAs(true, 0x0002, 0x0010, "UI", Uid(transferSyntax)));
    Append(meta, elemAs(true, 0x0002, 0x0012, "UI", Uid("1.2.3.4")));
    Bytes groupLength;
    put32(groupLength, static_cast<uint32_t>(meta.size()));
    Bytes out(128, 0);
    for (char letter : std::string("DICM"))
        out.push_back(static_cast<unsigned char>(letter));
    Append(out, elemAs(true, 0x0002, 0x0000, "UL", groupLength));
    Append(out, meta);
    Append(out, dataSet);
    return out;
}

Bytes WithPrefix(const Bytes& prefix, const Bytes& body)
{
    Bytes out = prefix;
    Append(out, body);
    return out;
}

bool WriteSeed(const std::string& folder, const std::string& target, const std::string& name, const Bytes& bytes)
{
    std::string dir = folder + "/" + target;
    mkdir(dir.c_str(), 0755);
    std::string path = dir + "/" + name;
    FILE* file = std::fopen(path.c_str(), "wb");
    if (!file)
        return false;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
    return std::fclose(file) == 0 && ok;
}

// The seeds of one data set for every target that reads a bare run.
bool WriteRunSeeds(const std::string& folder, const std::string& name, const Bytes& run, bool explicitVR)
{
    unsigned char mode = explicitVR ? 1 : 0;
    bool ok = WriteSeed(folder, "fuzz_loadtags", name, WithPrefix({mode}, run));
    ok = WriteSeed(folder, "fuzz_roundtrip", name, WithPrefix({mode}, run)) && ok;
    // Frame 0 and 1 with room for the whole test frame; frame 1 with too little.
    ok = WriteSeed(folder, "fuzz_frames", name + "-f0", WithPrefix({0, 64, mode}, run)) && ok;
    ok = WriteSeed(folder, "fuzz_frames", name + "-f1", WithPrefix({1, 64, mode}, run)) && ok;
    ok = WriteSeed(folder, "fuzz_frames", name + "-small", WithPrefix({1, 4, mode}, run)) && ok;
    // The raw walkers read implicit VR only.
    if (!explicitVR)
        ok = WriteSeed(folder, "fuzz_rawwalk", name, run) && ok;
    return ok;
}

// The raw scans look up one element: Patient's Name, Rows (behind the pixel
// data in no seed) and the pixel data itself.
bool WriteScanSeeds(const std::string& folder, const std::string& name, const Bytes& bytes)
{
    bool ok = WriteSeed(folder, "fuzz_metascan", name + "-name", WithPrefix({0x10, 0x00, 0x10, 0x00}, bytes));
    ok = WriteSeed(folder, "fuzz_metascan", name + "-rows", WithPrefix({0x28, 0x00, 0x10, 0x00}, bytes)) && ok;
    return WriteSeed(folder, "fuzz_metascan", name + "-pixels", WithPrefix({0xE0, 0x7F, 0x10, 0x00}, bytes)) && ok;
}

// A text seed: the label's index in the target's list, the VR's, the bytes.
bool WriteTextSeed(const std::string& folder, const std::string& name, const std::u16string& label,
                   const std::string& vr, const std::string& value)
{
    unsigned char labelIndex = 0, vrIndex = 0;
    for (const char16_t* known : zelfuzz::kCharacterSetLabels) {
        if (label == known)
            break;
        ++labelIndex;
    }
    for (const char* known : zelfuzz::kTextVRs) {
        if (vr == known)
            break;
        ++vrIndex;
    }
    if (labelIndex == sizeof zelfuzz::kCharacterSetLabels / sizeof zelfuzz::kCharacterSetLabels[0])
        return true;  // a label the target does not try
    return WriteSeed(folder, "fuzz_text", name, WithPrefix({labelIndex, vrIndex}, Bytes(value.begin(), value.end())));
}

bool ReadFile(const std::string& path, Bytes& bytes)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) || info.st_size > kMaxSampleSize)
        return false;
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file)
        return false;
    bytes.resize(static_cast<size_t>(info.st_size));
    bool ok = std::fread(bytes.data(), 1, bytes.size(), file) == bytes.size();
    std::fclose(file);
    return ok;
}

// A sample file seeds LoadObject as it is, and the run targets with its data
// set: the bytes behind the meta information, in the encoding its transfer
// syntax names.
int AddSamples(const std::string& folder, const std::string& samples)
{
    DIR* dir = opendir(samples.c_str());
    if (!dir)
        return 0;
    int added = 0;
    while (dirent* entry = readdir(dir)) {
        std::string name = entry->d_name;
        Bytes bytes;
        if (name[0] == '.' || !ReadFile(samples + "/" + name, bytes))
            continue;
        std::string seedName = "sample-" + name;
        if (name.find("DICOMDIR") != std::string::npos)
            WriteSeed(folder, "fuzz_dicomdir", seedName, bytes);
        WriteSeed(folder, "fuzz_loadobject", seedName, bytes);
        WriteSeed(folder, "fuzz_readinfo", seedName, bytes);
        if (name.find("SR") != std::string::npos || name.find("report") != std::string::npos)
            WriteSeed(folder, "fuzz_srload", seedName, bytes);
        WriteScanSeeds(folder, seedName, bytes);
        ++added;
        CDicomItem root(u"Object");
        if (bytes.size() < 132 || !root.LoadObject(bytes.data(), static_cast<int>(bytes.size())))
            continue;
        CDicomItem meta(u"Header");
        uint32_t metaLength =
            meta.LoadTags(bytes.data() + 132, static_cast<int>(bytes.size() - 132), true, 0x0002);
        std::u16string transferSyntax;
        auto* header = static_cast<CDicomItem*>(root.GetChildItem(u"Header"));
        if (metaLength == 0xFFFFFFFFu || !header || !header->GetTagValue(0x0002, 0x0010, transferSyntax))
            continue;
        // The patient's name with the file's own character set.
        auto* data = static_cast<CDicomItem*>(root.GetChildItem(u"Data"));
        if (const CDicomItem* name = data ? data->GetTagItem(0x0010, 0x0010) : nullptr; name && name->GetData()) {
            std::string label = CDicomInfoStatics::ExtractCharacterSet(data);
            WriteTextSeed(folder, seedName, std::u16string(label.begin(), label.end()), "PN",
                          std::string(reinterpret_cast<const char*>(name->GetData()),
                                      static_cast<size_t>(name->GetDataSize())));
        }
        Bytes run(bytes.begin() + 132 + metaLength, bytes.end());
        if (CDicomItem::IsBigEndian(Trim(transferSyntax)))
            WriteSeed(folder, "fuzz_bigendian", seedName, run);
        else
            WriteRunSeeds(folder, seedName, run, CDicomItem::IsExplicitVR(Trim(transferSyntax)));
    }
    closedir(dir);
    return added;
}

}

int main(int argc, char** argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <output folder> [sample folder ...]\n", argv[0]);
        return 2;
    }
    std::string folder = argv[1];
    mkdir(folder.c_str(), 0755);
    bool ok = true;
    for (bool explicitVR : {true, false}) {
        std::string form = explicitVR ? "explicit" : "implicit";
        ok = WriteRunSeeds(folder, form + "-native", DataSet(explicitVR, false), explicitVR) && ok;
        ok = WriteRunSeeds(folder, form + "-encapsulated", DataSet(explicitVR, true), explicitVR) && ok;
        // The meta group alone, read with the group 0002 filter.
        Bytes file = FileImage("1.2.840.10008.1.2.1", {});
        ok = WriteSeed(folder, "fuzz_loadtags", "meta-group", WithPrefix({3}, Bytes(file.begin() + 132, file.end()))) &&
             ok;
    }
    const struct {
        const char* name;
        const char* transferSyntax;
        bool explicitVR;
        bool encapsulated;
    } files[] = {{"file-explicit", "1.2.840.10008.1.2.1", true, false},
                 {"file-implicit", "1.2.840.10008.1.2", false, false},
                 {"file-jpeg", "1.2.840.10008.1.2.4.50", true, true}};
    for (const auto& file : files) {
        Bytes image = FileImage(file.transferSyntax, DataSet(file.explicitVR, file.encapsulated));
        ok = WriteSeed(folder, "fuzz_loadobject", file.name, image) && ok;
        ok = WriteSeed(folder, "fuzz_readinfo", file.name, image) && ok;
        ok = WriteScanSeeds(folder, file.name, image) && ok;
    }
    // LUT and overlay readers: a 16-bit descriptor for 6 entries, then words
    // that read as a segmented LUT (discrete, linear, indirect), followed by
    // an explicit VR data set with one overlay plane.
    Bytes segments;
    for (uint16_t word : {0, 2, 0, 100, 1, 2, 300, 2, 1, 0, 0})
        put16(segments, word);
    Bytes overlay = elemAs(true, 0x6000, 0x0010, "US", us(4));
    Append(overlay, elemAs(true, 0x6000, 0x0011, "US", us(8)));
    Append(overlay, elemAs(true, 0x6000, 0x0040, "CS", Text("G")));
    Append(overlay, elemAs(true, 0x6000, 0x0050, "SS", {1, 0, 1, 0}));
    Append(overlay, elemAs(true, 0x6000, 0x0100, "US", us(1)));
    Append(overlay, elemAs(true, 0x6000, 0x0102, "US", us(0)));
    Append(overlay, elemAs(true, 0x6000, 0x3000, "OW", Bytes(4, 0x5A)));
    ok = WriteSeed(folder, "fuzz_lutoverlay", "segmented", WithPrefix({0, 6, 0, 0, 0, 16, 0}, segments)) && ok;
    ok = WriteSeed(folder, "fuzz_lutoverlay", "overlay", WithPrefix({2, 6, 0, 0, 0, 16, 0}, overlay)) && ok;
    // Text in single-byte, ISO 2022 and multi-byte character sets.
    ok = WriteTextSeed(folder, "latin1", u"ISO_IR 100", "PN", "Buc^J\xe9r\xf4me") && ok;
    ok = WriteTextSeed(folder, "utf8", u"ISO_IR 192", "LO", "Wang^XiaoDong=\xe7\x8e\x8b^\xe5\xb0\x8f\xe6\x9d\xb1=") && ok;
    ok = WriteTextSeed(folder, "jis", u"ISO 2022 IR 87", "PN",
                       "Yamada^Tarou=\x1b$B;3ED\x1b(B^\x1b$BB@O:\x1b(B=\x1b$B$d$^$@\x1b(B^\x1b$B$?$m$&\x1b(B") &&
         ok;
    ok = WriteTextSeed(folder, "korean", u"ISO 2022 IR 149", "PN", "Hong^Gildong=\x1b$)C\xfb\xf3^\x1b$)C\xd1\xce\xd4\xd7") &&
         ok;
    ok = WriteTextSeed(folder, "gb18030", u"GB18030", "SH", "\xcd\xf5\xd0\xa1\xb6\xab") && ok;
    ok = WriteTextSeed(folder, "cyrillic", u"ISO_IR 144", "ST", "\xbb\xee\xda" "ce") && ok;
    // A data set without meta information, as the raw scans meet it first.
    ok = WriteScanSeeds(folder, "bare-implicit", DataSet(false, false)) && ok;
    // Upper layer PDUs and command sets, as peers send them.
    {
        using namespace pdufix;
        Bytes threeContexts = associateAc(pdufix::cat({contextAc(1, 0, "1.2.840.10008.1.2"), contextAc(3, 3, ""),
                                               contextAc(5, 0, "1.2.840.10008.1.2.1")}), 0);
        const std::pair<const char*, Bytes> pdus[] = {{"associate-ac", kAssociateAcOneContext},
                                                      {"associate-ac-three", threeContexts},
                                                      {"associate-rj", kAssociateRjCalledTitle},
                                                      {"abort", kAbortFromProvider},
                                                      {"release-rp", kReleaseRp},
                                                      {"echo-rsp", kEchoResponseSuccess}};
        for (const auto& [name, bytes] : pdus) {
            ok = WriteSeed(folder, "fuzz_pdu", name, bytes) && ok;
            ok = WriteSeed(folder, "fuzz_associate", name, bytes) && ok;
            ok = WriteSeed(folder, "fuzz_pduroundtrip", name, bytes) && ok;
            ok = WriteSeed(folder, "fuzz_trace", name, WithPrefix({1}, bytes)) && ok;
        }
        ok = WriteSeed(folder, "fuzz_acceptor", "echo-store-release", callerAssociation()) && ok;
        Bytes command = echoResponse(1, 0xA700);
        ok = WriteSeed(folder, "fuzz_command", "echo-rsp", command) && ok;
        ok = WriteSeed(folder, "fuzz_trace", "echo-rsp-command", WithPrefix({1}, command)) && ok;
        ok = WriteSeed(folder, "fuzz_trace", "data-set", WithPrefix({1}, DataSet(false, false))) && ok;
    }
    if (!ok) {
        std::fprintf(stderr, "cannot write seeds below %s\n", folder.c_str());
        return 1;
    }
    int samples = 0;
    for (int i = 2; i < argc; ++i) {
        samples += AddSamples(folder, argv[i]);
        // pydicom keeps its directory samples one folder down.
        samples += AddSamples(folder, std::string(argv[i]) + "/dicomdirtests");
        samples += AddSamples(folder, std::string(argv[i]) + "/dicomdirtests/TINY_ALPHA");
    }
    std::printf("seeds written to %s (%d sample files)\n", folder.c_str(), samples);
    return 0;
}
