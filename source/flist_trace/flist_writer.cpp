#include "flist_trace/flist_writer.h"

#include <algorithm>
#include <initializer_list>

#include "flist_trace/entry_parts.h"
#include "host_access/opcode_names.h"

namespace ostrum {

namespace {

bool contains(std::initializer_list<int32_t> opcodes, int32_t opcode)
{
    return std::find(opcodes.begin(), opcodes.end(), opcode) != opcodes.end();
}

bool is_written(int32_t opcode)
{
    return opcode >= 0 || contains({-4, -5, -6}, opcode);
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

// The cache serves operations below 50, but for those that change or search data.
bool is_cache_hit(const flist_entry& entry)
{
    constexpr int32_t first_uncached_opcode = 50;
    return (entry.cache_flags & cache_hit_flag) != 0 && entry.opcode < first_uncached_opcode &&
           !contains({22, 23, 24, 30, 34, 38}, entry.opcode);
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
    append_buffer out = text_for(context->flist_trace);
    if ((context->flist_mode & flist_blocks) != 0) {
        add_block(out, *context, named);
    } else if ((context->flist_mode & flist_tree_lines) != 0) {
        add_tree_lines(out, *context, named);
    }
    out.finish();
}
