#ifndef OSTRUM_TOOL_READERS_VIEW_FILTER_H
#define OSTRUM_TOOL_READERS_VIEW_FILTER_H
#include <cstdint>
#include <string>
#include <vector>

namespace ostrum_tool {

// Which nodes of a call tree are shown. Figures stay those of all calls.
struct view_filter {
    std::string name_pattern;     // RE2; matched anywhere in the name; empty = all
    std::vector<int32_t> opcodes; // empty = all
    int32_t max_depth = 0;        // levels; 0 = all
    int64_t min_total_tv = 0;
};

} // namespace ostrum_tool
#endif
