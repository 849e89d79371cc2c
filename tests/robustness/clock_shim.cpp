// The wall clock of the host can be set, at once or when the library reads it for the Nth time. The monotonic
// clock and the system's own waits go on as they are.
#include <atomic>
#include <cstdio>
#include <ctime>

#include <dlfcn.h>
#include <sys/time.h>

#include "robustness/clock_shim.h"
#include "robustness/fault_shim.h"

namespace {

std::atomic<long> set_by_s{0};
std::atomic<long> readings_left{0}; // until the step; 0: none is to come
std::atomic<long> step_s{0};
std::atomic<long> steps_made{0};

// For one reading.
time_t set_by(const void* caller)
{
    if (readings_left > 0 && is_call_of_library(caller) && --readings_left == 0) {
        set_by_s += step_s;
        ++steps_made;
    }
    return set_by_s;
}

__attribute__((destructor)) void report_at_exit()
{
    dprintf(fault_report_fd, "clock_steps=%ld\n", steps_made.load());
}

} // namespace

#define CALLER __builtin_return_address(0)
#define NEXT(name) reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

#pragma GCC visibility push(default)
extern "C" {

void shim_set_clock(long by_s)
{
    set_by_s = by_s;
}

long shim_clock_set_by()
{
    return set_by_s;
}

void shim_step_clock(long nth, long by_s)
{
    step_s = by_s;
    readings_left = nth;
}

int clock_gettime(clockid_t clock, timespec* now)
{
    static const auto next = NEXT(clock_gettime);
    const int result = strike_call("clock_gettime", CALLER) != 0 ? -1 : next(clock, now);
    if (result == 0 && clock == CLOCK_REALTIME) {
        now->tv_sec += set_by(CALLER);
    }
    return result;
}

int gettimeofday(timeval* now, void* zone)
{
    static const auto next = NEXT(gettimeofday);
    const int result = strike_call("gettimeofday", CALLER) != 0 ? -1 : next(now, zone);
    if (result == 0) {
        now->tv_sec += set_by(CALLER);
    }
    return result;
}

time_t time(time_t* out)
{
    static const auto next = NEXT(time);
    const time_t now = next(nullptr) + set_by(CALLER);
    if (out != nullptr) {
        *out = now;
    }
    return now;
}
}
#pragma GCC visibility pop
