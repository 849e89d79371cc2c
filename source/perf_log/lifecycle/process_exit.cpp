#include "perf_log/lifecycle/process_exit.h"

#include <algorithm>

#include "os/os_calls.h"
#include "perf_log/context/context_list.h"
#include "perf_log/flush/async_flusher.h"
#include "perf_log/lifecycle/context_release.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"
#include "util/signal_safe_scope.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

constexpr int64_t exit_wait_tv = tv_per_s; // for all contexts together
constexpr int64_t release_look_tv = tv_per_ms;

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
    while (releases_in_progress()) {
        if (left_until(deadline_tv) == 0) {
            err_print("release_at_process_exit : loginfo is being released - unflushed data will be lost\n");
            return;
        }
        os::sleep_ns(release_look_tv);
    }
}

} // namespace

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
