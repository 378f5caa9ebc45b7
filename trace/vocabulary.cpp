#include "dicomdata/dictionary.h"
#include "trace/dimse_status.h"
#include "trace/vocabulary.h"

#include <cstring>

namespace {

struct CodeText {
    int code;
    const char* text;
};

template <size_t N>
std::string Lookup(const CodeText (&table)[N], int code, const char* fallback)
{
    for (const CodeText& row : table)
        if (row.code == code)
            return row.text;
    return fallback;
}

constexpr CodeText kPduTypes[] = {
    {1, "A-ASSOCIATE-RQ"}, {2, "A-ASSOCIATE-AC"}, {3, "A-ASSOCIATE-RJ"}, {4, "P-DATA-TF"},
    {5, "A-RELEASE-RQ"},   {6, "A-RELEASE-RSP"},  {7, "A-ABORT-RQ"},
};

constexpr CodeText kItemTypes[] = {
    {0x10, "APPLICATION CONTEXT ITEM"},
    {0x20, "PRESENTATION CONTEXT REQUEST ITEM"},
    {0x21, "PRESENTATION CONTEXT ACKNOWLEDGE ITEM"},
    {0x30, "ABSTRACT SYNTAX SUBITEM"},
    {0x40, "TRANSFER SYNTAX SUBITEM"},
    {0x50, "USER INFO ITEM"},
    {0x51, "MAX LENGTH SUBITEM"},
    {0x52, "IMPLEMENTATION CLASS UID SUBITEM"},
    {0x53, "ASYNCHRONOUS OPERATION UID SUBITEM"},
    {0x54, "ROLE NEGOTIATION ITEM"},
    {0x55, "IMPLEMENTATION VERSION NAME"},
};

constexpr CodeText kContextResults[] = {
    {0, "No Rejection"},
    {1, "User Rejection"},
    {3, "Rejection: Abstract Syntax Not Supported"},
    {4, "Rejection: Transfer Syntax Not Supported"},
};

constexpr CodeText kMessages[] = {
    {0x0001, "C-STORE-RQ"},          {0x8001, "C-STORE-RSP"},        {0x0020, "C-FIND-RQ"},
    {0x8020, "C-FIND-RSP"},          {0x0021, "C-MOVE-RQ"},          {0x8021, "C-MOVE-RSP"},
    {0x0030, "C-ECHO-RQ"},           {0x8030, "C-ECHO-RSP"},         {0x0100, "N-EVENT-REPORT-RQ"},
    {0x8100, "N-EVENT-REPORT-RSP"},  {0x0110, "N-GET-RQ"},           {0x8110, "N-GET-RSP"},
    {0x0120, "N-SET-RQ"},            {0x8120, "N-SET-RSP"},          {0x0130, "N-ACTION-RQ"},
    {0x8130, "N-ACTION-RSP"},        {0x0140, "N-CREATE-RQ"},        {0x8140, "N-CREATE-RSP"},
    {0x0150, "N-DELETE-RQ"},         {0x8150, "N-DELETE-RSP"},
};

constexpr CodeText kPriorities[] = {{0, "MEDIUM PRIORITY"}, {1, "HIGH PRIORITY"}, {2, "LOW PRIORITY"}};

constexpr CodeText kSocketErrors[] = {
    {0, "No Error"},
    {10004, "The (blocking) call was canceled using WSACancelBlockingCall"},
    {10013, "The requested address is a broadcast address, but the appropriate flag was not set"},
    {10014, "The lpSockAddrLen argument is incorrect"},
    {10022, "The socket is already bound to an address"},
    {10024, "No more file descriptors are available"},
    {10035, "The socket is nonblocking and the connection cannot be completed immediately"},
    {10036, "A blocking Windows Sockets operation is in progress"},
    {10037, "The asynchronous routine being canceled has already completed"},
    {10038, "The descriptor is a file, not a socket"},
    {10039, "A destination address is required"},
    {10040, "The datagram is larger than the maximum supported by the Windows Sockets"},
    {10041, "The specified port is the wrong type for this socket"},
    {10042, "The option is unknown or unsupported"},
    {10043, "The specified port is not supported"},
    {10044, "The specified socket type is not supported in this address family"},
    {10045, "The referenced socket is not a type that supports connection-oriented service"},
    {10047, "Addresses in the specified family cannot be used with this socket"},
    {10048, "The specified address is already in use"},
    {10049, "The specified address is not available from the local machine"},
    {10050, "The Windows Sockets implementation detected an underlying failure"},
    {10051, "The network cannot be reached from this host at this time"},
    {10052, "The connection must be reset because the Windows Sockets implementation dropped it"},
    {10053, "Connection aborded"},
    {10054, "The connection was reset by the remote side"},
    {10055, "No buffer space is available. The socket cannot be connected"},
    {10056, "The socket is already connected"},
    {10057, "The socket is not connected"},
    {10058, "The socket has been shut down"},
    {10059, "Too many refs"},
    {10060, "Time Out without establishing a connection"},
    {10061, "The attempt to connect was forcefully rejected"},
    {10063, "Name too long"},
    {10064, "Host down"},
    {10065, "Host unreachable"},
    {10091, "The network subsystem is unusable"},
    {10092, "The Windows Sockets DLL cannot support this app"},
    {10093, "A successful WSAStartup must occur before using this function"},
    {11001, "Authoritative Answer Host not found"},
    {11002, "Non-Authoritative Host not found, or SERVERFAIL"},
    {11003, "Nonrecoverable errors: FORMERR, REFUSED, NOTIMP"},
    {11004, "Valid name, no data record of requested type"},
};

struct UidName {
    const char* uid;
    const char* name;
};

constexpr UidName kUidNames[] = {
    {"1.2.840.10008.1.1", "Verification SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.1", "CR Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.1.1", "DX (Digital X-Ray) Image Storage  For Presentation SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.1.1.1", "DX (Digital X-Ray) Image Storage  For Processing SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.2", "CT Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.3", "US Multi-frame Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.3.1", "US Multi-frame Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.4", "MR Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.5", "NM Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.20", "NM Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.6", "US Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.6.1", "US Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.7", "SC Image Storage SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.12.1", "XA Image Storage SOP CLass"},
    {"1.2.840.10008.5.1.4.1.1.12.3", "XA BiPlane Image Storage SOP CLass"},
    {"1.2.840.10008.5.1.4.1.1.1.2", "Digital Mammography X-Ray Image Storage - For Presentation SOP Class"},
    {"1.2.840.10008.5.1.4.1.1.1.2.1", "Digital Mammography X-Ray Image Storage - For Processing SOP Class"},
    {"1.2.840.10008.3.1.2.1.1", "Detached Patient Management SOP Class"},
    {"1.2.840.10008.3.1.2.2.1", "Detached Visit Management SOP Class"},
    {"1.2.840.10008.3.1.2.3.1", "Detached Study Management SOP Class"},
    {"1.2.840.10008.5.1.4.31", "Modality Worklist SOP Class"},
    {"1.2.840.10008.5.1.1.9", "Basic Grayscale Print Management Meta SOP Class"},
    {"1.2.840.10008.3.1.1.1", "DICOM Application Context Name"},
    {"1.2.840.10008.1.2", "Implicit VR, Little Endian"},
    {"1.2.840.10008.1.2.1", "Explicit VR, Little Endian"},
    {"1.2.840.10008.1.2.2", "Explicit VR, Big Endian"},
    {"1.2.840.10008.1.2.4.70", "JPEG LossLess, Process 14"},
    {"1.2.840.10008.5.1.4.1.2.2.1", "Study Root Query/Retrieve - FIND"},
    {"1.2.840.10008.5.1.4.1.2.2.2", "Study Root Query/Retrieve - MOVE"},
};

}

std::string GetClearPduType(int type) { return Lookup(kPduTypes, type, "UNKNOWN"); }
std::string GetClearPduItemType(int type) { return Lookup(kItemTypes, type, "UNKNOWN ITEM"); }
std::string GetClearContextAck(int result) { return Lookup(kContextResults, result, "Rejection: No Reason Given"); }
std::string GetClearMessage(int commandField) { return Lookup(kMessages, commandField, "UNKNOWN MESSAGE"); }
std::string GetClearSocketError(int error) { return Lookup(kSocketErrors, error, "Unknown Error"); }
std::string GetClearPriority(int priority) { return Lookup(kPriorities, priority, "UNKNOWN PRIORITY"); }
std::string GetClearStatus(int status)
{
    const char* name = status >= 0 && status <= 0xFFFF ? DimseStatusTraceName(static_cast<uint16_t>(status)) : nullptr;
    return name ? name : "UNKNOWN STATUS";
}

std::string GetClearRejection(A_ASSOCIATE_RJ rejection)
{
    // PS3.8 9.3.4: the reason's meaning depends on the source for reasons 1 and 2.
    int source = rejection.ucSource;
    switch (rejection.ucReason) {
    case 1: return source == 3 ? "REJECTION: Temporary Congestion" : "REJECTION: No Reason Given";
    case 2:
        if (source == 3)
            return "REJECTION: Local Limit Exceeded";
        return source == 2 ? "REJECTION: Bad Protocol Version" : "REJECTION: Bad Application Context Name";
    case 3: return "REJECTION: Calling AppTitle Unknown";
    case 7: return "REJECTION: Called AppTitle Unknown";
    default: return "REJECTION: No Reason Given";
    }
}

std::string GetClearUID(std::string uid)
{
    // A UID whose padding zero byte is still on it ends at that byte.
    uid.resize(std::strlen(uid.c_str()));
    for (const UidName& row : kUidNames)
        if (uid == row.uid)
            return row.name;
    // Behind the trace's own names, the UID registry of PS3.6 Annex A, taken
    // only for the exact UID (a trailing blank is not the UID).
    const zeldicom::UidEntry* entry = zeldicom::FindUid(uid);
    if (entry && uid == entry->uid())
        return entry->name();
    return "Unknown SOP Class";
}
