#include "perf_log/aggregation/aggregation_period.h"

#include <cstdio>

#include "os/os_calls.h"
#include "util/diagnostics.h"

using ostrum::aggregation_period;
using ostrum::ns_per_second;
using ostrum::period_unit;

namespace {

// False when the text does not fit, which only years beyond 9999 can bring about.
bool period_text(char (&out)[16], const tm& fields)
{
    const int length =
        snprintf(out, sizeof(out), "%04d%02d%02d_%02d%02d%02d", fields.tm_year + 1900, fields.tm_mon + 1,
                 fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
    return length < static_cast<int>(sizeof(out));
}

void align_to_start(tm& fields, int32_t length, period_unit unit)
{
    if (unit == period_unit::hours) {
        fields.tm_hour = fields.tm_hour / length * length;
        fields.tm_min = 0;
    } else {
        fields.tm_min = fields.tm_min / length * length;
    }
    fields.tm_sec = 0;
}

void advance_to_end(tm& fields, int32_t length, period_unit unit)
{
    (unit == period_unit::hours ? fields.tm_hour : fields.tm_min) += length;
}

} // namespace

void get_current_aggregation_period(aggregation_period* period, int32_t length, period_unit unit,
                                    int64_t now_tv)
{
    *period = {0, "19700101_000000", 0, "19700101_000000", 0};
    const time_t now_s = ostrum::os::wall_seconds();
    tm fields{};
    if (!ostrum::os::local_time(now_s, fields)) {
        return;
    }
    align_to_start(fields, length, unit);
    // The start text shows the aligned fields as they are, the end text those that the conversion
    // normalised. Each conversion works on its own copy, with the daylight-saving flag as read.
    if (!period_text(period->start_text, fields)) {
        err_print("get_current_aggregation_period : ap.from_s overflow\n");
    }
    tm end_fields = fields;
    period->start_s = ostrum::os::calendar_seconds(fields);
    advance_to_end(end_fields, length, unit);
    period->end_s = ostrum::os::calendar_seconds(end_fields);
    if (!period_text(period->end_text, end_fields)) {
        err_print("get_current_aggregation_period : ap.to_s overflow\n");
    }
    const int64_t end_tv = (period->end_s - now_s) * ns_per_second + now_tv;
    period->end_tv = end_tv - end_tv % ns_per_second;
}
