#ifndef OSTRUM_PERF_LOG_AGGREGATION_AGGREGATION_PERIOD_H
#define OSTRUM_PERF_LOG_AGGREGATION_AGGREGATION_PERIOD_H
#include <cstddef>
#include <cstdint>

#include "config/settings.h"

namespace ostrum {

inline constexpr size_t period_text_bytes = 16; // "20261115_131500" with its terminator

// A wall-clock interval, aligned to the clock, in which timings are aggregated.
struct aggregation_period {
    int64_t start_s; // seconds since the epoch
    char start_text[period_text_bytes];
    int64_t end_s;
    char end_text[period_text_bytes];
    int64_t end_tv; // the end on the real-time clock: ns, whole seconds
};

} // namespace ostrum

extern "C" {
// Fills the record with the period of `length` units that contains the present moment; `now_tv` is the
// real-time clock at that moment. Alignment is within the hour (minutes) or the day (hours). When
// the wall clock cannot be broken down, the texts are those of the epoch and the numbers 0.
void get_current_aggregation_period(ostrum::aggregation_period* period, int32_t length,
                                    ostrum::period_unit unit, int64_t now_tv);
}

namespace ostrum {
aggregation_period present_period(int64_t now_tv); // of the configured length
}
#endif
