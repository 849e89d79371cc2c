#ifndef OSTRUM_TOOL_REPORT_FOLLOW_H
#define OSTRUM_TOOL_REPORT_FOLLOW_H
#include <functional>

#include "cli/trace_options.h"

namespace ostrum_tool {

struct follow_options {
    std::vector<std::string> operands;
    int64_t interval_tv = 0;
    int64_t count = 0; // reports; 0 = until interrupted
};

// Reads what complete blocks the files gain, and hands over the sum of all that was read so far, at once and
// then after each interval in which something came. Ends when the reader of the output has gone.
int follow_traces(const follow_options& options, const record_choice& chosen, const streams& to,
                  const std::function<void(const trace_set&)>& show);

} // namespace ostrum_tool
#endif
