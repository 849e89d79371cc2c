#ifndef OSTRUM_PROCESS_STATE_SIGNALS_H
#define OSTRUM_PROCESS_STATE_SIGNALS_H
#include <cstdint>

extern "C" {
// Installs the handler with SA_RESTART and with SIGTERM, SIGINT and SIGCHLD blocked while it runs.
// Returns 0, or sigaction's result after one diagnostic line.
int32_t __set_signal_handler(int32_t signal_number, void (*handler)(int));

// Handler of SIGSEGV and SIGBUS: notes the signal, then calls the host's own handler of it, or ends the
// process with exit status 1 where there is none.
void __ostrum_fatal_sig_handler(int32_t signal_number);

// Empty in this build: no signal-safe callback exists.
void __ostrum_sig_safe_set_callback(void (*callback)(const char* caller));
void __ostrum_sig_safe_exec_callback(const char* caller);
}

namespace ostrum {

bool fatal_signal_received(); // read by the exit handler, which then flushes nothing

// Looks up the host's "sigsegv_handler" and "sigbus_handler" in the whole process. This takes the dynamic
// loader's lock, which a thread may hold that waits for start-up: a plug-in that calls a hook while it is
// loaded. So it comes before the one-time guard.
void find_host_fatal_handlers();
// Puts the library's handler in front of each that was found.
void override_host_fatal_handlers();

} // namespace ostrum
#endif
