#ifndef OSTRUM_TOOL_CHANGE_LIBRARY_FILE_H
#define OSTRUM_TOOL_CHANGE_LIBRARY_FILE_H
// A data file opened through the library, for what changes something or must be exact: its locks are heeded.
#include <memory>
#include <string>

#include "ostrum_data.h"

namespace ostrum_tool {

struct close_data_file {
    void operator()(rt_info* file) const { ostrum_data_file_close(file); }
};
using library_file = std::unique_ptr<rt_info, close_data_file>;

// Locks as the hosts do: by the method that OSTRUM_LOCK_METHOD names, and without it by the one whose marks
// the file bears. Throws input_error when it cannot be opened, behind the library's own message.
library_file open_with_locks(const std::string& path);

} // namespace ostrum_tool
#endif
