#include "perf_log/flush/flush_queue.h"

#include <utility>

#include "perf_log/aggregation/agg_node.h"
#include "perf_log/output/trace_file.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

constexpr int32_t most_trees_with_file = 8;

constinit flush_record the_record{{}, PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, 0, 0};

time_text time_since(int64_t started_tv)
{
    return formatted_time(elapsed_since(started_tv), format_seconds_us);
}

// The copy keeps the old tree, the texts of its period and a share of the file.
void move_tree(trace_source& live, queued_tree& queued, bt_tree* new_tree)
{
    queued.source = live;
    queued.source.file = share_trace_file(live.file);
    live.tree = new_tree;
    ++live.tree_generation;
    live.new_node_count = 0;
    move_flush_times_on(live);
}

int32_t push(flush_record& record, queued_tree* queued)
{
    shared_trace_file* given_up = nullptr;
    int32_t length = 0;
    {
        const flush_record_guard guard(record);
        if (record.tree_count >= most_trees_with_file) {
            given_up = std::exchange(queued->source.file, nullptr);
            queued->reopens_file = given_up != nullptr;
        }
        queued->next = std::exchange(record.trees, queued);
        length = ++record.tree_count;
        pthread_cond_signal(&record.condition);
    }
    release_trace_file(given_up);
    return length;
}

int32_t push(flush_record& record, alarm_record* alarm)
{
    const flush_record_guard guard(record);
    alarm->next = std::exchange(record.alarms, alarm);
    pthread_cond_signal(&record.condition);
    return ++record.alarm_count;
}

} // namespace

flush_record& process_flush_record()
{
    return the_record;
}

void release_queued_tree(queued_tree* queued)
{
    const heap_ptr<queued_tree> own{queued};
    if (queued->source.tree != nullptr && bt_destroy(queued->source.tree) != BT_EMPTIED) {
        err_print("perf_async_flush_destroy_aggr_tree : error destroying tree"); // kept: no line end
    }
    release_trace_file(queued->source.file);
}

void drop_queue(queued_work& work)
{
    while (queued_tree* queued = work.trees) {
        work.trees = queued->next;
        release_queued_tree(queued);
    }
    while (alarm_record* alarm = work.alarms) {
        work.alarms = alarm->next;
        release_alarm(alarm);
    }
    work = {};
}

} // namespace ostrum

using namespace ostrum;

int32_t perf_async_flush_add_lip(flush_record* record, trace_source* source)
{
    const int32_t node_count = source->new_node_count;
    const bool debug = debug_on(debug_general);
    const int64_t started_tv = debug ? os::realtime_ns() : 0;
    heap_ptr<queued_tree> queued = heap_zeroed<queued_tree>();
    if (!queued) {
        err_print("perf_async_flush_add_lip : out of memory\n");
        return -1;
    }
    bt_tree* new_tree = create_agg_tree();
    move_tree(*source, *queued, new_tree);
    if (new_tree == nullptr) {
        release_queued_tree(queued.release());
        err_print("perf_async_flush_add_lip : out of memory creating new tree\n");
        return -1;
    }
    const int32_t length = push(*record, queued.release());
    if (debug) {
        debug_print("perf_async_flush_add_lip : pid[%d] tid[%lu] move time[%s] node_list_length[%d]\n",
                    source->pid, source->tid, time_since(started_tv).text, length);
    }
    return node_count;
}

void perf_async_flush_add_alarm(flush_record* record, alarm_record* alarm)
{
    const bool debug = debug_on(debug_general);
    const int64_t started_tv = debug ? os::realtime_ns() : 0;
    if (debug) {
        debug_print("perf_async_flush_add_alarm : add node[%p]\n", static_cast<void*>(alarm));
    }
    const void* shown = alarm;
    const int32_t length = push(*record, alarm);
    if (debug) {
        debug_print("perf_async_flush_add_alarm : aptr[%p] move time[%s] alarm_list_length[%d]\n", shown,
                    time_since(started_tv).text, length);
    }
}
