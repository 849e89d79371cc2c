#ifndef OSTRUM_BENCH_STDIO_WRITER_H
#define OSTRUM_BENCH_STDIO_WRITER_H
// The lines of a trace data file, written the plain way: one fprintf a line, from values in memory. What
// the library's own writer is compared with.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace ostrum_bench {

struct start_fields {
    int64_t level, reserved, opcode, flags;
    std::string name;
    int64_t time_tv;
    std::string file;
    int64_t line, pid, tid;
    std::string program;
    int64_t bucket;
    std::string type;
    int64_t db;
};

struct figure_fields {
    int64_t total_tv, records, calls, min_tv, max_tv, from_tv, to_tv, cached_calls, cached_tv, errors,
        user_tv, system_tv;
};

struct trace_line {
    bool is_start;
    start_fields start;
    figure_fields figures;
};

std::vector<trace_line> parse_trace(const std::string& text);

void write_with_stdio(FILE* file, const std::vector<trace_line>& lines);

} // namespace ostrum_bench
#endif
