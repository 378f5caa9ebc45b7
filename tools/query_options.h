#pragma once
// The options of the query/retrieve commands (find, move, get): information
// model, level, keys and transfer syntax, in DCMTK's findscu/movescu
// spellings too (-P, -S, -k, -xi, -xe, -xb).
#include <functional>
#include <string>
#include <vector>

#include "network/usersocket.h"
#include "tools/options.h"

// Adds the query options to a reader; they fill request as they are read
// (the level defaults to PATIENT for the patient root model when none is given).
void AddQueryOptions(OptionReader& reader, QR_REQUEST& request);

// Ctrl-C during a query or retrieval: the first asks for C-CANCEL (the final
// response is still awaited), a second for A-ABORT. The result is the
// interruption check of CUserSocket::SetCancellation.
std::function<int()> CatchInterrupts();

// KEY[=VALUE] with KEY a keyword or gggg,eeee; false when KEY is neither.
bool ParseQueryKey(const std::string& text, QueryKey& key);

// "pending: R remaining, C completed, F failed, W warning" of a C-MOVE or
// C-GET response on standard output, flushed at once.
void PrintSubOperationCounts(const char* what, const DICOM_CMND_MSG& response);
// "final status 0xSSSS: words[ - error comment]" of the last such response.
void PrintRetrieveStatus(const DICOM_CMND_MSG& response);
