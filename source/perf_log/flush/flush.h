#ifndef OSTRUM_PERF_LOG_FLUSH_FLUSH_H
#define OSTRUM_PERF_LOG_FLUSH_FLUSH_H
#include <cstdint>

#include "perf_log/context/log_context.h"

extern "C" {
// Writes the context's tree to its trace file and empties it; the caller holds the context's lock. The
// one place where a tree would be handed to another thread for writing. Returns the number of top-level
// paths written, 0 when there was nothing, -1 after a diagnostic line.
int32_t flush_aggregation_tree(ostrum::log_context* context);
}
#endif
