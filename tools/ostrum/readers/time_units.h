#ifndef OSTRUM_TOOL_READERS_TIME_UNITS_H
#define OSTRUM_TOOL_READERS_TIME_UNITS_H
#include <cstdint>

namespace ostrum_tool {

inline constexpr int64_t ns_per_second = 1'000'000'000;

} // namespace ostrum_tool
#endif
