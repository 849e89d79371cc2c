#ifndef OSTRUM_UTIL_LOCAL_TIME_H
#define OSTRUM_UTIL_LOCAL_TIME_H
// Local time without the C library's lock on its time zones: a thread that is interrupted, or a process that
// is forked, while another thread holds that lock would wait for it for ever. The zone's changes of the
// next years are looked up once, at start-up; the process keeps that zone.
#include <cstdint>
#include <ctime>

namespace ostrum {

// Broken-down local time, in tm_year to tm_sec; false when the system cannot tell. Outside the years that
// were looked up the C library is asked.
bool local_fields(time_t seconds, tm& fields);

void look_up_time_zone(); // once, at start-up

} // namespace ostrum
#endif
