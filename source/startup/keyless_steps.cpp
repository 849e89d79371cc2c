#include "startup/keyless_steps.h"

#include <cerrno>
#include <cstring>

#include "data_file/data_file.h"
#include "os/os_calls.h"
#include "perf_log/context/context_list.h"
#include "perf_log/context/context_lock.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/flush/timed_flush.h"
#include "perf_log/lifecycle/context_release.h"
#include "perf_log/lifecycle/fork_child.h"
#include "perf_log/lifecycle/process_exit.h"
#include "process_state/signals.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

// A child that was forked in the midst of start-up goes through it a second time, with the handlers that
// were registered before the fork still there.
struct registered_handlers {
    bool at_fork = false;
    bool at_exit = false;
};
constinit registered_handlers registered;

int32_t register_fork_handler()
{
    if (registered.at_fork) {
        return 0;
    }
    const int32_t error = os::at_fork_in_child(clean_child_atfork);
    registered.at_fork = error == 0;
    return error;
}

bool register_at_exit()
{
    registered.at_exit = registered.at_exit || os::at_exit(release_at_process_exit) == 0;
    return registered.at_exit;
}

} // namespace

bool announce_logging(const startup_step&, settings&)
{
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : initialising logging...\n");
    }
    return true;
}

bool hand_over_timed_flush(const startup_step&, settings&)
{
    __ostrum_sig_safe_set_callback(timeout_handler_func);
    return true;
}

bool create_context_slots(const startup_step&, settings&)
{
    int32_t error = create_context_key(release_at_thread_exit);
    if (error != 0) {
        err_print("perf_log_init : failed creating TLS key - errno[%d](%s)\n", error, strerror(error));
        return false;
    }
    // Without it a child would write its parent's figures a second time.
    error = register_fork_handler();
    if (error != 0) {
        err_print("perf_log_init : failed registering 'atfork' - errno[%d](%s)\n", error, strerror(error));
        return false;
    }
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : TLS key[%#x] destroy func[%#x][%s]\n", context_key(),
                    low_address_bits(reinterpret_cast<const void*>(&release_at_thread_exit)),
                    "release_at_thread_exit");
    }
    return true;
}

bool open_data_file(const startup_step&, settings& out)
{
    const uint32_t flags =
        DATA_FILE_INIT_LOCKS | DATA_FILE_SET_PID | (out.data_file_reset ? DATA_FILE_RESET : 0U);
    rt_info* handle = __perf_data_file_open(out.data_file_name, flags);
    if (handle == nullptr) {
        err_print("perf_log_init : failed opening data_file[%s]\n", out.data_file_name);
        return false;
    }
    set_data_file_handle(handle); // for the life of the process
    if (debug_on(debug_general)) {
        debug_print("perf_log_init : data_file[%s] opened/created\n", out.data_file_name);
    }
    return true;
}

bool prepare_context_list(const startup_step&, settings&)
{
    initialise_context_list();
    prepare_owned_locks();
    return true;
}

bool register_exit_handler(const startup_step&, settings&)
{
    if (!register_at_exit()) {
        err_print("perf_log_init : failed registering 'atexit' - some final\n");
        err_print(" data may not be flushed!\n");
    } else if (debug_on(debug_general)) {
        debug_print("perf_log_init : registered[release_at_process_exit]\n");
    }
    return true;
}

} // namespace ostrum
