#ifndef OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
#define OSTRUM_TESTS_ROBUSTNESS_FAULT_SHIM_H
// What the script host and the preloaded shim agree on.

enum fault_result : int {
    fault_short = -1,   // half of a write or a read is done
    fault_nothing = -2, // it does nothing and returns 0
    fault_late = -3     // it is done, 20 ms later
};

constexpr int fault_report_fd = 900; // a copy of the host's standard output

extern "C" {
// From now on the Nth call (1 = the next) of that name from the library fails: with errno `error`, or as
// fault_result says. nth 0: none. At exit the shim prints "fault_hits=N" and "blocks=N".
void shim_fault(const char* call, long nth, int error, int from_then_on);
}
#endif
