#ifndef OSTRUM_PERF_LOG_OUTPUT_TREE_WRITER_H
#define OSTRUM_PERF_LOG_OUTPUT_TREE_WRITER_H
// Writes an aggregation tree as start and figures lines: a period frame, and in it every path with its
// callees and its duration buckets. A reader pairs each F with the latest S that is still open.
#include <cstdint>

#include "data_file/layout.h"
#include "ostrum_util.h"
#include "perf_log/output/trace_record.h"

namespace ostrum {

// One flush in progress.
struct print_context {
    append_buffer* out;
    owner_fields owner;
    char program[text_bytes];
    int64_t start_tv;
    int64_t end_tv;
    int32_t record_count; // top-level paths written
};

} // namespace ostrum

extern "C" {
// Writes one path, callees included. 1, or 0 when writing failed below it.
int32_t print_aggregation_record(const void* node, void* print_context, int32_t depth);

// Writes the records of a tree; with the period frame when `top_tree` is that tree itself, without when it
// is null. Returns the number of top-level paths, or -1 after one diagnostic line.
int32_t __flush_aggregation_tree_to_file(ostrum::print_context* context, bt_tree* top_tree, bt_tree* tree);
}
#endif
