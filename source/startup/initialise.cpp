#include "startup/initialise.h"

#include <csignal>

#include "config/lookup.h"
#include "config/settings.h"
#include "host_access/bindings.h"
#include "os/os_calls.h"
#include "process_state/process_state.h"
#include "process_state/signals.h"
#include "startup/build_info.h"
#include "startup/startup_steps.h"
#include "util/diagnostics.h"
#include "util/errno_keeper.h"
#include "util/local_time.h"

using namespace ostrum;

namespace {

constinit pthread_once_t one_time_guard = PTHREAD_ONCE_INIT;

// A host service, or a signal handler, that comes back here on the thread that runs the initialisation
// must not wait for the guard, which this thread itself holds.
constinit thread_local volatile sig_atomic_t thread_is_initialising [[gnu::tls_model("initial-exec")]] = 0;

void run_once_guarded()
{
    const library_scope scope; // hooks meanwhile only return their timestamp
    thread_is_initialising = 1;
    pthread_once(&one_time_guard, initialise_ostrum);
    thread_is_initialising = 0;
}

void print_banner(int32_t debug)
{
    // The name in the banner and its odd blanks are kept on purpose.
    constexpr char rule[] = "*****************************************************\n";
    err_print(rule);
    err_print("*         ZOR PERFORMANCE LIBRARY STARTING ...      *\n");
    err_print(rule);
    // Prefix kept: it is not this function's name.
    err_print("g_perf_common_init : version[%s]\n", __ostrum_get_version());
    err_print("g_perf_common_init : build_date[%s]\n", __ostrum_get_build_date());
    err_print("g_perf_common_init : build_platform[%s]\n", __ostrum_get_build_platform());
    err_print("g_perf_common_init : build_compiler[%s]\n", __ostrum_get_build_compiler());
    if (debug_on(debug_general)) {
        debug_print("perf_common_init : DEBUG flag[%d](%s)\n", debug, debug >= 1 ? "ON" : "OFF");
    }
}

bool store_lock_method()
{
    const int32_t method = __perfconf_int("ostrum_lock_method");
    const bool advisory = method == static_cast<int32_t>(lock_method::advisory_file_lock);
    if (!advisory && method != static_cast<int32_t>(lock_method::mapped_mutex)) {
        err_print("perf_common_init : 'ostrum_lock_method' %d invalid\n", method);
        return false;
    }
    settings_for_startup().locks = static_cast<lock_method>(method);
    if (debug_on(debug_general)) {
        debug_print("perf_common_init : lock_method[%d](%s)\n", method,
                    advisory ? "advisory locks" : "mmap mutex");
    }
    return true;
}

void report_disabled()
{
    err_print("initialise_ostrum : ostrum initialisation KO - logging disabled\n");
}

// False: the process stays without logging, and the reason has been reported.
bool start_logging()
{
    if (initialised_state() < 0) {
        report_disabled();
        return false;
    }
    if (perf_log_init() != 0) {
        err_print("initialise_ostrum : perf_log_init() failed\n"); // kept: without the KO line
        set_initialised_state(-1);
        return false;
    }
    return true;
}

} // namespace

int32_t __ostrum_init(int32_t quiet)
{
    if (initialised_state() == 0 && thread_is_initialising == 0) {
        const errno_keeper keeper;
        decide_start_mode(quiet != 0 ? start_mode::quiet : start_mode::full);
        find_host_fatal_handlers();
        run_once_guarded();
    }
    return initialised_state() < 1 ? -1 : 0;
}

void initialise_ostrum()
{
    const bool quiet = decided_start_mode() == start_mode::quiet;
    if (perf_common_init(nullptr, quiet ? 1 : 0) != 0) {
        err_print("initialise_ostrum : perf_common_init() failed\n");
        set_initialised_state(-1);
    }
    override_host_fatal_handlers();
    if (!quiet && !start_logging()) {
        return;
    }
    if (initialised_state() != 0) {
        report_disabled();
        return;
    }
    set_initialised_state(os::process_id());
    if (!quiet) {
        err_print("initialise_ostrum : ostrum initialisation OK - logging enabled\n");
    }
}

int32_t perf_common_init(const void* ignored, int32_t quiet)
{
    static_cast<void>(ignored);
    remember_main_thread();
    const int32_t debug = __perfconf_int("ostrum_debug");
    set_debug_bits(debug);
    look_up_time_zone();
    if (quiet == 0 || debug >= 1) {
        print_banner(debug);
    }
    bind_host_services();
    return store_lock_method() ? 0 : 1;
}

int32_t perf_log_init()
{
    return run_startup_steps(settings_for_startup()) ? 0 : -1;
}
