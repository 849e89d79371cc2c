#include "process_state/signals.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "os/os_calls.h"
#include "os/signal_set.h"
#include "process_state/process_state.h"
#include "util/diagnostics.h"
#include "util/signal_safe_scope.h"

namespace ostrum {

namespace {

using signal_handler = void (*)(int);

// A signal whose handler the host may export; its own takes the library's place at the end.
struct host_handler {
    int signal_number;
    const char* symbol;
    std::atomic<signal_handler> handler; // null: the host has none
};
constinit host_handler host_handlers[] = {
    {SIGSEGV, "sigsegv_handler", {}},
    {SIGBUS, "sigbus_handler", {}},
};

constinit std::atomic<bool> g_fatal_signal_received{false};
static_assert(std::atomic<bool>::is_always_lock_free);

signal_handler host_handler_of(int32_t signal_number)
{
    for (const host_handler& host : host_handlers) {
        if (host.signal_number == signal_number) {
            return host.handler;
        }
    }
    return nullptr;
}

} // namespace

bool fatal_signal_received()
{
    return g_fatal_signal_received.load(std::memory_order_relaxed);
}

void find_host_fatal_handlers()
{
    for (host_handler& host : host_handlers) {
        host.handler.store(reinterpret_cast<signal_handler>(os::global_symbol(host.symbol)),
                           std::memory_order_relaxed);
    }
}

// The prefix of its lines is kept: no function has that name.
void override_host_fatal_handlers()
{
    const bool debug = debug_on(debug_general);
    for (const host_handler& host : host_handlers) {
        if (host.handler == nullptr) {
            if (debug) {
                debug_print("perf_init_func_ptrs : no '%s' found\n", host.symbol);
            }
            continue;
        }
        if (debug) {
            debug_print("perf_init_func_ptrs : overriding '%s'\n", host.symbol);
        }
        (void)__set_signal_handler(host.signal_number, __ostrum_fatal_sig_handler);
    }
}

} // namespace ostrum

using namespace ostrum;

int32_t __set_signal_handler(int32_t signal_number, void (*handler)(int))
{
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    action.sa_mask = os::signal_set({SIGTERM, SIGINT, SIGCHLD});
    const int result = os::install_signal_action(signal_number, action);
    if (result != 0) {
        // kept on purpose: no blank before the colon here and below.
        err_print("__set_signal_handler: failed installing signal handler for sig[%d] - errno[%d](%s)\n",
                  signal_number, errno, strerror(errno));
    } else if (debug_on(debug_general)) {
        debug_print("__set_signal_handler: installed handler[%p] for sig[%d]\n",
                    reinterpret_cast<void*>(handler), signal_number);
    }
    return result;
}

void __ostrum_fatal_sig_handler(int32_t signal_number)
{
    const signal_safe_scope no_locks;
    err_print("ostrum_fatal_sig_handler : signo[%d]\n", signal_number); // prefix kept
    g_fatal_signal_received.store(true, std::memory_order_relaxed);
    end_tracing();
    if (const signal_handler handler = host_handler_of(signal_number)) {
        handler(signal_number);
        return;
    }
    os::end_process(EXIT_FAILURE); // through exit(), so that the exit handler says what is lost
}

void __ostrum_sig_safe_set_callback(void (*)(const char* caller))
{}

void __ostrum_sig_safe_exec_callback(const char*)
{}
