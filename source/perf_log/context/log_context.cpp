#include "perf_log/context/log_context.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <new>
#include <utility>

#include "config/settings.h"
#include "host_access/flist.h"
#include "os/os_calls.h"
#include "process_state/process_state.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

struct destroy_context {
    void operator()(log_context* context) const
    {
        context->~log_context();
        os::release(context);
    }
};
using context_ptr = std::unique_ptr<log_context, destroy_context>;

context_ptr zeroed_context()
{
    void* memory = os::allocate_zeroed(sizeof(log_context));
    return context_ptr{memory != nullptr ? new (memory) log_context{} : nullptr};
}

bool create_trees(log_context& context)
{
    const trace_source& source = context.trace;
    agg_tree_ptr tree{create_agg_tree()};
    if (!tree) {
        err_print("init_log_info : pid[%d]/tid[%lu]/key[%d] - failed creating aggregation tree\n", source.pid,
                  source.tid, source.key);
        return false;
    }
    agg_tree_ptr single_tree{create_agg_tree()};
    if (!single_tree) {
        err_print("init_log_info : pid[%d]/tid[%lu]/key[%d] - failed creating single aggregation tree\n",
                  source.pid, source.tid, source.key);
        return false;
    }
    context.trace.tree = tree.release();
    context.single_tree = single_tree.release();
    return true;
}

} // namespace

log_context* init_log_info(int32_t pid, int32_t key)
{
    context_ptr context = zeroed_context();
    if (!context) {
        err_print("init_log_info : out of memory\n");
        return nullptr;
    }
    own_lock(context->lock);
    initialise_path_index(context->index);
    context->references = 1;
    context->depth = no_depth;
    context->trace.pid = pid;
    context->trace.key = key;
    context->trace.tid = key == own_thread_key ? thread_id() : 0;
    for (call_frame& frame : context->frames) {
        clear_frame(frame);
    }
    move_flush_times_on(context->trace);
    context->trace.period = present_period(os::realtime_ns());
    if (!create_trees(*context)) {
        return nullptr;
    }
    if (debug_on(debug_general)) {
        debug_print("init_log_info : initialise new entry lip[%p] pid[%d]/tid[%lu]/key[%d]\n",
                    static_cast<void*>(context.get()), pid, context->trace.tid, key);
    }
    return context.release();
}

void destroy_owned_list(call_frame& frame)
{
    if (std::exchange(frame.owns_in_flist, false)) {
        flist_destroy(static_cast<qel_flist_t*>(frame.in_flist));
    }
}

void close_files(log_context& context)
{
    close_trace_file(context.trace);
    context.flist_trace = {};
    context.alarm_file.reset();
}

shared_trace_file* share_trace_file(shared_trace_file* file)
{
    if (file != nullptr) {
        file->holders.fetch_add(1, std::memory_order_relaxed);
    }
    return file;
}

void release_trace_file(shared_trace_file*& file)
{
    shared_trace_file* mine = std::exchange(file, nullptr);
    if (mine != nullptr && mine->holders.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        os::close_file(mine->fd);
        os::release(mine);
    }
}

void close_trace_file(trace_source& source)
{
    release_trace_file(source.file);
    source.single_file = false;
}

void move_flush_times_on(trace_source& source)
{
    const int64_t now_tv = os::realtime_ns();
    source.last_flush_s = os::wall_seconds();
    set_due_time(source.next_flush_tv, now_tv - now_tv % tv_per_s + configured().flush_frequency_tv);
}

bool was_set_back_since_flush(const trace_source& source, int64_t now_tv)
{
    return was_set_back(now_tv, due_time(source.next_flush_tv), configured().flush_frequency_tv);
}

void adopt_period(trace_source& source, const aggregation_period& period)
{
    aggregation_period& mine = source.period;
    mine.start_s = period.start_s;
    set_due_time(mine.end_s, period.end_s);
    std::copy(std::begin(period.start_text), std::end(period.start_text), mine.start_text);
    std::copy(std::begin(period.end_text), std::end(period.end_text), mine.end_text);
    set_due_time(mine.end_tv, period.end_tv);
}

void unpin(log_context* context)
{
    if (context->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        destroy_context{}(context);
    }
}

} // namespace ostrum
