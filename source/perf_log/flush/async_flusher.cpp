#include "perf_log/flush/async_flusher.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "os/os_calls.h"
#include "os/signal_set.h"
#include "perf_log/alarms/alarm_file.h"
#include "perf_log/output/trace_file.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

// Which process the flusher belongs to, and which thread it is.
constinit std::atomic<int32_t> g_flush_pid{0};
constinit std::atomic<uint64_t> g_flush_tid{0};
constinit std::atomic<int32_t> thread_created_in{0}; // process id

void note_flusher(uint64_t tid)
{
    g_flush_pid = os::process_id();
    g_flush_tid = tid;
}

// False in a child that was made behind the fork handler's back: it has no such thread to wait for.
bool is_other_thread_of_this_process()
{
    return g_flush_pid == os::process_id() && g_flush_tid != thread_id();
}

// The host's handlers of these run in its own threads.
void block_host_signals()
{
    const sigset_t set = os::signal_set({SIGALRM, SIGTERM, SIGINT, SIGUSR1, SIGUSR2, SIGCHLD});
    os::signal_mask(SIG_BLOCK, &set, nullptr);
}

constexpr int64_t hurry_limit_tv = tv_per_s;

bool is_empty(const queued_work& work)
{
    return work.trees == nullptr && work.alarms == nullptr;
}

void wait_for_work(flush_record& record)
{
    while (is_empty(record) && record.terminate == 0) {
        if (debug_on(debug_general)) {
            debug_print("perf_async_flusher : no work and no request to terminate - wait for status "
                        "change\n");
        }
        pthread_cond_wait(&record.condition, &record.mutex);
    }
}

// Empty: the thread is to end.
queued_work take_work(flush_record& record)
{
    const flush_record_guard guard(record);
    wait_for_work(record);
    if (debug_on(debug_general)) {
        debug_print("perf_async_flusher : num_agg_trees[%d](%p) num_alarms[%d](%p) terminating[%d]\n",
                    record.tree_count, static_cast<void*>(record.trees), record.alarm_count,
                    static_cast<void*>(record.alarms), static_cast<int>(record.terminate));
    }
    return std::exchange<queued_work>(record, {});
}

void write_alarms(const queued_work& work)
{
    if (debug_on(debug_general)) {
        debug_print("perf_async_flusher : alarm list[%p](%d alarms to flush)\n",
                    static_cast<void*>(work.alarms), work.alarm_count);
    }
    alarm_record* alarm = work.alarms;
    while (alarm != nullptr) {
        alarm_record* next = alarm->next;
        if (!fatal_signal_received()) {
            perf_async_debug_alarm(alarm);
            perf_alarm_persist(nullptr, alarm, 1);
        }
        release_alarm(alarm);
        alarm = next;
    }
}

// Where the file cannot be opened again, the tree is written as one without a file is.
void write_tree(queued_tree& queued)
{
    if (queued.reopens_file && queued.source.new_node_count > 0) {
        open_log_file(&queued.source);
    }
    flush_aggregation_tree_to_file(&queued.source, queued.source.tree);
}

void write_trees(const queued_work& work)
{
    if (debug_on(debug_general)) {
        debug_print("perf_async_flusher : tree list[%p](%d trees to flush)\n", static_cast<void*>(work.trees),
                    work.tree_count);
    }
    queued_tree* queued = work.trees;
    while (queued != nullptr) {
        queued_tree* next = queued->next;
        if (!fatal_signal_received()) { // a damaged process writes nothing more
            write_tree(*queued);
        }
        release_queued_tree(queued);
        queued = next;
    }
}

} // namespace

void hurry_flushing_thread(flush_record& record)
{
    if (!has_flushing_thread(record) || !is_other_thread_of_this_process() ||
        pthread_mutex_trylock(&record.mutex) != 0) {
        return;
    }
    record.terminate = 1;
    pthread_cond_signal(&record.condition);
    pthread_mutex_unlock(&record.mutex);
    if (os::join_thread_within(record.thread, hurry_limit_tv) == 0) {
        record.thread = 0;
    }
}

void finish_flushing_thread(flush_record& record)
{
    if (record.thread == 0 || !is_other_thread_of_this_process()) {
        return;
    }
    const bool debug = debug_on(debug_general);
    if (debug) {
        debug_print("release_at_process_exit : signal async flush thread to terminate\n");
    }
    {
        const flush_record_guard guard(record);
        record.terminate = 1;
        pthread_cond_signal(&record.condition);
    }
    if (debug) {
        debug_print("release_at_process_exit : wait for async flush to terminate\n");
    }
    os::join_thread(record.thread);
    record.thread = 0;
    if (debug) {
        debug_print("release_at_process_exit : joined async flush thread\n");
    }
}

bool has_flushing_thread(const flush_record& record)
{
    return record.thread != 0 && thread_created_in == os::process_id();
}

void restart_flushing_thread_after_fork(flush_record& record)
{
    if (has_flushing_thread(record)) {
        return; // the fork handler may be registered twice
    }
    // Another thread of the parent's may have been in the midst of a change: its lists are left alone then.
    if (pthread_mutex_trylock(&record.mutex) == 0) {
        drop_queue(record);
        pthread_mutex_unlock(&record.mutex); // given back before it is made anew
    }
    if (perf_initialise_flushing_thread(&record) == 0 && debug_on(debug_general)) {
        debug_print("clean_child_atfork : initialised async flushing for pid[%d] tid[%lu]\n", process_id(),
                    thread_id());
    }
}

void note_flusher_after_fork()
{
    note_flusher(thread_id());
}

} // namespace ostrum

using namespace ostrum;

int32_t perf_initialise_flushing_thread(flush_record* record)
{
    *record = {};
    pthread_mutex_init(&record->mutex, nullptr);
    pthread_cond_init(&record->condition, nullptr);
    pthread_t thread = 0;
    const int error = os::create_thread(thread, perf_async_flusher, record);
    if (error != 0) {
        err_print("perf_initialise_flushing_thread : pthread_create failed - errno[%d](%s)\n", error,
                  strerror(error));
        return error;
    }
    record->thread = thread;
    thread_created_in = os::process_id();
    note_flusher(thread);
    return 0;
}

void* perf_async_flusher(void* record)
{
    const library_scope scope; // a host service that calls a hook here gets its timestamp only
    note_flusher(thread_id());
    if (debug_on(debug_general)) {
        debug_print("perf_async_flusher : started flushing thread\n");
    }
    block_host_signals();
    queued_work work{};
    do {
        work = take_work(*static_cast<flush_record*>(record));
        write_alarms(work);
        write_trees(work);
    } while (!is_empty(work));
    if (debug_on(debug_general)) {
        debug_print("perf_async_flusher : flushing thread terminating\n");
    }
    return nullptr;
}
