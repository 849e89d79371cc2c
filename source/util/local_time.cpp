#include "util/local_time.h"

#include <algorithm>
#include <atomic>

#include "os/os_calls.h"
#include "util/signal_safe_scope.h"

namespace ostrum {

namespace {

constexpr int64_t minute_s = 60;
constexpr int64_t day_s = 86'400;
constexpr int64_t years_ahead_s = day_s * 366 * 5;
constexpr int64_t step_s = 14 * day_s; // no zone changes back and forth within less
constexpr size_t most_spans = 24;

struct zone_span {
    int64_t begin_s;  // since the epoch
    int64_t offset_s; // local time less UTC
};

// Written once, before `count` is; read without a lock.
struct zone_table {
    std::atomic<size_t> count{0};         // 0: not looked up
    std::atomic<size_t> found{0};         // spans while it is looked up
    std::atomic<int32_t> looked_up_by{0}; // process id meanwhile
    zone_span spans[most_spans]{};
    int64_t end_s = 0; // nothing is known from here on
};
constinit zone_table the_zone;

// Days are counted in eras of 400 years that begin in March, so that a leap day is the last of its year.
void calendar_fields(int64_t local_s, tm& fields)
{
    constexpr int64_t days_to_1970 = 719'468; // from 1 March of the year 0
    constexpr int64_t days_of_era = 146'097;
    const int64_t of_day_s = (local_s % day_s + day_s) % day_s; // seconds before 1970 too
    const int64_t days = (local_s - of_day_s) / day_s + days_to_1970;
    const int64_t day_of_era = days % days_of_era;
    const int64_t year_of_era =
        (day_of_era - day_of_era / 1'460 + day_of_era / 36'524 - day_of_era / 146'096) / 365;
    const int64_t day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    const int64_t month_from_march = (5 * day_of_year + 2) / 153;
    const bool next_year = month_from_march >= 10;
    fields = {};
    fields.tm_year = static_cast<int>(days / days_of_era * 400 + year_of_era + (next_year ? 1 : 0) - 1900);
    fields.tm_mon = static_cast<int>(month_from_march + (next_year ? -10 : 2));
    fields.tm_mday = static_cast<int>(day_of_year - (153 * month_from_march + 2) / 5 + 1);
    fields.tm_hour = static_cast<int>(of_day_s / 3'600);
    fields.tm_min = static_cast<int>(of_day_s / 60 % 60);
    fields.tm_sec = static_cast<int>(of_day_s % 60);
}

// The span that the moment lies in; null outside the table.
const zone_span* find_span(int64_t seconds)
{
    const size_t count = the_zone.count.load(std::memory_order_acquire);
    if (count == 0 || seconds < the_zone.spans[0].begin_s || seconds >= the_zone.end_s) {
        return nullptr;
    }
    const zone_span* first = the_zone.spans;
    const zone_span* next =
        std::upper_bound(first, first + count, seconds,
                         [](int64_t moment, const zone_span& span) { return moment < span.begin_s; });
    return next - 1;
}

bool ask_offset(int64_t seconds, int64_t& offset_s)
{
    tm fields{};
    const bool known = os::local_time(seconds, fields);
    offset_s = fields.tm_gmtoff;
    return known;
}

// The minute, after `before_s` and not after `after_s`, at which the offset becomes another one.
int64_t find_change(int64_t before_s, int64_t after_s, int64_t old_offset_s)
{
    while (after_s - before_s > minute_s) {
        const int64_t middle_s = before_s + (after_s - before_s) / (2 * minute_s) * minute_s;
        int64_t offset_s = 0;
        if (!ask_offset(middle_s, offset_s) || offset_s != old_offset_s) {
            after_s = middle_s;
        } else {
            before_s = middle_s;
        }
    }
    return after_s;
}

void add_span(const zone_span& span)
{
    const size_t found = the_zone.found.load(std::memory_order_relaxed);
    the_zone.spans[found] = span;
    the_zone.found.store(found + 1, std::memory_order_release);
}

void look_up_spans(int64_t begin_s)
{
    zone_span span{begin_s, 0};
    if (!ask_offset(begin_s, span.offset_s)) {
        return;
    }
    the_zone.found = 0;
    add_span(span);
    int64_t at_s = begin_s;
    while (at_s < begin_s + years_ahead_s && the_zone.found < most_spans) {
        int64_t offset_s = 0;
        if (!ask_offset(at_s + step_s, offset_s)) {
            break;
        }
        if (offset_s != span.offset_s) {
            span = {find_change(at_s, at_s + step_s, span.offset_s), offset_s};
            add_span(span);
        }
        at_s += step_s;
    }
    the_zone.end_s = at_s;
    the_zone.count.store(the_zone.found, std::memory_order_release);
}

// This process was forked in the midst of its parent's look-up: the C library's lock may be held for good.
// The last offset that was found stands for all that follows, UTC when there was none.
void publish_what_the_parent_found(int64_t begin_s)
{
    if (the_zone.found == 0) {
        add_span({begin_s, 0});
    }
    the_zone.end_s = begin_s + years_ahead_s;
    the_zone.count.store(the_zone.found, std::memory_order_release);
}

} // namespace

bool local_fields(time_t seconds, tm& fields)
{
    const zone_span* span = find_span(seconds);
    if (span == nullptr && !must_be_signal_safe()) {
        return os::local_time(seconds, fields);
    }
    calendar_fields(seconds + (span != nullptr ? span->offset_s : 0), fields); // 0: UTC
    return true;
}

void look_up_time_zone()
{
    if (the_zone.count.load(std::memory_order_relaxed) != 0) {
        return;
    }
    const int64_t now_s = os::wall_seconds();
    const int64_t begin_s = now_s - now_s % day_s - day_s;
    const int32_t by = the_zone.looked_up_by.exchange(os::process_id());
    if (by != 0 && by != os::process_id()) {
        publish_what_the_parent_found(begin_s);
    } else {
        look_up_spans(begin_s);
    }
    the_zone.looked_up_by = 0;
}

} // namespace ostrum
