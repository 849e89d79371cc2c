#include "perf_log/operation/outermost_checks.h"

#include <algorithm>
#include <span>

#include "config/settings.h"
#include "data_file/variables.h"
#include "flist_trace/flist_file.h"
#include "perf_log/flush/flush.h"
#include "perf_log/output/trace_file.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/resources.h"

namespace ostrum {

namespace {

void refresh_modes(log_context& context)
{
    rt_info* data_file = __ostrum_get_data_file_handle();
    const int64_t modified_tv = perf_data_file_var_last_mod_t(data_file);
    if (modified_tv == context.variables_stamp_tv) { // earlier, too, when the clock was set back
        return;
    }
    variable_handles& handles = context.variables;
    context.time_mode = perf_data_file_var_get_int(data_file, &handles.time_on, "time_on");
    context.flist_mode = perf_data_file_var_get_int(data_file, &handles.flist_on, "flist_on");
    context.alarm_mode = perf_data_file_var_get_int(data_file, &handles.alarm_on, "alarm_on");
    const heap_ptr<char> opcodes{perf_data_file_var_get(data_file, &handles.trace_opcodes, "trace_opcodes")};
    context.trace_opcodes = build_opcode_trace_list(opcodes.get());
    context.variables_stamp_tv = modified_tv;
}

// True when the moment lies in another period than the context's; `period` is then that one.
// The prefix of this message and of those below is kept: no function has that name.
bool find_new_period(const log_context& context, int64_t now_tv, aggregation_period& period)
{
    period = present_period(now_tv);
    if (period.start_s == context.trace.period.start_s) {
        return false;
    }
    if (debug_on(debug_general)) {
        debug_print("update_log_info : new aggregation period[%s - %s]\n", period.start_text,
                    period.end_text);
    }
    return true;
}

// The modes and the period are looked at once per status check interval.
bool status_check(log_context& context, int64_t now_tv, aggregation_period& period)
{
    if (!is_due_by_clock(now_tv, context.next_status_check_tv, configured().status_check_tv)) {
        return false;
    }
    refresh_modes(context);
    if (was_set_back_since_flush(context.trace, now_tv)) {
        context.flush_requested = true;
    }
    const bool new_period = find_new_period(context, now_tv, period);
    context.next_status_check_tv = now_tv + configured().status_check_tv;
    return new_period;
}

bool has_trace_output(const trace_source& source)
{
    return source.file != nullptr || source.single_file;
}

void flush_and_close(log_context& context, bool max_exceeded, bool new_period)
{
    if (debug_on(debug_general)) {
        debug_print("update_log_info : need to flush - max_exceeded[%d] new_period[%d] time_fp[%#x] "
                    "single_file[%d] LOG_TIME_FILE[%d]\n",
                    max_exceeded ? 1 : 0, new_period ? 1 : 0, low_address_bits(context.trace.file),
                    context.trace.single_file ? 1 : 0, logs_to_file(context.time_mode) ? 1 : 0);
    }
    flush_aggregation_tree(&context);
    close_trace_file(context.trace);
    context.starts_since_file_close = 0;
    // Of a group of transactions the one around it is open, and its node gone with the tree.
    for (int32_t level = 0; level < context.depth; ++level) {
        context.frames[level].node = nullptr;
    }
}

bool is_traced_opcode(const trace_opcode_list& list, int32_t opcode)
{
    const std::span<const int32_t> opcodes(list.opcodes.get(), static_cast<size_t>(list.count));
    return opcodes.empty() || std::find(opcodes.begin(), opcodes.end(), opcode) != opcodes.end();
}

// Which operations the field-list trace covers is decided by the outermost one.
void prepare_flist_trace(log_context& context, int32_t opcode, bool reopen)
{
    if (context.flist_mode <= 0 || reopen) {
        context.flist_trace = {};
    }
    context.skip_flist_trace = context.flist_mode <= 0 || !is_traced_opcode(context.trace_opcodes, opcode);
    if (!context.skip_flist_trace && !is_open(context.flist_trace)) {
        open_flist_file(&context);
    }
}

} // namespace

void check_at_outermost_start(log_context& context, int32_t opcode, int64_t now_tv)
{
    aggregation_period period;
    const bool new_period = status_check(context, now_tv, period);
    context.starts_since_file_close += context.starts_since_file_close < INT32_MAX ? 1 : 0;
    const int32_t max_lines = configured().max_log_size;
    const bool max_exceeded = max_lines != 0 && context.starts_since_file_close >= max_lines;
    const bool to_file = logs_to_file(context.time_mode);

    const bool must_flush = !to_file || max_exceeded || new_period;
    if (must_flush && has_trace_output(context.trace)) {
        flush_and_close(context, max_exceeded, new_period);
    }
    if (new_period) {
        adopt_period(context.trace, period);
    }
    if (to_file && !has_trace_output(context.trace)) {
        open_log_file(&context.trace);
    }
    const bool keeps_alarm_file = (context.alarm_mode & keep_alarm_file_open) != 0 && context.time_mode > 0;
    if (!keeps_alarm_file || new_period) {
        context.alarm_file.reset();
    }
    prepare_flist_trace(context, opcode, max_exceeded || new_period);
}

} // namespace ostrum
