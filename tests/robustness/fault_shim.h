#ifndef OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
#define OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
// What the script host and the preloaded shim agree on.

enum fault_result : int {
    fault_short = -1,   // half of a write or a read is done
    fault_nothing = -2, // it does nothing and returns 0
    fault_late = -3,    // it is done, 20 ms later
    fault_kill = -4,    // SIGKILL to the process, before it is done; a write is done by half
    fault_hold = -100   // as fault_late; a result of -100 - N is N ms
};

constexpr int fault_report_fd = 900; // a copy of the host's standard output

// Beside the names of calls there are those of the data file's locks, of the mutex method: "locked_LOCK" as
// soon as the library has it, "unlocking_LOCK" before it gives it back. LOCK is trace, alarm, tables,
// contexts, metrics, counter or variable.
//
// A program that does not call this is armed by the variable FAULT: "CALL NTH ERROR".
extern "C" {
// From now on the Nth call (1 = the next) of that name from the library fails: with errno `error`, or as
// fault_result says. nth 0: none. At exit the shim prints "fault_hits=N" and "blocks=N".
void shim_fault(const char* call, long nth, int error, int from_then_on);
}
#endif
