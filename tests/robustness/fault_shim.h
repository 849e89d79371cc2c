#ifndef OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
#define OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
// What the script host and the preloaded shim agree on.

enum fault_result : int {
    fault_short = -1,   // half of a write or a read is done
    fault_nothing = -2, // it does nothing and returns 0
    fault_late = -3,    // it is done, 20 ms later
    fault_kill = -4,    // SIGKILL to the process, before it is done; a write is done by half
    fault_cancel = -5,  // the thread is cancelled
    fault_hold = -100   // as fault_late; a result of -100 - N is N ms
};

constexpr int fault_report_fd = 900; // a copy of the host's standard output

// Beside the names of calls there are those of the data file's locks, of the mutex method: "locked_LOCK" as
// soon as the library has it, "unlocking_LOCK" before it gives it back. LOCK is trace, alarm, tables,
// contexts, metrics, counter or variable.
//
// At exit the shim prints "fault_hits=N", "clock_steps=N" and "blocks=N", of the library's memory.
extern "C" {
// From now on the Nth call (1 = the next) of that name from the library fails: with errno `error`, or as
// fault_result says. nth 0: none.
__attribute__((weak)) void shim_fault(const char* call, long nth, int error, int from_then_on);
__attribute__((weak)) long shim_faults_hit();
// Sets the wall clock of the whole process, host included, at once (nth 0) or when the library reads it for
// the Nth time.
__attribute__((weak)) void shim_step_clock(long nth, long by_s);
__attribute__((weak)) long shim_clock_set_by(); // off the system's, in seconds
}
#endif
