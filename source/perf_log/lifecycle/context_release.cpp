#include "perf_log/lifecycle/context_release.h"

#include <algorithm>
#include <atomic>

#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/flush/flush.h"
#include "process_state/process_state.h"
#include "util/diagnostics.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

// A hook in progress keeps its context for as long as one write may take; a thread that was cancelled or
// stopped inside one keeps it for ever.
constexpr int64_t release_wait_tv = 10 * tv_per_s;

// Counted from before the context leaves the list, so that exit, which finds it there no more, sees it here.
constinit std::atomic<int32_t> release_count{0};

class counted_release {
public:
    counted_release() { ++release_count; }
    ~counted_release() { --release_count; }
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

} // namespace

void ostrum::release_within(log_context* context, int64_t limit_tv)
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

void release_loginfo(log_context* context)
{
    release_within(context, release_wait_tv);
}

bool ostrum::releases_in_progress()
{
    return release_count > 0;
}

void ostrum::forget_releases_after_fork()
{
    release_count = 0;
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
