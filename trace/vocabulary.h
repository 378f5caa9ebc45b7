#pragma once
// Words for the codes of the DICOM upper layer (PS3.8) and of DIMSE (PS3.7):
// what the protocol trace and the network client's error lines print. Each
// lookup is an exact match; an unknown code gives a fixed fallback text.
#include <string>

// The 10 bytes of an A-ASSOCIATE-RJ PDU as they travel (PS3.8 9.3.4).
struct A_ASSOCIATE_RJ {
    unsigned char ucType;
    unsigned char ucReserved1;
    unsigned char aLength[4];
    unsigned char ucReserved2;
    unsigned char ucResult;
    unsigned char ucSource;
    unsigned char ucReason;
};
static_assert(sizeof(A_ASSOCIATE_RJ) == 10, "A-ASSOCIATE-RJ is 10 bytes");

std::string GetClearPduType(int type);
std::string GetClearPduItemType(int type);
std::string GetClearContextAck(int result);
std::string GetClearRejection(A_ASSOCIATE_RJ rejection);
std::string GetClearMessage(int commandField);
std::string GetClearSocketError(int error);
std::string GetClearPriority(int priority);
std::string GetClearStatus(int status);
std::string GetClearUID(std::string uid);
