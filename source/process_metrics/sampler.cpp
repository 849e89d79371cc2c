#include "process_metrics/sampler.h"

#include <atomic>
#include <csignal>

#include "config/settings.h"
#include "data_file/locks.h"
#include "os/os_calls.h"
#include "process_metrics/metrics_area.h"
#include "process_metrics/proc_info.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "util/clock_checks.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/signal_safe_scope.h"
#include "util/time_value.h"

namespace ostrum {

namespace {

// Static, because a handler may run on a stack that is smaller than one sample.
struct sampler_state {
    std::atomic<bool> busy{false};   // one thread at a time; nobody waits for it
    proc_info samples[2]{};          // this one and the last one
    size_t current = 0;              // g_this_pi; the other is g_last_pi
    int64_t g_proc_data_next_tv = 0; // ns, before which no sample is taken
};
constinit sampler_state the_sampler;

bool collects()
{
    return (configured().process_data & process_data_on) != 0;
}

bool handles_signal()
{
    constexpr int32_t both = process_data_on | process_data_register;
    return (configured().process_data & both) == both;
}

bool is_due(const sampler_state& sampler, int64_t now_tv)
{
    if (is_due_by_clock(now_tv, sampler.g_proc_data_next_tv, configured().status_check_tv)) {
        return true;
    }
    if (debug_on(debug_general)) {
        debug_print("ostrum_get_process_data : now_tv[%s] < next_tv[%s] - process metrics not updated\n",
                    formatted_time(now_tv, format_day_first_us).text,
                    formatted_time(sampler.g_proc_data_next_tv, format_day_first_us).text);
    }
    return false;
}

void fill_record(process_metrics_area& out, const proc_stat& difference)
{
    out.words[u_cpu_word] = static_cast<uint64_t>(difference.utime);
    out.words[s_cpu_word] = static_cast<uint64_t>(difference.stime);
    out.words[rss_bytes_word] = static_cast<uint64_t>(difference.rss);
    out.words[mem_bytes_word] = static_cast<uint64_t>(difference.vsize);
    out.words[children_word] = static_cast<uint64_t>(int64_t{difference.processes} - 1);
    out.words[threads_word] = static_cast<uint64_t>(difference.threads);
}

void take_sample(sampler_state& sampler, process_metrics_area& out)
{
    const proc_info& last = sampler.samples[sampler.current];
    sampler.current = 1 - sampler.current;
    proc_info& current = sampler.samples[sampler.current];
    get_proc_info(os::process_id(), &current);
    fill_record(out, proc_info_diff(&last, &current, 0));
}

bool sample_when_due(sampler_state& sampler, process_metrics_area& out)
{
    if (sampler.busy.exchange(true, std::memory_order_acquire)) {
        return false;
    }
    const int64_t now_tv = os::realtime_ns();
    const bool due = is_due(sampler, now_tv);
    if (due) {
        take_sample(sampler, out);
        sampler.g_proc_data_next_tv = now_tv + configured().status_check_tv;
    }
    sampler.busy.store(false, std::memory_order_release);
    return due;
}

// What the first use of a lock sets up must not be left to the handler, which may interrupt that very use.
void use_metrics_lock_once()
{
    rt_info* handle = __ostrum_get_data_file_handle();
    if (handle != nullptr && lock_slot_acquire(handle->image->locks[DATA_FILE_LOCK_METRICS], 0)) {
        lock_slot_release(handle->image->locks[DATA_FILE_LOCK_METRICS]);
    }
}

} // namespace

void install_sampler_when_asked()
{
    if (!handles_signal()) {
        return;
    }
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : installing 'ostrum_get_process_data' for signal[%d](SIGHUP)\n", SIGHUP);
    }
    use_metrics_lock_once();
    (void)__set_signal_handler(SIGHUP, ostrum_get_proc_data);
}

void renew_sampler_after_fork()
{
    the_sampler.busy.store(false, std::memory_order_relaxed);
}

} // namespace ostrum

using namespace ostrum;

void ostrum_get_process_data(process_metrics_area* out, int32_t* updated)
{
    *out = {};
    const bool sampled = collects() && sample_when_due(the_sampler, *out);
    if (updated != nullptr) {
        *updated = sampled ? 1 : 0;
    }
}

void ostrum_get_proc_data(int signal_number)
{
    const errno_keeper keeper;
    const signal_safe_scope no_locks;
    if (debug_on(debug_general)) {
        debug_print("ostrum_get_proc_data : process[%d] signal[%d]\n", os::process_id(), signal_number);
    }
    publish_cm_metrics(__ostrum_get_data_file_handle());
}
