#include "perf_log/lifecycle/fork_child.h"

#include "config/settings.h"
#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/flush/async_flusher.h"
#include "perf_log/lifecycle/context_release.h"
#include "process_metrics/sampler.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"

using namespace ostrum;

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

void forget_inherited_contexts()
{
    const bool debug = debug_on(debug_general);
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
    if (debug_on(debug_general)) {
        debug_print("clean_child_atfork : forked child starting - pid[%d] tid[%lu]\n", process_id(),
                    thread_id());
    }
    forget_releases_after_fork();
    renew_sampler_after_fork();
    install_sampler_when_asked();
    forget_inherited_contexts();
    // A child that was forked in the midst of start-up goes through it itself.
    if (configured().async_flushing && initialised_state() != 0) {
        restart_flushing_thread_after_fork(process_flush_record());
    }
}
