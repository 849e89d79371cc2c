#ifndef OSTRUM_TOOL_READERS_TIME_UNITS_H
#define OSTRUM_TOOL_READERS_TIME_UNITS_H
#include <chrono>
#include <cstdint>

namespace ostrum_tool {

inline constexpr int64_t ns_per_second = 1'000'000'000;

template <typename Clock>
int64_t now_tv()
{
    return std::chrono::nanoseconds(Clock::now().time_since_epoch()).count();
}

} // namespace ostrum_tool
#endif
