#ifndef OSTRUM_FLIST_TRACE_ENTRY_PARTS_H
#define OSTRUM_FLIST_TRACE_ENTRY_PARTS_H
// What both layouts show of an entry.
#include "flist_trace/flist_writer.h"

namespace ostrum {

struct entry_times { // ns, never below 0; 0 while timing is off
    int64_t since_top_tv;
    int64_t since_level_start_tv;
};
entry_times times_of(const log_context& context, const flist_entry& entry);

bool is_cache_hit(const flist_entry& entry);
bool has_error(const flist_entry& entry);

void add_block(append_buffer& out, const log_context& context, const flist_entry& entry);
void add_tree_lines(append_buffer& out, const log_context& context, const flist_entry& entry);

} // namespace ostrum
#endif
