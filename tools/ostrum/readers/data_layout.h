#ifndef OSTRUM_TOOL_READERS_DATA_LAYOUT_H
#define OSTRUM_TOOL_READERS_DATA_LAYOUT_H
// Where the data file holds its tables.
#include <cstddef>

namespace ostrum_tool {

inline constexpr char data_signature[] = "ostrum-64bit\n";

struct table_layout {
    const char* name;
    size_t offset, entry_bytes, entries, count_offset;
};
inline constexpr table_layout counter_table{"counters", 368, 656, 4096, 2'687'344};
inline constexpr table_layout variable_table{"variables", 2'687'352, 1216, 512, 3'309'944};
inline constexpr table_layout error_table{"errors", 3'309'960, 304, 8192, 5'800'328};

} // namespace ostrum_tool
#endif
