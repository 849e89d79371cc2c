#ifndef OSTRUM_TOOL_READERS_DATA_LOOKS_H
#define OSTRUM_TOOL_READERS_DATA_LOOKS_H
// A data file at one moment and at another, and what came in between.
#include <cstdint>
#include <string>
#include <vector>

#include "readers/data_file.h"

namespace ostrum_tool {

struct look {
    data_file file;
    int64_t monotonic_tv = 0; // to measure with
    int64_t local_tv = 0;     // ns since the epoch, to show
};

// A look at this moment. Throws input_error as read_data_file does.
look look_at_data_file(const std::string& path);

// The records of `now`, in their order, with what their totals have gained. A total that went down was
// reset in between: all that the record has now is gain then. So it is for a record that is new.
std::vector<operation_counter> gains(const std::vector<operation_counter>& before,
                                     const std::vector<operation_counter>& now);
std::vector<error_counter> gains(const std::vector<error_counter>& before,
                                 const std::vector<error_counter>& now);

} // namespace ostrum_tool
#endif
