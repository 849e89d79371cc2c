#include "perf_log/flush/timed_flush.h"

#include "config/settings.h"
#include "os/os_calls.h"
#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/flush/alarm_detection.h"
#include "perf_log/flush/flush.h"
#include "perf_log/flush/inside_opcode_flush.h"
#include "perf_log/output/trace_file.h"
#include "util/diagnostics.h"

using namespace ostrum;

namespace {

constexpr int32_t contexts_per_batch = 64;

bool flush_is_due(const log_context& context, int64_t now_tv)
{
    const int64_t next_flush_tv = due_time(context.trace.next_flush_tv);
    return (next_flush_tv > 0 && next_flush_tv <= now_tv) ||
           due_time(context.trace.period.end_tv) <= now_tv || was_set_back_since_flush(context.trace, now_tv);
}

// In a new period too: what belongs to the old one must not go into the next file.
void flush_when_due(log_context& context, bool new_period, int64_t now_tv)
{
    if (!new_period && !flush_is_due(context, now_tv)) {
        return;
    }
    if (context.depth < 0) {
        if (debug_on(debug_detail)) {
            debug_print("timeout_handler_func : outside opcode - timeout\n");
        }
        flush_aggregation_tree(&context);
    } else if ((configured().auto_flush & flush_inside_ops) != 0) {
        if (debug_on(debug_detail)) {
            debug_print("timeout_handler_func : inside opcode - timeout\n");
        }
        inside_opcode_flush(&context, now_tv);
    } else {
        context.flush_requested = true;
    }
}

// The flush above has still gone into the old period's file.
void enter_period(log_context& context, const aggregation_period& period)
{
    if (debug_on(debug_detail)) {
        debug_print("timeout_handler_func : new aggr. period[%s - %s]\n", period.start_text, period.end_text);
    }
    close_trace_file(context.trace);
    context.starts_since_file_close = 0;
    adopt_period(context.trace, period);
    if (context.depth >= 0) {
        open_log_file(&context.trace);
    } else { // named by the period too; the next operation opens what it needs
        context.flist_trace = {};
        context.alarm_file.reset();
    }
}

void visit_live(log_context& context, int64_t now_tv)
{
    if (debug_on(debug_detail)) {
        debug_print("timeout_handler_func : processing lip[%p]/pid[%d]/key[%d]\n",
                    static_cast<void*>(&context), context.trace.pid, context.trace.key);
    }
    raise_interim_alarm_when_due(context, now_tv);
    const aggregation_period period = present_period(now_tv);
    const bool new_period = period.start_s != context.trace.period.start_s;
    flush_when_due(context, new_period, now_tv);
    if (new_period) {
        enter_period(context, period);
    }
}

// False: the context was released, and nothing of this visit concerns it.
bool visit(log_context& context)
{
    const int64_t now_tv = os::realtime_ns(); // a walk over many contexts may take its time
    if (!try_acquire(context.lock)) {
        if (flush_is_due(context, now_tv)) {
            context.flush_requested = true;
        }
        return true;
    }
    const bool live = !context.released;
    if (live) {
        visit_live(context, now_tv);
    }
    release(context.lock);
    return live;
}

void visit_keyed_contexts()
{
    const uint64_t this_visit = begin_visit();
    log_context* batch[contexts_per_batch];
    int32_t count = contexts_per_batch;
    while (count == contexts_per_batch) {
        count = pin_unvisited(batch, contexts_per_batch, this_visit);
        for (int32_t i = 0; i < count; ++i) {
            visit(*batch[i]);
            unpin(batch[i]);
        }
    }
}

} // namespace

void timeout_handler_func(const char* caller)
{
    if (debug_on(debug_detail)) {
        debug_print("timeout_handler_func : caller[%s]\n", caller);
    }
    log_context* own = thread_slot();
    if (own != nullptr && visit(*own)) {
        return;
    }
    if (debug_on(debug_detail)) {
        debug_print("timeout_handler_func : failed locating lip from key[%p] - assume key used\n",
                    shown_context_key());
    }
    visit_keyed_contexts();
}

void set_alarm_timer(void)
{}

void unset_alarm_timer(void)
{}

void timeout_handler(int /*signal_number*/)
{}

// Generous on purpose, and not normalised: callers expect a second more than the rest, and up to a whole
// second in the microseconds.
timeval* __ostrum_get_time_to_period_end(void* context, timeval* left)
{
    timeval now{};
    if (context == nullptr || left == nullptr || !os::wall_clock(now)) {
        return nullptr;
    }
    const int64_t end_s = due_time(static_cast<log_context*>(context)->trace.period.end_s);
    *left = {};
    if (now.tv_sec < end_s) {
        left->tv_sec = end_s + 1 - now.tv_sec;
        left->tv_usec = 1'000'000 - now.tv_usec;
    }
    return left;
}
