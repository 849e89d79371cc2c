#ifndef OSTRUM_FLIST_TRACE_FLIST_FILE_H
#define OSTRUM_FLIST_TRACE_FLIST_FILE_H
// The field-list trace of a context: a file of its own per aggregation period, or standard output. Text is
// written whole and at once, so that a forked child finds nothing that it could write a second time.
#include <cstdint>

#include "perf_log/context/log_context.h"
#include "util/append_buffer.h"

namespace ostrum {

// Bits of the variable "flist_on".
inline constexpr int32_t flist_tree_lines = 0x1; // a line per call, below a header
inline constexpr int32_t flist_blocks = 0x2;     // a block per call with its field list, instead of the line

bool is_open(const flist_log& log);

// Text for the log, behind what the host has printed there.
append_buffer append_buffer_for(const flist_log& log);

} // namespace ostrum

extern "C" {
// Opens the context's log, with the header where tree lines are asked for. When that fails: one diagnostic
// line, and the log stays closed.
void open_flist_file(ostrum::log_context* context);
}
#endif
