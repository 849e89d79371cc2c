// A block: one long line about the call, then its field list.
#include "flist_trace/entry_parts.h"
#include "host_access/correlation.h"
#include "host_access/error_buffer.h"
#include "host_access/flist.h"
#include "util/text.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

time_text elapsed_text(const log_context& context, const flist_entry& entry)
{
    if (is_aggregated(context)) {
        return formatted_time(times_of(context, entry).since_level_start_tv, format_seconds_ns);
    }
    return {"timing-disabled"};
}

void add_head(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    const bool at_end = entry.direction == flist_direction::out;
    out.add_text(at_end ? "== OUT[" : "== IN[");
    out.add_text(entry.opname);
    out.add_formatted("] FLAGS[%#x] AT[%s] PID/TID[%d/%lu] LVL/TOP/SEQ[%d/%d/%d]", entry.opflags,
                      formatted_time(entry.now_tv, format_year_first_us).text, context.trace.pid,
                      context.trace.tid, context.depth + 1, static_cast<int>(context.top_sequence),
                      static_cast<int>(context.current_sequence));
    out.add_text(" SRC[");
    out.add_text(entry.file);
    out.add_formatted(", %d] CORRELATION_ID[", entry.line);
    out.add_text(perf_get_correlation_id());
    out.add_text("]");
    if (at_end) {
        out.add_formatted(" TXN_CACHE[%s] ELAPSED[%s]", is_cache_hit(entry) ? "YES" : "NO",
                          elapsed_text(context, entry).text);
    }
}

void add_error(append_buffer& out, const flist_entry& entry)
{
    char text[error_text_bytes];
    qel_errbuf_t ebuf = copy_for_host(*entry.ebuf);
    get_ebuf_str(&ebuf, text);
    out.add_formatted(" ERROR_STATUS[%d][", static_cast<int>(entry.ebuf->errnum));
    out.add_text(text);
    out.add_text("]");
}

} // namespace

void add_block(append_buffer& out, const log_context& context, const flist_entry& entry)
{
    add_head(out, context, entry);
    if (has_error(entry)) {
        add_error(out, entry);
    }
    out.add_text("\n");
    out.add_text(shown_flist_text(flist_text(static_cast<qel_flist_t*>(entry.flist))));
}

} // namespace ostrum
