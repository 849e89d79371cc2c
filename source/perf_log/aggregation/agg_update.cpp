#include "perf_log/aggregation/node_update.h"

#include "config/settings.h"
#include "data_file/counters.h"
#include "data_file/errors.h"
#include "host_access/opcode_names.h"
#include "util/diagnostics.h"
#include "util/resources.h"
#include "util/text.h"

using namespace ostrum;

namespace {

void own_text(char (&buffer)[text_bytes], const char*& pointer)
{
    copy_text(buffer, sizeof(buffer), pointer);
    pointer = nullptr;
}

// The tree has just copied the key, pointers into the caller's frame included.
void make_node(agg_node& node, const agg_node& key)
{
    node.main = total_record{};
    node.sub_opcode_tree = nullptr;
    node.bucket_def = node.bucket_id > 0 ? nullptr : find_opcode_buckets(node.opcode);
    node.caller_ref_1 = key.caller_ref_1;
    node.caller_ref_2 = 0;
    node.live_counter = nullptr;
    node.count_in_buckets = 0;
    node.bucket_source = nullptr;
    node.err_info = nullptr;
    own_text(node.program, node.ptr_program);
    own_text(node.opname, node.ptr_opname);
    own_text(node.fname, node.ptr_fname);
    own_text(node.obj_type, node.ptr_obj_type);
}

// Buckets go by position: the first has no lower bound and the last no upper one, whatever the values.
// Bounds that do not rise can leave a gap.
constexpr int32_t no_bucket = -1;

int32_t bucket_position(const opcode_buckets& def, int64_t elapsed_tv)
{
    const int32_t last = def.threshold_count;
    for (int32_t k = 0; k < last; ++k) {
        if (elapsed_tv < def.thresholds[k] && (k == 0 || elapsed_tv >= def.thresholds[k - 1])) {
            return k;
        }
    }
    return last == 0 || elapsed_tv >= def.thresholds[last - 1] ? last : no_bucket;
}

total_record* new_bucket(const opcode_buckets& def, int32_t position)
{
    heap_ptr<total_record> bucket = heap_zeroed<total_record>();
    if (!bucket) {
        err_print("agg_upd_fn : out of memory\n");
        return nullptr;
    }
    bucket->bs_tv = position == 0 ? 0 : def.thresholds[position - 1];
    bucket->be_tv = position == def.threshold_count ? 0 : def.thresholds[position];
    return bucket.release();
}

bool merge_key(agg_node& node, const agg_node& key)
{
    if (key.main.total_calls == start_marker) {
        node.caller_ref_1 = key.caller_ref_1;
        return true;
    }
    return add_to_node(node, key.main,
                       {.bucket_source = key.bucket_source,
                        .caller_ref_1 = key.caller_ref_1,
                        .caller_ref_2 = key.caller_ref_2,
                        .err_info = key.err_info,
                        .level = key.level,
                        .log_time = key.log_time,
                        .single_trace = key.single_trace != 0,
                        .counts_in_buckets = key.count_in_buckets == 1});
}

} // namespace

void ostrum::count_in_new_live_counter(agg_node& node, int32_t log_time, total_record added)
{
    const bool by_line = (log_time & live_counter_by_line) != 0;
    const bool by_flags = (log_time & live_counter_by_flags) != 0;
    node.live_counter = rt_counter_add(__ostrum_get_data_file_handle(), node.opcode, node.opname,
                                       by_flags ? static_cast<uint32_t>(node.flags) : 0,
                                       by_line ? node.lineno : 0, node.program, by_line ? node.fname : "",
                                       node.obj_type, node.db_num, added.total_calls, added.total_errors,
                                       added.total_recs, added.total_tv, added.user_cpu_tv, added.sys_cpu_tv);
}

// Which attributes tell errors apart is the operator's choice; the others are left 0 or empty.
void ostrum::count_error(const agg_node& node, int64_t errors, const uint32_t* err_info)
{
    const int32_t detail = configured().error_counter_level;
    const bool by_opcode = (detail & error_by_opcode) != 0;
    const char* name = name_of(node.opname, node.opcode);
    const auto word = [&](error_counter_bits bit, int index) -> uint32_t {
        return (detail & bit) != 0 && err_info != nullptr ? err_info[index] : 0;
    };
    rt_error_add(__ostrum_get_data_file_handle(), (detail & error_by_dbno) != 0 ? node.db_num : 0,
                 by_opcode ? node.opcode : 0, by_opcode ? name : "",
                 (detail & error_by_program) != 0 ? node.program : "", word(error_by_class, 1),
                 word(error_by_location, 0), word(error_by_errnum, 2), errors);
}

bool ostrum::add_to_bucket(agg_node& node, int64_t elapsed_tv, total_record added)
{
    const opcode_buckets& def = *node.bucket_def;
    const int32_t wanted = bucket_position(def, elapsed_tv);
    const int32_t last_made = wanted != no_bucket ? wanted : def.threshold_count;
    total_record** link = &node.main.next;
    for (int32_t k = 0; k <= last_made; ++k) { // lower ones are made on the way
        if (*link == nullptr) [[unlikely]] {
            *link = new_bucket(def, k);
            if (*link == nullptr) {
                return false;
            }
        }
        if (k == wanted) {
            add_totals(**link, added);
        }
        link = &(*link)->next;
    }
    return true;
}

void agg_update_bucket_totals(total_record* bucket, const total_record* added)
{
    add_totals(*bucket, *added);
}

int32_t agg_upd_fn(void* node_record, const void* key_record, uint32_t status, void** out)
{
    auto* node = static_cast<agg_node*>(node_record);
    const auto* key = static_cast<const agg_node*>(key_record);
    if (node == nullptr || key == nullptr) {
        return 0;
    }
    switch (status) {
    case BT_INSERTED:
        make_node(*node, *key);
        break;
    case BT_EXISTED:
        if (!merge_key(*node, *key)) {
            return 0;
        }
        break;
    default:
        err_print("agg_upd_fn : strange status[%d] passed to tree update func.\n", static_cast<int>(status));
        return 0;
    }
    if (out != nullptr) {
        *out = node;
    }
    return 1;
}
