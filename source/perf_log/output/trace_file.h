#ifndef OSTRUM_PERF_LOG_OUTPUT_TRACE_FILE_H
#define OSTRUM_PERF_LOG_OUTPUT_TRACE_FILE_H
// Trace data files: opening them, and writing a context's tree to its file.
#include <cstdint>

#include "perf_log/context/log_context.h"

extern "C" {
// Opens the trace file of the context's present period; in single-file mode only notes that mode.
void open_log_file(ostrum::trace_source* source);

// Writes the tree, empties it and moves the flush times on. Returns the number of top-level paths
// written, 0 when there was nothing to write, -1 after a diagnostic line.
int32_t flush_aggregation_tree_to_file(ostrum::trace_source* source, bt_tree* tree);
}
#endif
