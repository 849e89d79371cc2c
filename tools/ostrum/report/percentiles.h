#ifndef OSTRUM_TOOL_REPORT_PERCENTILES_H
#define OSTRUM_TOOL_REPORT_PERCENTILES_H
// What duration buckets tell about percentiles: never a value, but the interval that must hold it.
#include <optional>

#include "readers/call_tree.h"

namespace ostrum_tool {

// [from, to]; both are bounds that the recorded figures prove.
struct duration_interval {
    int64_t from_tv = 0;
    int64_t to_tv = 0;
};

// The interval that holds the duration of the call at that percentile (above 0, up to 100) of all calls of
// a path, by nearest rank. Nothing for a path without buckets. Calls that no bucket counts may have lasted
// anything up to the path's longest one, and widen the interval.
std::optional<duration_interval> percentile(const call_node& node, double percent);

} // namespace ostrum_tool
#endif
