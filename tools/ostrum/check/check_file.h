#ifndef OSTRUM_TOOL_CHECK_CHECK_FILE_H
#define OSTRUM_TOOL_CHECK_CHECK_FILE_H
#include <string>

#include "readers/trace_set.h"

namespace ostrum_tool {

struct file_findings {
    std::string file, kind, state; // state: "ok", "damaged" or "empty"
    uint64_t bytes = 0;
    int64_t blocks = 0;  // flushes of a trace data file
    int64_t entries = 0; // paths, field-list entries, or entries of all tables
    damage_list damages;
};

// What kind a file is of is told by its content, and by its name where there is none. Throws input_error when
// it cannot be read.
file_findings check_file(const std::string& path);

} // namespace ostrum_tool
#endif
