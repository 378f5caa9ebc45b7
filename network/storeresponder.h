#pragma once
// The performing side of one C-STORE (PS3.4 B.2.3, PS3.7 9.3.1): a
// C-STORE-RQ whose command set has been read is answered on its
// association. The data set is streamed from the PDVs into a received file
// (never held in memory), the C-STORE-RSP goes back with the status that
// the file's fate decided, and the caller learns status and path. The same
// answer serves a storage SCP's association and the storage sub-operations
// that a C-GET brings on the retrieving association.
#include <cstdint>
#include <string>

#include "network/receivedfile.h"

class CUserSocket;
struct DICOM_CMND_MSG;

// What became of one C-STORE-RQ.
struct STORED_INSTANCE {
    uint16_t status = 0xFFFF;   // the status answered (0xFFFF: no response could be sent)
    std::string path;           // the file, when status is Success
    RECEIVED_INSTANCE instance; // SOP class and instance of the request, transfer syntax, source AE
    uint64_t bytes = 0;         // data set bytes received
    std::string error;          // words for a status other than Success
};

class CStoreResponder {
public:
    // Status of a request on a context that was not accepted, or whose
    // abstract syntax is not the request's SOP class (PS3.4 B.2.3).
    static constexpr uint16_t kSopClassNotSupported = 0x0122;

    // folder: where files go; durable: each file flushed to the disk before
    // Success is answered.
    explicit CStoreResponder(std::string folder, bool durable = false);

    // Names files (no folder); empty: CReceivedFile::DefaultName.
    void SetNamer(CReceivedFile::Namer namer) { m_namer = std::move(namer); }
    // The Source AE Title written into the file meta information; empty
    // (the default): the calling AE title of the association.
    void SetSourceTitle(std::string title) { m_sourceTitle = std::move(title); }

    // Receives the data set of request (a C-STORE-RQ whose command set
    // socket has just read) into a file and sends the C-STORE-RSP. 1 when
    // the response was sent (outcome.status tells what it said), 0 when the
    // association failed on the way (the socket's error tells why; no file
    // is left).
    int Answer(CUserSocket& socket, const DICOM_CMND_MSG& request, STORED_INSTANCE& outcome);

private:
    std::string m_folder;
    bool m_durable;
    CReceivedFile::Namer m_namer;
    std::string m_sourceTitle;
};
