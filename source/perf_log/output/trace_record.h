#ifndef OSTRUM_PERF_LOG_OUTPUT_TRACE_RECORD_H
#define OSTRUM_PERF_LOG_OUTPUT_TRACE_RECORD_H
// The two kinds of line of a trace data file. Fields are separated by commas, without quoting (kept:
// readers of existing files rely on it).
#include <cstdint>

#include "perf_log/aggregation/agg_node.h"
#include "util/append_buffer.h"

namespace ostrum {

enum class trace_kind : int32_t { start = 1, figures = 2 };

// What the lines show. A start line uses the identity, a figures line the totals.
struct trace_line {
    int32_t level; // as printed
    int32_t opcode;
    int32_t flags;
    const char* opname;
    int64_t time_tv; // 0 for paths and buckets
    const char* fname;
    int32_t lineno;
    uint32_t pid;
    uint64_t tid;
    const char* program;
    int32_t bucket; // 0 = not a bucket
    const char* obj_type;
    int64_t db_num;
    total_record totals;
};

} // namespace ostrum

extern "C" {
// Adds one line to the text. Nothing here fails: the text keeps account of its writes.
void write_perf(ostrum::append_buffer* out, ostrum::trace_kind kind, const ostrum::trace_line* line);
}
#endif
