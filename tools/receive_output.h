#pragma once
// What `receive` and `move --receive` print about the storage server's
// associations: one line per instance received (a progress line instead
// when standard output is a terminal), failures on standard error, and a
// summary when each association ends.
#include "network/storageserver.h"
#include "tools/association_options.h"

// The server's event callback for the command's verbosity; counts are
// kept in the returned callback's state.
CStorageServer::EventCallback ReceiveReporter(const AssociationOptions& options);
