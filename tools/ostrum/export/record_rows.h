#ifndef OSTRUM_TOOL_EXPORT_RECORD_ROWS_H
#define OSTRUM_TOOL_EXPORT_RECORD_ROWS_H
// Trace data files as rows for databases: one for each figures record, known by (host, file, offset).
#include <functional>
#include <optional>
#include <ostream>
#include <string>

#include "readers/damage_list.h"
#include "readers/trace_parser.h"

namespace ostrum_tool {

// Texts hold no control bytes and are UTF-8: what else a file holds is written as "\xNN".
struct trace_row {
    uint64_t offset = 0;        // of the start record, in the text as it was before any compression
    uint64_t period_offset = 0; // of the period frame; its own for a period
    std::optional<uint64_t> parent_offset;
    int32_t level = 0;  // 0 = a period, 1 = an outermost path
    int32_t bucket = 0; // 1, 2, ...: a duration bucket of the path at parent_offset, whose path it has
    int64_t path_key = 0, parent_key = 0; // hash of a path from the outermost on; 0 = none
    uint32_t pid = 0;
    uint64_t tid = 0;
    int64_t period_from_tv = 0;
    std::optional<int64_t> flushed_tv; // of a period only
    int32_t opcode = 0, flags = 0, lineno = 0;
    int64_t db_num = 0;
    std::string name, fname, program, obj_type;
    figures sums; // of a period none
};

// Gives each row of a text. Returns what is damaged in it; throws input_error when it cannot be read.
damage_list read_rows(const std::string& path, const std::function<void(const trace_row&)>& on_row);

// How a file is named in rows: its absolute path without an ending for compression.
std::string row_file_name(const std::string& path);
std::string this_host();

// Calls `visit` with the name and value of each column, in the order of lines of text.
template <typename Visit>
void visit_columns(const trace_row& row, Visit visit)
{
    visit("file_offset", row.offset);
    visit("period_offset", row.period_offset);
    visit("parent_offset", row.parent_offset);
    visit("level", row.level);
    visit("bucket", row.bucket);
    visit("path_key", row.path_key);
    visit("parent_key", row.parent_key);
    visit("pid", row.pid);
    visit("tid", row.tid);
    visit("period_from_ns", row.period_from_tv);
    visit("flushed_ns", row.flushed_tv);
    visit("opcode", row.opcode);
    visit("name", row.name);
    visit("flags", row.flags);
    visit("source_file", row.fname);
    visit("source_line", row.lineno);
    visit("program", row.program);
    visit("obj_type", row.obj_type);
    visit("db", row.db_num);
    visit("calls", row.sums.total_calls);
    visit("errors", row.sums.total_errors);
    visit("records", row.sums.total_recs);
    visit("total_ns", row.sums.total_tv);
    visit("min_ns", row.sums.min_tv);
    visit("max_ns", row.sums.max_tv);
    visit("bucket_from_ns", row.sums.bs_tv);
    visit("bucket_to_ns", row.sums.be_tv);
    visit("cached_calls", row.sums.cm_cache_calls);
    visit("cached_ns", row.sums.cm_cache_tv);
    visit("user_cpu_ns", row.sums.user_cpu_tv);
    visit("system_cpu_ns", row.sums.sys_cpu_tv);
}

void write_tsv_header(std::ostream& out); // the columns, behind host and file
// One line for COPY: tabs between, "\N" for nothing, backslashes escaped.
void write_tsv_row(std::ostream& out, const std::string& host, const std::string& file, const trace_row& row);

} // namespace ostrum_tool
#endif
