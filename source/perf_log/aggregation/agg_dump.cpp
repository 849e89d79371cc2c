#include "perf_log/aggregation/agg_dump.h"

#include "host_access/object_xoid.h"
#include "host_access/opcode_names.h"
#include "util/diagnostics.h"
#include "util/text.h"
#include "util/time_value.h"

using namespace ostrum;

namespace {

// A key's text buffers are unset: only a stored node, whose pointers are null, shows them.
const char* own_text(const char* buffer, const char* pointer)
{
    return pointer == nullptr ? buffer : "";
}

const char* as_seconds(char (&buffer)[32], int64_t tv, uint32_t digits)
{
    return ostrum_fmt_tv(tv, buffer, sizeof(buffer), digits);
}

void dump_totals(const total_record& totals, int index)
{
    char time[32];
    debug_print("  TOTAL           : %d (%s)\n", index, index == 0 ? "main" : "bucket");
    debug_print("  bs_tv           : %s\n", as_seconds(time, totals.bs_tv, format_seconds_ms));
    debug_print("  be_tv           : %s\n", as_seconds(time, totals.be_tv, format_seconds_ms));
    debug_print("  total_tv        : %s\n", as_seconds(time, totals.total_tv, format_seconds_ns));
    debug_print("  cm_cache_tv     : %s\n", as_seconds(time, totals.cm_cache_tv, format_seconds_ns));
    debug_print("  min_tv          : %s\n", as_seconds(time, totals.min_tv, format_seconds_ns));
    debug_print("  max_tv          : %s\n", as_seconds(time, totals.max_tv, format_seconds_ns));
    debug_print("  total_recs      : %ld\n", totals.total_recs);
    debug_print("  total_calls     : %ld\n", totals.total_calls);
    debug_print("  total_errors    : %ld\n", totals.total_errors);
    debug_print("  next            : %p\n", static_cast<void*>(totals.next));
    debug_print("  cm_cache_calls  : %ld\n", totals.cm_cache_calls);
}

void dump_identity(const agg_node& node)
{
    char db_text[32];
    const char* opname = own_text(node.opname, node.ptr_opname);
    debug_print("  opcode          : %d\n", node.opcode);
    debug_print("  opname          : %#x(%s)\n", low_address_bits(opname), get_opname(node.opcode, opname));
    debug_print("  flags           : %d\n", node.flags);
    debug_print("  program         : %s\n", own_text(node.program, node.ptr_program));
    debug_print("  fname           : %s\n", own_text(node.fname, node.ptr_fname));
    debug_print("  lineno          : %d\n", node.lineno);
    debug_print("  obj_type        : %s\n", own_text(node.obj_type, node.ptr_obj_type));
    debug_print("  db_num          : %s\n", perf_dbno_to_str(db_text, sizeof(db_text), node.db_num));
    debug_print("  level           : %d\n", node.level);
    debug_print("  pid             : %u\n", node.pid);
    debug_print("  tid             : %lu\n", node.tid);
    debug_print("  bucket_id       : %d\n", node.bucket_id);
    debug_print("  log_time        : %#x\n", static_cast<unsigned>(node.log_time));
    debug_print("  hash_code       : %lu\n", node.hash_code);
    debug_print("  ptr_program     : %#x(%s)\n", low_address_bits(node.ptr_program),
                text_or_empty(node.ptr_program));
    debug_print("  ptr_opname      : %#x(%s)\n", low_address_bits(node.ptr_opname),
                text_or_empty(node.ptr_opname));
    debug_print("  ptr_fname       : %#x(%s)\n", low_address_bits(node.ptr_fname),
                text_or_empty(node.ptr_fname));
    debug_print("  ptr_obj_type    : %#x(%s)\n", low_address_bits(node.ptr_obj_type),
                text_or_empty(node.ptr_obj_type));
    debug_print("  sub_opcode_tree : %p\n", static_cast<void*>(node.sub_opcode_tree));
}

} // namespace

void __ostrum_dump_agg_node(const agg_node* node, const char* label)
{
    if (!ostrum::debug_on(ostrum::debug_fine) || node == nullptr) {
        return;
    }
    debug_print("__ostrum_dump_agg_node : aggregation node: [%p][%s]\n", static_cast<const void*>(node),
                label);
    dump_identity(*node);
    int index = 0;
    for (const total_record* totals = &node->main; totals != nullptr && totals->total_calls >= 0;
         totals = totals->next) {
        dump_totals(*totals, index++);
    }
}
