// Tree lines: one line at the start of a call, indented by its level, and up to three at its end.
#include <algorithm>

#include "config/settings.h"
#include "flist_trace/entry_parts.h"
#include "host_access/correlation.h"
#include "host_access/object_xoid.h"
#include "util/text.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

constexpr int32_t deepest_indentation = 48;

// "2026/11/15 13:15:00.000000 (pid/tid)  elapsed  ": what every line begins with.
void add_time_columns(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    const int64_t elapsed_tv = times_of(context, entry).since_top_tv;
    out.add_text(formatted_time(entry.now_tv, format_year_first_us).text);
    if (context.flist_trace.to_stdout) { // which all threads share
        out.add_formatted(" (%d/%lu)", context.trace.pid, context.trace.tid);
    }
    out.add_formatted("  %5d.%09d  ", static_cast<int>(elapsed_tv / tv_per_s),
                      static_cast<int>(elapsed_tv % tv_per_s));
}

void add_indentation(append_buffer& out, const log_context& context, flist_direction direction)
{
    const int32_t pairs = std::min(context.depth, deepest_indentation);
    for (int32_t i = 0; i < pairs; ++i) {
        out.add_text(direction == flist_direction::in ? " |" : "  ");
    }
    out.add_text(" ");
}

void add_start_line(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    char db[64];
    add_time_columns(out, context, entry);
    out.add_formatted("%#10x ", entry.opflags);
    add_indentation(out, context, flist_direction::in);
    const char* obj_type = text_or_empty(entry.obj_type);
    out.add_text(entry.opname);
    out.add_text("(");
    out.add_text(entry.file);
    out.add_formatted("[%d] %s %s %ld)", entry.line, perf_dbno_to_str(db, sizeof(db), entry.db),
                      obj_type[0] != '\0' ? obj_type : "/", entry.obj_id);
    if (context.depth == 0 && configured().log_correlation_in_call_stack != 0) {
        out.add_text("[");
        out.add_text(perf_get_correlation_id());
        out.add_text("]");
    }
    out.add_text("\n");
}

void begin_end_line(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    add_time_columns(out, context, entry);
    out.add_formatted("%-10.10s ", text_or_empty(entry.file));
}

void add_end_lines(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    if (is_cache_hit(entry)) {
        begin_end_line(out, context, entry);
        add_indentation(out, context, flist_direction::out);
        out.add_text("  *TXN*\n");
    }
    if (has_error(entry)) {
        begin_end_line(out, context, entry);
        add_indentation(out, context, flist_direction::out);
        out.add_formatted("ERROR[%d]\n", static_cast<int>(entry.ebuf->errnum));
    }
    if (context.depth == 0) {
        begin_end_line(out, context, entry);
        out.add_text(" <opcode_end ");
        out.add_text(entry.opname);
        out.add_text(">\n");
    }
}

} // namespace

void add_tree_lines(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    if (entry.direction == flist_direction::in) {
        add_start_line(out, context, entry);
    } else {
        add_end_lines(out, context, entry);
    }
}

} // namespace ostrum
