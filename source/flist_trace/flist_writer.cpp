#include "flist_trace/flist_writer.h"

#include <algorithm>

#include "flist_trace/entry_parts.h"
#include "host_abi/host_opcodes.h"
#include "host_access/opcode_names.h"

namespace ostrum {

namespace {

bool is_written(int32_t opcode)
{
    return opcode >= 0 || contains(traced_virtual_opcodes, opcode);
}

int64_t elapsed_since_begin(const call_frame& frame, int64_t now_tv)
{
    const int64_t start_tv = begin_of_whole_call(frame);
    return start_tv != 0 ? std::max<int64_t>(now_tv - start_tv, 0) : 0;
}

} // namespace

entry_times times_of(const log_context& context, const flist_entry& entry)
{
    if (context.time_mode <= 0 || context.depth < 0) { // the end of no call has no frame
        return {0, 0};
    }
    return {elapsed_since_begin(context.frames[0], entry.now_tv),
            elapsed_since_begin(context.frames[context.depth], entry.now_tv)};
}

bool is_cache_hit(const flist_entry& entry)
{
    return (entry.cache_flags & end_flag_cache_hit) != 0 && entry.opcode < first_uncached_opcode &&
           !contains(uncached_opcodes, entry.opcode);
}

bool has_error(const flist_entry& entry)
{
    return entry.ebuf != nullptr && entry.ebuf->errnum != 0;
}

} // namespace ostrum

using namespace ostrum;

void write_flist(log_context* context, const flist_entry* entry)
{
    if (!is_written(entry->opcode) || !is_open(context->flist_trace)) {
        return;
    }
    flist_entry named = *entry;
    named.opname = name_of(named.opname, named.opcode);
    append_buffer out = append_buffer_for(context->flist_trace);
    if ((context->flist_mode & flist_blocks) != 0) {
        add_block(out, *context, named);
    } else if ((context->flist_mode & flist_tree_lines) != 0) {
        add_tree_lines(out, *context, named);
    }
    out.finish();
}
