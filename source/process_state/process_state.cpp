#include "process_state/process_state.h"

#include "os/os_calls.h"

namespace ostrum {

constinit process_record this_process{};
constinit thread_local volatile sig_atomic_t thread_is_inside = 0;

void set_initialised_state(int32_t state)
{
    this_process.initialised.store(state, std::memory_order_release);
}

void decide_start_mode(start_mode wanted)
{
    start_mode undecided = start_mode::undecided;
    this_process.mode.compare_exchange_strong(undecided, wanted);
}

int32_t ask_process_id()
{
    return os::process_id();
}

uint64_t thread_id()
{
    return pthread_self();
}

void remember_main_thread()
{
    // Another one is remembered in a child that was forked while its parent was starting up.
    if (this_process.process_id.load(std::memory_order_acquire) != os::process_id()) {
        renew_identity_after_fork();
    }
}

void renew_identity_after_fork()
{
    this_process.timeout_nesting = 0; // what the parent was inside of means nothing here
    this_process.main_thread.store(thread_mark(), std::memory_order_relaxed);
    this_process.process_id.store(os::process_id(), std::memory_order_release);
}

void leave_library_after_fork()
{
    thread_is_inside = 0;
}

} // namespace ostrum
