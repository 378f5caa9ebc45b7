// The file meta information (PS3.10 7.1) of a new object as a "Header" node:
// preamble, "DICM" and group 0002 for the given UIDs.
#include <cstdlib>
#include <cstring>

#include "dicomdata/dicomitem.h"
#include "dicomdata/dicomsettings.h"
#include "dicomdata/dicomtools.h"

namespace {
constexpr uint32_t kPreambleSize = 128;
constexpr unsigned char kMagic[4] = {'D', 'I', 'C', 'M'};
}

CDicomItem* CDicomItem::CreateMetaHeader(const std::u16string& sopClassUID, const std::u16string& sopInstanceUID,
                                         const std::u16string& transferSyntax)
{
    auto* header = new CDicomItem(u"Header");
    auto* head = static_cast<unsigned char*>(std::calloc(kPreambleSize + sizeof(kMagic), 1));
    if (!head) {
        delete header;
        return nullptr;
    }
    std::memcpy(head + kPreambleSize, kMagic, sizeof(kMagic));
    header->SetData(head, kPreambleSize + sizeof(kMagic), true);

    // Empty VRs: the dictionary gives UL, OB, UI and SH; the group length is
    // filled in when the object is saved.
    const unsigned char groupLength[4] = {0, 0, 0, 0};
    const unsigned char version[2] = {0x00, 0x01};
    bool added = header->AddTag(0x0002, 0x0000, groupLength, 4, u"") &&
                 header->AddTag(0x0002, 0x0001, version, 2, u"") &&
                 header->AddTag(0x0002, 0x0002, sopClassUID, u"") &&
                 header->AddTag(0x0002, 0x0003, sopInstanceUID, u"") &&
                 header->AddTag(0x0002, 0x0010, transferSyntax, u"") &&
                 header->AddTag(0x0002, 0x0012, CDicomInfoStatics::GetDicomRoot(), u"") &&
                 header->AddTag(0x0002, 0x0013, CDicomTools::GetVqImplementationVersionName(), u"");
    if (!added) {
        delete header;
        return nullptr;
    }
    return header;
}
