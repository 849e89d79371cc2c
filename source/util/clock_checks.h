#ifndef OSTRUM_UTIL_CLOCK_CHECKS_H
#define OSTRUM_UTIL_CLOCK_CHECKS_H
// Times are those of the wall clock, which may be set at any moment. What happens "not before" one of them
// must not wait for an hour because the clock was set back by an hour.
#include <cstdint>

#include "os/os_calls.h"
#include "util/time_value.h"

namespace ostrum {

// Whether the clock was set back since next_tv was set to an interval ahead. Threads that wait for one
// another come with times that are a little older than the last one's.
inline bool was_set_back(int64_t now_tv, int64_t next_tv, int64_t interval_tv)
{
    constexpr int64_t grace_tv = tv_per_s;
    return next_tv - now_tv - grace_tv > interval_tv;
}

// Whether something that is done at most once an interval, and next after next_tv, is due.
inline bool is_due_by_clock(int64_t now_tv, int64_t next_tv, int64_t interval_tv)
{
    return next_tv < now_tv || was_set_back(now_tv, next_tv, interval_tv);
}

// Never below 0.
inline int64_t elapsed_since(int64_t begun_tv)
{
    const int64_t now_tv = os::realtime_ns();
    return now_tv > begun_tv ? now_tv - begun_tv : 0;
}

} // namespace ostrum
#endif
