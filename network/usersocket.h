#pragma once
// The requesting side (SCU) of an association and its DIMSE messages.
//
// Files: usersocket_associate.cpp (connect, A-ASSOCIATE-RQ and its answer,
// release, close), usersocket_dimse.cpp (command sets out, responses in),
// usersocket_echo.cpp (the verification exchange and its failure words).
#include <cstdint>
#include <initializer_list>
#include <string>

#include "network/dicomsocket.h"

class CDynBuffer;

// The requesting side of the association: no members of its own.
class CDicomCommonSocket : public CDicomSocket {
public:
    int SendReleaseReq();

protected:
    CDicomCommonSocket() = default;
};

// One element of a request command set (PS3.7 E.1).
struct CommandElement {
    enum Kind { kUid, kAe, kUs, kNextMessageId };
    uint16_t element;
    Kind kind;
    std::string text = "";
    uint16_t number = 0;
};

class CUserSocket : public CDicomCommonSocket {
public:
    CUserSocket();
    ~CUserSocket() override = default;

    // --- association (usersocket_associate.cpp)
    // Host and port; each title's characters over the start of its 16 blanks.
    void SetConnectionData(const std::string& host, unsigned port, const std::string& calledTitle,
                           const std::string& callingTitle);
    // A context with the abstract syntax and count transfer syntaxes (const
    // char*), given the ID 1, 3, 5, ... by its position.
    void AddPresentationContext(const char* abstractSyntax, int count, ...);
    // Connects to the host and port of SetConnectionData; the socket's own
    // Connect(host, port) stays callable.
    using CZelSocket::Connect;
    int Connect();
    int SendAssociateReq(bool storageCommitmentRole);
    int ReceiveAssociateRsp();
    int ReadAssociateAc();
    int ReceiveReleaseRsp();
    void Close() override;

    // --- DIMSE (usersocket_dimse.cpp)
    int SendEchoReq();
    int ReceiveEchoRsp();
    // Builds a command set from the elements (group length in front) and
    // sends it as one command PDV. The one path every request takes.
    int SendCommand(std::initializer_list<CommandElement> elements);
    // Receives the response to a request with the given command field: 1
    // when a message came and answers that command.
    int AwaitResponse(uint16_t requestCommand, DICOM_CMND_MSG& response, CDynBuffer& data);

    // --- storage (usersocket_store.cpp)
    // The C-STORE-RQ command set (medium priority, a data set follows).
    int SendStoreReqCmnd(const std::string& sopClass, const std::string& sopInstance);
    // Sends length bytes of the file from offset as the data set, mapped a
    // window at a time so that a large file is never held in memory whole.
    int SendDataFromFile(const std::u16string& path, int64_t length, int64_t offset = 0);
    // Reads the C-STORE-RSP to the last request into response: 1 when it
    // came and answers that request (its status is for the caller to judge).
    int ReceiveStoreRsp(DICOM_CMND_MSG& response);
    // The ID of an accepted context with this abstract and transfer syntax, 0 when none.
    unsigned char FindAcceptedContext(const std::string& abstractSyntax, const std::string& transferSyntax) const;
    // Words for a C-STORE response status (PS3.4 B.2.3).
    static std::string GetStoreStatusText(uint16_t status);

    // --- verification (usersocket_echo.cpp)
    // 0 on success, else the local error (or the system error when there is none).
    int Do_CECHO_Request(const std::u16string& host, unsigned port, const std::string& calledTitle,
                         const std::string& callingTitle);
    // One line of words for the last failure: the step it happened in and what went wrong.
    std::string GetErrorText() const;

    uint32_t m_nMessageID = 0;
    std::u16string m_sHost;
    unsigned m_nPort = 104;
    int m_nEchoDuration = 0;
    // Result, source and reason of the last A-ASSOCIATE-RJ received (PS3.8 9.3.4).
    struct Rejection {
        uint8_t result = 0, source = 0, reason = 0;
    } m_Rejection;
    // The step that failed last ("connect", "association", ...), empty when none did.
    std::string m_sFailedStep;
};
