#ifndef OSTRUM_PERF_LOG_OUTPUT_TRACE_FILE_H
#define OSTRUM_PERF_LOG_OUTPUT_TRACE_FILE_H
// Trace data files: their names, opening them, and writing a context's tree to its file.
#include <cstdint>

#include "perf_log/context/log_context.h"

namespace ostrum {

// Closes the context's file (copies that wait to be written keep it open) and leaves single-file mode.
void close_trace_file(trace_source& source);

// After a flush: the last one was now, the next is due one flush frequency later.
void move_flush_times_on(trace_source& source);
// The clock was: what is due by its old time would wait for as long. Reads one word, without the lock.
bool was_set_back_since_flush(const trace_source& source, int64_t now_tv);

} // namespace ostrum

extern "C" {
// Opens the trace file of the context's present period; in single-file mode only notes that mode.
void open_log_file(ostrum::trace_source* source);

// Writes the tree, empties it and moves the flush times on. Returns the number of top-level paths
// written, 0 when there was nothing to write, -1 after a diagnostic line.
int32_t flush_aggregation_tree_to_file(ostrum::trace_source* source, bt_tree* tree);
}
#endif
