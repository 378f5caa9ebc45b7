#pragma once
// The modality worklist client: C-FIND of the Modality Worklist Information
// Model - FIND (PS3.4 K.6) on behalf of a host application, which fills a
// WL_FIND record, runs FindThreadProc on a thread of its own and is told
// through the record's completion callback when the query is over; every
// match is left in the record as an element tree, and every query is
// written to the audit trail. CDicomWorklist writes the main worklist
// attributes as a response identifier.
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "dicomdata/dicomitem.h"
#include "network/usersocket.h"
#include "platform/dynbuffer.h"

// One match: its identifier as an element tree, and the bytes the tree
// points into (the identifier as received, in explicit VR little endian).
struct WL_DATA {
    CDicomItem tree{u"Data"};
    CDynBuffer buffer;
};

struct WL_FIND;
// The completion notification: the message number of the record, 99, and
// the record itself.
using WL_NOTIFY = std::function<void(uint32_t message, uint32_t first, WL_FIND* record)>;

struct WL_FIND : HOST_INFO {
    WL_NOTIFY notify;       // none: no notification
    uint32_t nMessage = 0;  // 0: no notification
    uint32_t nError = 0;    // 0, or the local error (else the system error) of a failed query
    std::unique_ptr<CDicomItem> pRequest;           // the identifier to send
    std::vector<std::unique_ptr<WL_DATA>> aMatches;  // one per pending response with an identifier
    // The status of the final response (0xFFFF when none came) and one
    // line of words for a failure.
    uint16_t wFinalStatus = 0xFFFF;
    std::string sErrorText;
    int nCancelAfter = 0;  // C-CANCEL-RQ after this many matches (0: never)
    // Milliseconds of the connection, association control and DIMSE waits;
    // 0 keeps the time-out of the profile (or the socket's 30 s).
    int nConnectTimeout = 0, nAcseTimeout = 0, nDimseTimeout = 0;
};

class CWorklistSocket : public CUserSocket {
public:
    explicit CWorklistSocket(HOST_INFO* host);
    ~CWorklistSocket() override = default;

    // A new request template: every worklist key, empty, in a tree "Root";
    // null when out of memory.
    static CDicomItem* CreateFindRequest();
    // Stores a new template as the record's request.
    static bool CreateFindRequest(WL_FIND* record);
    // Sets the key (group, element) of request (the element is added when
    // missing) from a typed value, treated by vr: DA and TM typed ranges
    // (">d", "<d", "=d", "a..b") become range matching values, PN spaces
    // become '^' with a trailing '*', US a binary number; DT and UL are
    // refused (false). Any other VR sets the text as given.
    static bool AddValueToFindRequest(CDicomItem* request, const std::u16string& value, int group, int element,
                                      const std::u16string& vr);
    // One whole query (association, C-FIND, release), its outcome in the record.
    static void ProccessRequest(WL_FIND* record);
    // The worker-thread entry: the query, then the notification. Returns 0.
    static unsigned int FindThreadProc(WL_FIND* record);

protected:
    int Find(WL_FIND* record);
    int SendFindRequest(WL_FIND* record);
    int ReceiveFindResponse(WL_FIND* record);

private:
    static void LogATNAWorklistQuery(WL_FIND* record, bool success);
};

// The main attributes of one worklist entry, written as a response identifier.
class CDicomWorklist {
public:
    CDicomWorklist() = default;
    CDicomWorklist(const CDicomWorklist& other) = default;
    CDicomWorklist& operator=(const CDicomWorklist& other) = default;
    ~CDicomWorklist() = default;

    // A DICOMINFO::ReadTags callback: keeps the Accession Number.
    static void ReadTagProc(TAG_HEADER* element, CDicomWorklist* record);
    // Appends the attributes in implicit VR little endian, the last three
    // inside one Scheduled Procedure Step item.
    // False when a field cannot be written in ISO_IR 100 (it is left out).
    bool FillResponseData(CDynBuffer& buffer) const;

    std::u16string sAccessionNumber;                 // (0008,0050)
    std::u16string sReferringPhysicianName;          // (0008,0090)
    std::u16string sPatientName;                     // (0010,0010)
    std::u16string sPatientID;                       // (0010,0020)
    std::u16string sPatientBirthDate;                // (0010,0030)
    std::u16string sPatientSex;                      // (0010,0040)
    std::u16string sStudyInstanceUID;                // (0020,000D)
    std::u16string sCurrentPatientLocation;          // (0038,0300)
    std::u16string sRequestedContrastAgent;          // (0032,1070)
    std::u16string sScheduledPerformingPhysician;    // (0040,0006)
    std::u16string sScheduledStationName;            // (0040,0010)
};
