#ifndef OSTRUM_TOOL_CHANGE_WATCH_H
#define OSTRUM_TOOL_CHANGE_WATCH_H
// Whether the hosts have taken a variable: they leave no note of it, so it is told by what they do.
#include <cstdint>
#include <string>

#include "readers/data_looks.h"

namespace ostrum_tool {

struct variable_change {
    std::string path, name;
    std::string before, after; // values
    look at_change;            // the file just before
};

// What was seen within the time: one line.
std::string watch_hosts(const variable_change& change, int64_t limit_tv);

} // namespace ostrum_tool
#endif
