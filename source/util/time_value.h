#ifndef OSTRUM_UTIL_TIME_VALUE_H
#define OSTRUM_UTIL_TIME_VALUE_H
// Units of time values, which are nanoseconds; the functions on them are in ostrum_util.h.
#include <sys/time.h>

#include "ostrum_util.h"

namespace ostrum {

inline constexpr int64_t tv_per_s = 1'000'000'000;
inline constexpr int64_t tv_per_ms = 1'000'000;
inline constexpr int64_t tv_per_us = 1'000;

inline int64_t tv_of(const timeval& time)
{
    return static_cast<int64_t>(time.tv_sec) * tv_per_s + static_cast<int64_t>(time.tv_usec) * tv_per_us;
}

// Given to ostrum_fmt_tv() in place of a time: the current one.
inline constexpr int64_t present_time_tv = -1;

// Format codes of ostrum_fmt_tv() that the library itself uses.
inline constexpr uint32_t format_seconds_ms = 3;
inline constexpr uint32_t format_seconds_us = 6;
inline constexpr uint32_t format_seconds_ns = 9;
inline constexpr uint32_t format_day_first_us = 22;
inline constexpr uint32_t format_year_first_us = 38;

// A time value as text, for one message.
struct time_text {
    char text[64];
};
inline time_text formatted_time(int64_t time_tv, uint32_t code)
{
    time_text time;
    ostrum_fmt_tv(time_tv, time.text, sizeof(time.text), code);
    return time;
}

} // namespace ostrum
#endif
