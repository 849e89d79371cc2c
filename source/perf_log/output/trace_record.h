#ifndef OSTRUM_PERF_LOG_OUTPUT_TRACE_RECORD_H
#define OSTRUM_PERF_LOG_OUTPUT_TRACE_RECORD_H
// The two kinds of line of a trace data file. Fields are separated by commas, without quoting (kept:
// readers of existing files rely on it).
#include <cstdint>
#include <string_view>

#include "perf_log/aggregation/agg_node.h"
#include "util/append_buffer.h"
#include "util/decimal_text.h"

namespace ostrum {

enum class trace_kind : int32_t { start = 1, figures = 2 };

// The ids of the process and the thread as every start line of a flush shows them.
class owner_fields {
public:
    owner_fields(uint32_t pid, uint64_t tid);
    [[nodiscard]] std::string_view text() const { return {text_, length_}; }

private:
    char text_[2 * longest_number + 1]; // pid,tid
    size_t length_;
};

// What the lines show; everything belongs to the caller. A start line uses the identity, a figures line the
// totals.
struct trace_line {
    int32_t level; // as printed
    int32_t opcode;
    int32_t flags;
    const char* opname;
    int64_t time_tv; // 0 for paths and buckets
    const char* fname;
    int32_t lineno;
    const owner_fields* owner;
    const char* program;
    int32_t bucket; // 0 = not a bucket: a figures line then shows no bounds
    const char* obj_type;
    int64_t db_num;
    const total_record* totals;
};

} // namespace ostrum

extern "C" {
// Adds one line to the text. Nothing here fails: the text keeps account of its writes.
void write_perf(ostrum::append_buffer* out, ostrum::trace_kind kind, const ostrum::trace_line* line);
}
#endif
