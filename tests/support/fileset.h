#pragma once
// Small DICOM instances for directory tests, written with the library: a
// patient, study, series and instance number give every key a DICOMDIR
// record takes, so peers that check records find them all.
#include <filesystem>
#include <string>

#include "dicomdata/dicomitem.h"
#include "platform/text.h"

namespace testsupport {

using zeldicom::Utf16ToUtf8;
using zeldicom::Utf8ToUtf16;

struct InstanceKeys {
    int patient, study, series, instance;
    const char* modality = "OT";
};

inline std::string KeyUid(const char* kind, const InstanceKeys& k)
{
    return "2.25.9381." + std::string(kind) + "." + std::to_string(k.patient) + "." + std::to_string(k.study) + "." +
           std::to_string(k.series) + "." + std::to_string(k.instance);
}

// The whole instance as an object root ("Header" and "Data").
inline CDicomItem* MakeInstance(const InstanceKeys& k)
{
    std::string modality = k.modality;
    std::string kind = modality == "sr" ? "SR" : modality == "ko" ? "KO" : modality;
    const char16_t* sopClass = kind == "SR"   ? u"1.2.840.10008.5.1.4.1.1.88.11"
                               : kind == "KO" ? u"1.2.840.10008.5.1.4.1.1.88.59"
                                                  : u"1.2.840.10008.5.1.4.1.1.7";
    std::u16string instanceUid = Utf8ToUtf16(KeyUid("4", {k.patient, k.study, k.series, k.instance}));
    auto* root = new CDicomItem(u"Object");
    root->AddItem(CDicomItem::CreateMetaHeader(sopClass, instanceUid, u"1.2.840.10008.1.2.1"));
    auto* data = new CDicomItem(u"Data");
    root->AddItem(data);
    auto text = [data](int group, int element, const std::string& value, const char16_t* vr) {
        data->AddTag(group, element, Utf8ToUtf16(value), vr);
    };
    std::string p = std::to_string(k.patient);
    text(0x0008, 0x0005, "ISO_IR 100", u"CS");
    text(0x0008, 0x0016, Utf16ToUtf8(sopClass), u"UI");
    text(0x0008, 0x0018, Utf16ToUtf8(instanceUid), u"UI");
    text(0x0008, 0x0020, "20260311", u"DA");
    text(0x0008, 0x0023, "20260311", u"DA");
    text(0x0008, 0x0030, "101500", u"TM");
    text(0x0008, 0x0033, "101500", u"TM");
    text(0x0008, 0x0050, "A" + p + std::to_string(k.study), u"SH");
    text(0x0008, 0x0060, modality, u"CS");
    text(0x0008, 0x0064, "WSD", u"CS");
    text(0x0008, 0x0090, "Ref^Doctor", u"PN");
    text(0x0008, 0x1030, "Study " + std::to_string(k.study), u"LO");
    text(0x0010, 0x0010, "Patient^" + p, u"PN");
    text(0x0010, 0x0020, "PID" + p, u"LO");
    text(0x0010, 0x0030, "19700101", u"DA");
    text(0x0010, 0x0040, "O", u"CS");
    text(0x0020, 0x000D, KeyUid("2", {k.patient, k.study, 0, 0}), u"UI");
    text(0x0020, 0x000E, KeyUid("3", {k.patient, k.study, k.series, 0}), u"UI");
    text(0x0020, 0x0010, std::to_string(k.study), u"SH");
    text(0x0020, 0x0011, std::to_string(k.series), u"IS");
    text(0x0020, 0x0013, std::to_string(k.instance), u"IS");
    if (kind == "SR" || kind == "KO") {
        text(0x0040, 0xA491, "COMPLETE", u"CS");
        text(0x0040, 0xA493, "UNVERIFIED", u"CS");
        text(0x0040, 0xA040, "CONTAINER", u"CS");
        CDicomItem* conceptName = data->AddSequence(0x0040, 0xA043);
        CDicomItem* code = conceptName->InsertSequenceItem();
        code->AddTag(0x0008, 0x0100, std::u16string(u"113000"), u"SH");
        code->AddTag(0x0008, 0x0102, std::u16string(u"DCM"), u"SH");
        code->AddTag(0x0008, 0x0104, std::u16string(u"Of Interest"), u"LO");
    } else {
        const unsigned char pixels[4] = {0, 64, 128, 255};
        data->AddTag(0x0028, 0x0002, static_cast<uint16_t>(1));
        text(0x0028, 0x0004, "MONOCHROME2", u"CS");
        data->AddTag(0x0028, 0x0010, static_cast<uint16_t>(2));
        data->AddTag(0x0028, 0x0011, static_cast<uint16_t>(2));
        data->AddTag(0x0028, 0x0100, static_cast<uint16_t>(8));
        data->AddTag(0x0028, 0x0101, static_cast<uint16_t>(8));
        data->AddTag(0x0028, 0x0102, static_cast<uint16_t>(7));
        data->AddTag(0x0028, 0x0103, static_cast<uint16_t>(0));
        data->AddTag(0x7FE0, 0x0010, pixels, 4, u"OB");
    }
    return root;
}

inline bool WriteInstance(const std::string& path, const InstanceKeys& k)
{
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    CDicomItem* root = MakeInstance(k);
    bool saved = root->SaveToFile(Utf8ToUtf16(path));
    delete root;
    return saved;
}

}
