#ifndef CATALOG_PROCESS_SIGNALS_H
#define CATALOG_PROCESS_SIGNALS_H
// SIGTERM, SIGINT and SIGCHLD as a descriptor to wait on beside the sockets: nothing runs in a signal
// handler, and the wait needs no interruption.
#include "connection.h"

namespace catalog {

// Blocks the three in the calling thread and those it starts, children included. First thing in main.
void block_signals();

// Readable when one of them is pending for the calling process; one per process, made after its fork.
unique_fd open_signal_fd();

struct pending_signals {
    bool stop = false;          // SIGTERM or SIGINT
    bool child_changed = false; // SIGCHLD
};
pending_signals take_signals(const unique_fd& signals);

} // namespace catalog
#endif
