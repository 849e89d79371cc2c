#include "perf_log/aggregation/aggregation_period.h"

#include <cstdio>

#include "os/os_calls.h"
#include "util/diagnostics.h"
#include "util/local_time.h"
#include "util/time_value.h"

using ostrum::aggregation_period;
using ostrum::period_unit;
using ostrum::tv_per_s;

namespace {

constexpr int64_t seconds_per_minute = 60;
constexpr int64_t seconds_per_hour = 3'600;

// False when the text does not fit, which only years beyond 9999 can bring about.
bool period_text(char (&out)[16], const tm& fields)
{
    const int length =
        snprintf(out, sizeof(out), "%04d%02d%02d_%02d%02d%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                 fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return length < static_cast<int>(sizeof(out));
}

// Sets the fields to the start of their period. Returns how many seconds that is back by the same clock.
int64_t align_to_start(tm& fields, int32_t length, period_unit unit)
{
    const int32_t hour = fields.tm_hour;
    const int32_t minute = fields.tm_min;
    const int32_t second = fields.tm_sec;
    if (unit == period_unit::hours) {
        fields.tm_hour = hour / length * length;
        fields.tm_min = 0;
    } else {
        fields.tm_min = minute / length * length;
    }
    fields.tm_sec = 0;
    return (hour - fields.tm_hour) * seconds_per_hour + (minute - fields.tm_min) * seconds_per_minute +
           second;
}

int64_t seconds_of(int32_t length, period_unit unit)
{
    return length * (unit == period_unit::hours ? seconds_per_hour : seconds_per_minute);
}

} // namespace

void get_current_aggregation_period(aggregation_period* period, int32_t length, period_unit unit,
                                    int64_t now_tv)
{
    *period = {0, "19700101_000000", 0, "19700101_000000", 0};
    const time_t now_s = ostrum::os::wall_seconds();
    tm fields{};
    if (!ostrum::local_fields(now_s, fields)) {
        return;
    }
    // Start and end are reckoned with the offset from UTC of now. Where that changes within the period, the
    // start text shows the aligned fields as they are, the end text the local time that it then is.
    period->start_s = now_s - align_to_start(fields, length, unit);
    if (!period_text(period->start_text, fields)) {
        err_print("get_current_aggregation_period : ap.from_s overflow\n");
    }
    period->end_s = period->start_s + seconds_of(length, unit);
    if (!ostrum::local_fields(period->end_s, fields) || !period_text(period->end_text, fields)) {
        err_print("get_current_aggregation_period : ap.to_s overflow\n");
    }
    const int64_t end_tv = (period->end_s - now_s) * tv_per_s + now_tv;
    period->end_tv = end_tv - end_tv % tv_per_s;
}

aggregation_period ostrum::present_period(int64_t now_tv)
{
    aggregation_period period;
    get_current_aggregation_period(&period, configured().aggregation_period, configured().aggregation_unit,
                                   now_tv);
    return period;
}
