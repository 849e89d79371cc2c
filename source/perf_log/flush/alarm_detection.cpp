#include "perf_log/flush/alarm_detection.h"

#include <algorithm>

#include "config/settings.h"
#include "host_access/correlation.h"
#include "host_access/opcode_names.h"
#include "os/os_calls.h"
#include "perf_log/alarms/alarm_file.h"
#include "perf_log/flush/flush_queue.h"
#include "util/diagnostics.h"
#include "util/text.h"

using namespace ostrum;

namespace {

// What it has taken goes back from the last flush, whatever was done to the clock before. Of a call that goes
// on: at its end its own totals hold the last part, too.
int64_t begin_of_running_call(const call_frame& frame)
{
    return frame.start_tv - (own_totals_in_use(frame) ? frame.own.total_tv : 0);
}

int64_t effective_start(const log_context& context, int64_t now_tv)
{
    const int64_t start_tv = begin_of_running_call(context.frames[0]);
    return start_tv > 0 ? start_tv : now_tv;
}

// The one limit that does not recur is looked at once, when the operation has ended.
bool is_decided_at_the_end(const alarm_entry& entry)
{
    return configured().alarm_log_at_limit == 0 && entry.limit_count < 2 &&
           (entry.limits[0].flags & alarm_recurring) == 0;
}

bool recurs(const alarm_limit& limit)
{
    return (limit.flags & alarm_recurring) != 0 && limit.threshold_tv > 0;
}

int32_t recorded_levels(const log_context& context, const alarm_limit& limit)
{
    const bool whole_stack = (limit.flags & alarm_full_stack) != 0 && context.depth > 0;
    return whole_stack ? std::min(context.depth + 1, max_call_frames) : 1;
}

// The node's texts, or else those of the end; without both the host's name of the operation.
ended_call texts_of(const call_frame& frame, const ended_call* ended)
{
    if (frame.node != nullptr) {
        return {frame.node->opname, frame.node->fname, frame.node->lineno};
    }
    return ended != nullptr ? *ended : ended_call{};
}

void fill_level(alarm_level& level, const call_frame& frame, int32_t number, const ended_call* ended)
{
    const ended_call texts = texts_of(frame, ended);
    level.opcode = static_cast<int32_t>(frame.opcode);
    copy_text(level.opname, sizeof(level.opname), name_of(texts.opname, level.opcode));
    copy_text(level.fname, sizeof(level.fname), texts.fname);
    level.start_tv = begin_of_whole_call(frame);
    level.line = texts.line;
    level.flags = frame.opflags;
    level.level = number;
    level.sequence = static_cast<int32_t>(frame.sequence);
}

void fill_alarm(alarm_record& alarm, const log_context& context, const ended_call* ended)
{
    const trace_source& source = context.trace;
    const alarm_limit& limit = *alarm.limit;
    copy_text(alarm.correlation_id, sizeof(alarm.correlation_id), perf_get_correlation_id());
    alarm.top_sequence = static_cast<int32_t>(context.top_sequence);
    alarm.pid = static_cast<uint32_t>(source.pid);
    alarm.tid = source.tid;
    copy_text(alarm.start_text, sizeof(alarm.start_text), source.period.start_text);
    copy_text(alarm.end_text, sizeof(alarm.end_text), source.period.end_text);
    for (int32_t i = 0; i < alarm.level_count; ++i) {
        const call_frame& frame = context.frames[i];
        fill_level(alarm.levels[i], frame, i, i == 0 ? ended : nullptr);
        if ((limit.flags & alarm_log_flist) != 0) {
            auto* list = static_cast<qel_flist_t*>(frame.in_flist);
            alarm.levels[i].in_flist = perf_flist_str(list, limit.max_flist_bytes);
        }
    }
}

void hand_over(log_context& context, alarm_record* alarm)
{
    if (configured().async_flushing) {
        perf_async_flush_add_alarm(&process_flush_record(), alarm);
        return;
    }
    perf_alarm_persist(&context.alarm_file, alarm, 0);
    release_alarm(alarm);
}

} // namespace

int64_t alarm_bucket_get_next_time(log_context* context, int64_t now_tv)
{
    const alarm_entry* entry = context->alarms;
    if (entry == nullptr || entry->limit_count < 1) {
        return 0;
    }
    if (is_decided_at_the_end(*entry)) {
        context->alarm_at = &entry->limits[0];
        return 0;
    }
    const int64_t start_tv = effective_start(*context, now_tv);
    const int64_t elapsed_tv = now_tv - start_tv;
    const alarm_limit* end = entry->limits + entry->limit_count;
    const alarm_limit* next = std::find_if(entry->limits, end, [elapsed_tv](const alarm_limit& limit) {
        return limit.threshold_tv > elapsed_tv;
    });
    if (next != end) {
        context->alarm_at = next;
        int64_t next_tv = 0; // a threshold of centuries: never
        return __builtin_add_overflow(start_tv, next->threshold_tv, &next_tv) ? 0 : next_tv;
    }
    const alarm_limit& last = end[-1];
    context->alarm_at = &last;
    return recurs(last) ? start_tv + (elapsed_tv + last.threshold_tv) / last.threshold_tv * last.threshold_tv
                        : 0;
}

void write_alarm(log_context* context, const alarm_limit* limit, const ended_call* ended, int64_t elapsed_tv,
                 int64_t now_tv)
{
    if ((limit->flags & alarm_raised) == 0) {
        return;
    }
    alarm_record* alarm = perf_create_alarm_object(recorded_levels(*context, *limit));
    if (alarm == nullptr) {
        err_print("write_alarm : failed creating alarm\n");
        return;
    }
    alarm->limit = limit;
    alarm->alarm_tv = now_tv;
    alarm->type = ended != nullptr ? alarm_type::final : alarm_type::interim;
    alarm->elapsed_tv = elapsed_tv;
    fill_alarm(*alarm, *context, ended);
    hand_over(*context, alarm);
}

void ostrum::raise_interim_alarm_when_due(log_context& context, int64_t now_tv)
{
    const bool due = context.next_alarm_tv > 0 && context.next_alarm_tv <= now_tv;
    if (!due || context.depth < 0 || context.alarm_at == nullptr) {
        return;
    }
    const int64_t elapsed_tv = now_tv - effective_start(context, now_tv);
    write_alarm(&context, context.alarm_at, nullptr, elapsed_tv, now_tv);
    context.next_alarm_tv = alarm_bucket_get_next_time(&context, now_tv);
}

void ostrum::raise_final_alarm(log_context& context, const ended_call& ended, int64_t elapsed_tv,
                               int64_t now_tv)
{
    const alarm_limit* limit = context.alarm_at;
    if (limit == nullptr || context.frames[0].start_tv <= 0) { // nothing was measured
        return;
    }
    if (limit->threshold_tv >= elapsed_tv) { // not passed: the one before it was
        limit = limit->index > 0 && context.alarms != nullptr ? &context.alarms->limits[limit->index - 1]
                                                              : nullptr;
    }
    if (limit != nullptr) {
        write_alarm(&context, limit, &ended, elapsed_tv, now_tv);
    }
}
