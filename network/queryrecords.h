#pragma once
// The records with which a host describes a remote node, a query, a move
// and the answers of a query (HOST_INFO, QR_FIND, QR_MOVE, QR_PATIENT_STUDY,
// QR_SERIES), and the element callbacks that fill the answer records from
// a C-FIND response identifier in implicit VR little endian.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/tagheader.h"

// A remote node: where it listens and the two AE titles of the association.
struct HOST_INFO {
    HOST_INFO();
    HOST_INFO(const HOST_INFO& other) = default;
    HOST_INFO& operator=(const HOST_INFO& other) = default;
    // Copies host and titles, cut to their fields' widths.
    void Set(const std::string& host, unsigned port, const std::string& calledTitle, const std::string& callingTitle);

    char szHost[64];
    uint32_t nPort;
    char szCalledAETitle[17];
    char szCallingAETitle[17];
};

// Sixteen texts whose meaning the host gives.
struct QR_INFO {
    std::u16string asField[16];
};

struct QR_FIND : HOST_INFO {
    QR_FIND() = default;
    QR_FIND(const QR_FIND& other);
    QR_FIND& operator=(const QR_FIND& other);

    int32_t nValue1 = 0, nValue2 = 0, nValue3 = 0;
    QR_INFO keys;
    std::vector<std::unique_ptr<QR_INFO>> aMatches;  // owned
};

// One study of a move and its series (several UIDs joined by backslashes).
struct QR_MOVE_INFO {
    std::string sStudyInstanceUID;
    std::string sSeriesInstanceUIDs;
};

struct QR_MOVE : HOST_INFO {
    QR_MOVE() = default;
    QR_MOVE(const QR_MOVE& other);
    QR_MOVE& operator=(const QR_MOVE& other);

    // Appends the series to the entry of its study (a new entry for a new
    // study); 1, or 0 when no memory is left.
    int AddSeriesInfo(const QR_MOVE_INFO* info);
    int GetStudiesCount() const { return static_cast<int>(aStudies.size()); }

    int32_t nValue1 = 0, nValue2 = 0, nValue3 = 0;
    std::string sMoveDestination;
    std::vector<std::unique_ptr<QR_MOVE_INFO>> aStudies;  // owned, one per study
};

// A patient/study match of a C-FIND.
struct QR_PATIENT_STUDY {
    std::u16string sSpecificCharacterSet;
    std::u16string sPatientName;
    std::u16string sPatientID;
    std::u16string sPatientBirthDate;
    std::u16string sPatientSex;
    std::u16string sStudyDate;
    std::u16string sAccessionNumber;
    std::u16string sStudyID;
    std::u16string sStudyInstanceUID;
    std::u16string sTenth;  // the host's
    // A DICOMINFO::ReadTags callback: replaces the field of each listed tag.
    static void ReadTagProc(TAG_HEADER* element, QR_PATIENT_STUDY* record);
};

// A series match of a C-FIND.
struct QR_SERIES {
    std::u16string sModality;
    std::u16string sSeriesNumber;
    std::u16string sSeriesInstanceUID;
    std::u16string sNumberOfSeriesRelatedInstances;
    std::u16string sBodyPartExamined;
    std::u16string sDescription;  // (0008,1030)
    static void ReadTagProc(TAG_HEADER* element, QR_SERIES* record);
};
