#ifndef OSTRUM_PERF_LOG_FLUSH_FLUSH_H
#define OSTRUM_PERF_LOG_FLUSH_FLUSH_H
#include <cstdint>

#include "perf_log/context/log_context.h"

extern "C" {
// Writes the context's tree to its trace file and empties it or, with asynchronous flushing, hands it to
// the flusher thread and gives the context a new one. The caller holds the context's lock. Returns the
// number of top-level paths written, or of new nodes handed over; 0 when there was nothing; -1 after a
// diagnostic line.
int32_t flush_aggregation_tree(ostrum::log_context* context);
}
#endif
