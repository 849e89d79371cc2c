#ifndef OSTRUM_TESTS_ROBUSTNESS_CLOCK_SHIM_H
#define OSTRUM_TESTS_ROBUSTNESS_CLOCK_SHIM_H
// The part of the fault shim that sets the wall clock: of the whole process, host included. At exit it prints
// "clock_steps=N": how often shim_step_clock has set it.
extern "C" {
void shim_set_clock(long by_s);            // off the system's, in seconds
long shim_clock_set_by();                  // the same, as it now is
void shim_step_clock(long nth, long by_s); // when the library reads it for the Nth time (1 = the next)
}

// In the shim only: whether the call comes from the library, and what becomes of it (0: it is made).
bool is_call_of_library(const void* caller);
int strike_call(const char* call, const void* caller);
#endif
