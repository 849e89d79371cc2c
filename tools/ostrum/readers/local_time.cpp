#include "readers/local_time.h"

#include <ctime>

#include "readers/time_units.h"

namespace ostrum_tool {

std::string local_time_text(int64_t time_tv)
{
    const time_t seconds = time_tv / ns_per_second;
    tm fields{};
    char text[32];
    if (localtime_r(&seconds, &fields) == nullptr ||
        std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &fields) == 0) {
        return "(unknown time)";
    }
    return text;
}

int64_t period_begin(int64_t time_tv, int64_t period_tv)
{
    const time_t seconds = time_tv / ns_per_second;
    tm fields{};
    localtime_r(&seconds, &fields);
    const int64_t offset_tv = fields.tm_gmtoff * ns_per_second;
    int64_t local_tv = 0;
    if (__builtin_add_overflow(time_tv, offset_tv, &local_tv)) {
        return time_tv; // the last hours that a time can tell are no period
    }
    return local_tv - local_tv % period_tv - offset_tv;
}

} // namespace ostrum_tool
