#include "util/local_time.h"

#include <atomic>

#include "os/os_calls.h"

namespace ostrum {

namespace {

constinit thread_local bool in_signal_safe_scope [[gnu::tls_model("initial-exec")]] = false;
constinit std::atomic<int64_t> start_up_zone_s{0}; // local time less UTC

// The calendar without the C library, whose time zones have a lock. Days are counted in eras of 400 years
// that begin in March, so that a leap day is the last of its year.
void calendar_fields(int64_t local_s, tm& fields)
{
    constexpr int64_t day_s = 86'400;
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

} // namespace

bool local_fields(time_t seconds, tm& fields)
{
    if (!in_signal_safe_scope) {
        return os::local_time(seconds, fields);
    }
    calendar_fields(seconds + start_up_zone_s.load(std::memory_order_relaxed), fields);
    return true;
}

signal_safe_scope::signal_safe_scope() : was_safe_(in_signal_safe_scope)
{
    in_signal_safe_scope = true;
}

signal_safe_scope::~signal_safe_scope()
{
    in_signal_safe_scope = was_safe_;
}

bool must_be_signal_safe()
{
    return in_signal_safe_scope;
}

void remember_time_zone()
{
    tm fields{};
    if (os::local_time(os::wall_seconds(), fields)) {
        start_up_zone_s.store(fields.tm_gmtoff, std::memory_order_relaxed);
    }
}

} // namespace ostrum
