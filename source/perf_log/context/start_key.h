#ifndef OSTRUM_PERF_LOG_CONTEXT_START_KEY_H
#define OSTRUM_PERF_LOG_CONTEXT_START_KEY_H
#include <cstdint>

#include "perf_log/aggregation/path_identity.h"
#include "perf_log/context/log_context.h"

namespace ostrum {

// Makes the key of an operation that starts: of its path, in the context's trees. The caller adds the hash
// and the references. The text copies are left unset: of a key only its pointers are read.
void fill_start_key(agg_node& key, const path_identity& path, const trace_source& source, int32_t level,
                    int32_t log_time);

} // namespace ostrum
#endif
