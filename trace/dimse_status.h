#pragma once
// The status words of DIMSE responses (PS3.7 Annex C, PS3.4 per service) in
// one table: the value or range, its class, the words a client prints and
// the name the protocol trace shows. Rows for one request's responses (the
// request's command field) come before the general rows, which serve every
// request.
#include <cstdint>

enum class StatusClass : uint8_t { kSuccess, kWarning, kFailure, kCancel, kPending };

struct DimseStatus {
    uint16_t request;  // the command field of the request answered; 0: any request
    uint16_t first, last;
    StatusClass statusClass;
    const char* words;      // the client's words
    const char* traceName;  // the trace's name (general rows of one value); null: none
};

// The row for status in a response to request: that request's rows first,
// then the general ones; null when no row knows the value.
const DimseStatus* FindDimseStatus(uint16_t request, uint16_t status);
// The class of status: its row's, else the class PS3.7 C gives its range
// (0xBxxx a warning, any other value no row knows a failure).
StatusClass ClassifyDimseStatus(uint16_t request, uint16_t status);
// The trace's name of a status of any request; null when it has none.
const char* DimseStatusTraceName(uint16_t status);
