#pragma once
// The options of the query/retrieve commands (find, move): information
// model, level, keys and transfer syntax, in DCMTK's findscu/movescu
// spellings too (-P, -S, -k, -xi, -xe, -xb).
#include <functional>
#include <string>
#include <vector>

#include "network/usersocket.h"

// Takes the query options out of argv into request; the arguments left are
// for ReadAssociationOptions. Returns -1 to go on, else the exit status (2,
// with a line on standard error).
int ReadQueryOptions(const char* name, int argc, char** argv, QR_REQUEST& request, bool& json,
                     std::vector<char*>& rest);

// The N of `--cancel N` (a count of matches, at least 1); false with a line
// on standard error when it is not one.
bool ReadCancelCount(const char* name, const char* text, int& count);

// Ctrl-C during a query or retrieval: the first asks for C-CANCEL (the final
// response is still awaited), a second for A-ABORT. The result is the
// interruption check of CUserSocket::SetCancellation.
std::function<int()> CatchInterrupts();

// KEY[=VALUE] with KEY a keyword or gggg,eeee; false when KEY is neither.
bool ParseQueryKey(const std::string& text, QueryKey& key);
