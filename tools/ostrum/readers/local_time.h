#ifndef OSTRUM_TOOL_READERS_LOCAL_TIME_H
#define OSTRUM_TOOL_READERS_LOCAL_TIME_H
// Moments, ns since the epoch, by the clock of the local zone.
#include <cstdint>
#include <string>

namespace ostrum_tool {

// "2026-11-21 10:00:00"; "(unknown time)" of what no year tells.
std::string local_time_text(int64_t time_tv);

// When the period that holds a moment began. Periods are those of the local clock, as the library's are: the
// zone's offset shifts where a day begins.
int64_t period_begin(int64_t time_tv, int64_t period_tv);

} // namespace ostrum_tool
#endif
