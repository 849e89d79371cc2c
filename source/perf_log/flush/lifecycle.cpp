#include "perf_log/flush/lifecycle.h"

#include <algorithm>
#include <atomic>

#include "config/settings.h"
#include "os/os_calls.h"
#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/flush/async_flusher.h"
#include "perf_log/flush/flush.h"
#include "perf_log/output/trace_file.h"
#include "process_metrics/sampler.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"
#include "util/signal_safe_scope.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

// A hook in progress keeps its context for as long as one write may take; a thread that was cancelled or
// stopped inside one keeps it for ever.
constexpr int64_t release_wait_tv = 10 * tv_per_s;
constexpr int64_t exit_wait_tv = tv_per_s; // for all contexts together
constexpr int64_t release_look_tv = tv_per_ms;

// Counted from before the context leaves the list, so that exit, which finds it there no more, sees it here.
constinit std::atomic<int32_t> releases_in_progress{0};

class counted_release {
public:
    counted_release() { ++releases_in_progress; }
    ~counted_release() { --releases_in_progress; }
    counted_release(const counted_release&) = delete;
    counted_release& operator=(const counted_release&) = delete;
};

void flush_last_time(log_context& context)
{
    const trace_source& source = context.trace;
    if (!context.from_fork) {
        flush_aggregation_tree(&context);
    } else if (debug_on(debug_general)) {
        debug_print("release_loginfo : pid[%d] tid[%lu] lip[%p] - no flush required (from fork)\n",
                    source.pid, source.tid, static_cast<void*>(&context));
    }
}

void destroy_trees(log_context& context)
{
    for (bt_tree** tree : {&context.trace.tree, &context.single_tree}) {
        if (*tree != nullptr && bt_destroy(*tree) != BT_EMPTIED) {
            err_print("release_loginfo : pid[%d] tid[%lu] - failed destroying tree - lip[%p]\n",
                      context.trace.pid, context.trace.tid, static_cast<void*>(&context));
        }
        *tree = nullptr;
    }
}

// The caller holds the lock. Hooks that still come upon the context find it marked and look again.
void empty_context(log_context& context)
{
    if (context.trace.tree != nullptr) {
        flush_last_time(context);
    }
    destroy_trees(context);
    ++context.trace.tree_generation;
    release_path_index(context.index);
    close_files(context);
    context.trace_opcodes = {};
    std::for_each(std::begin(context.frames), std::end(context.frames), clear_frame);
    context.depth = no_depth;
    context.released = true;
}

void release_within(log_context* context, int64_t limit_tv)
{
    if (context == nullptr) {
        if (debug_on(debug_general)) {
            debug_print("release_loginfo: NULL loginfo pointer\n");
        }
        return;
    }
    const int32_t pid = context->trace.pid;
    const uint64_t tid = context->trace.tid;
    if (debug_on(debug_general)) {
        debug_print("release_loginfo : freeing lip[%p] pid[%d] tid[%lu]\n", static_cast<void*>(context), pid,
                    tid);
    }
    if (!acquire_within(context->lock, limit_tv)) {
        err_print("release_loginfo : pid[%d] tid[%lu] lip[%p] is in use - unflushed data will be lost\n", pid,
                  tid, static_cast<void*>(context));
        return; // its memory stays with the thread that holds it
    }
    empty_context(*context);
    release(context->lock);
    if (debug_on(debug_general)) {
        debug_print("release_loginfo : cleared lip[%p] pid[%d] tid[%lu]\n", static_cast<void*>(context), pid,
                    tid);
    }
    unpin(context);
}

// As lip_list_del has it: that very context or, with null, the first of (pid, key).
bool unlink_and_release(log_context* context, int32_t pid, int32_t key)
{
    const counted_release counted;
    log_context* listed = lip_list_del(context, pid, key);
    if (listed != nullptr) {
        release_loginfo(listed);
    }
    return listed != nullptr;
}

// Heap and list may be in the midst of a step that this thread was interrupted in.
void report_loss_at_exit()
{
    const signal_safe_scope no_locks;
    if (fatal_signal_received()) {
        err_print("release_at_process_exit : fatal signal received - unflushed data will be lost\n");
    } else {
        err_print("release_at_process_exit : exit inside a hook - unflushed data will be lost\n");
    }
}

int64_t left_until(int64_t deadline_tv)
{
    return std::max<int64_t>(deadline_tv - os::monotonic_ns(), 0);
}

int32_t release_all_contexts(int64_t deadline_tv)
{
    int32_t count = 0;
    while (log_context* context = unlink_first()) {
        ++count;
        release_within(context, left_until(deadline_tv));
    }
    return count;
}

// Contexts that other threads have taken out of the list, and are about to write.
void wait_for_other_releases(int64_t deadline_tv)
{
    while (releases_in_progress > 0) {
        if (left_until(deadline_tv) == 0) {
            err_print("release_at_process_exit : loginfo is being released - unflushed data will be lost\n");
            return;
        }
        os::sleep_ns(release_look_tv);
    }
}

} // namespace

void release_loginfo(log_context* context)
{
    release_within(context, release_wait_tv);
}

bool ostrum::release_listed(log_context& context)
{
    return unlink_and_release(&context, 0, 0);
}

bool ostrum::release_listed(int32_t pid, int32_t key)
{
    return unlink_and_release(nullptr, pid, key);
}

void release_at_thread_exit(void* value)
{
    const library_scope scope;
    auto* context = static_cast<log_context*>(value);
    set_thread_slot(nullptr);
    if (debug_on(debug_general)) {
        debug_print("release_at_thread_exit : cleanup thread - lip[%p]\n", value);
    }
    if (context == nullptr || !release_listed(*context)) {
        err_print("release_at_thread_exit : lip[%p] already freed?!\n", value);
    }
    if (context != nullptr) {
        unpin(context); // the thread's own reference
    }
}

void release_at_process_exit(void)
{
    end_tracing();
    if (fatal_signal_received()) {
        report_loss_at_exit();
        return;
    }
    if (inside_library()) {
        report_loss_at_exit();
        hurry_flushing_thread(process_flush_record());
        return;
    }
    const library_scope scope;
    if (!close_context_list()) {
        report_loss_at_exit();
        return;
    }
    const bool debug = debug_on(debug_general);
    if (debug) {
        debug_print("release_at_process_exit : cleanup main process\n");
        lip_list_print();
    }
    const int64_t deadline_tv = os::monotonic_ns() + exit_wait_tv;
    const int32_t released = release_all_contexts(deadline_tv);
    wait_for_other_releases(deadline_tv);
    if (debug && released > 0) {
        debug_print("release_at_process_exit : %d loginfo structures freed\n", released);
    } else if (debug) {
        debug_print("release_at_process_exit : no loginfo structures found\n");
    }
    finish_flushing_thread(process_flush_record());
}

namespace {

// The data belong to the parent. A context that was locked at the fork - by a thread that does not exist
// here, or by the hook that this very thread is in - is left as it is, but never written.
void discard_inherited(log_context* context)
{
    context->from_fork = true;
    if (is_held(context->lock)) {
        context->released = true;
        return;
    }
    if (!context->released) {
        release_loginfo(context);
    }
    unpin(context); // the slot's reference
}

void forget_inherited_contexts(bool debug)
{
    log_context* inherited = thread_slot();
    if (debug) {
        debug_print("clean_child_atfork : g_log_info_key[%p] lip[%p]\n", shown_context_key(),
                    static_cast<void*>(inherited));
    }
    empty_list_after_fork();
    forget_thread_slots_after_fork();
    if (inherited == nullptr) {
        if (debug) {
            debug_print("clean_child_atfork : no loginfo structure to cleanup\n");
        }
        return;
    }
    if (debug) {
        debug_print("clean_child_atfork : calling release_loginfo ...\n");
    }
    discard_inherited(inherited);
    if (debug) {
        debug_print("clean_child_atfork : cleaned-up old loginfo ...\n");
    }
}

} // namespace

void clean_child_atfork(void)
{
    renew_identity_after_fork();
    leave_library_after_fork();
    if (!fatal_signal_received()) {
        resume_tracing_after_fork();
    }
    note_flusher_after_fork();
    const library_scope scope;
    const bool debug = debug_on(debug_general);
    if (debug) {
        debug_print("clean_child_atfork : forked child starting - pid[%d] tid[%lu]\n", process_id(),
                    thread_id());
    }
    releases_in_progress = 0; // of threads that do not exist here
    renew_sampler_after_fork();
    install_sampler_when_asked();
    forget_inherited_contexts(debug);
    // A child that was forked in the midst of start-up goes through it itself.
    if (configured().async_flushing && initialised_state() != 0) {
        restart_flushing_thread_after_fork(process_flush_record());
    }
}
