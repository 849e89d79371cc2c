#ifndef OSTRUM_TOOL_DATA_LOCKED_READING_H
#define OSTRUM_TOOL_DATA_LOCKED_READING_H
// Tables as the library copies them, under the file's locks: no figure of an entry is newer than its
// neighbour. What a process keeps locked for longer than the library waits is copied without the lock, and
// the library says so.
#include "ostrum_data.h"

#include "readers/data_file.h"

namespace ostrum_tool {

// Each puts its part in place of that of the file.
void read_locked_counters(rt_info* from, data_file& file);
void read_locked_errors(rt_info* from, data_file& file);
void read_locked_variables(rt_info* from, data_file& file);
void read_locked_metrics(rt_info* from, data_file& file);

} // namespace ostrum_tool
#endif
