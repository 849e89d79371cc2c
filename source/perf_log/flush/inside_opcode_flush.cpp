#include "perf_log/flush/inside_opcode_flush.h"

#include <algorithm>
#include <memory>

#include "config/settings.h"
#include "perf_log/aggregation/agg_insert.h"
#include "perf_log/aggregation/node_update.h"
#include "perf_log/context/start_key.h"
#include "perf_log/flush/flush.h"
#include "process_metrics/cpu_usage.h"
#include "util/diagnostics.h"
#include "util/resources.h"

using namespace ostrum;

namespace {

int32_t innermost_frame(const log_context& context)
{
    return std::min(context.depth, max_call_frames - 1);
}

// A start key for the path of a node that is about to be flushed. The hash is that of the whole texts, which
// the node may hold cut.
void fill_key_of_running_call(agg_node& key, const agg_node& node, const log_context& context, int32_t level)
{
    fill_start_key(key, stored_path(node), context.trace, level, context.time_mode);
    key.hash_code = node.hash_code;
    key.caller_ref_1 = node.caller_ref_1;
    key.caller_ref_2 = node.caller_ref_2;
}

// Copies the paths of the running calls into the new tree. Returns the number of nodes made there.
int32_t replant_running_calls(const log_context& context, bt_tree* tree, call_frame* stack)
{
    int32_t inserted = 0;
    for (int32_t level = 0; level <= innermost_frame(context); ++level) {
        const agg_node* node = context.frames[level].node;
        if (node == nullptr) {
            continue; // started before timing was switched on
        }
        agg_node key;
        fill_key_of_running_call(key, *node, context, level);
        const uint32_t result = insert_agg_node(tree, stack, &key, level, nullptr);
        if (result == BT_INSERTED) {
            ++inserted;
        } else if (result == BT_FAIL) {
            err_print("inside_opcode_flush : error inserting aggregate - level[%d] opcode[%d]\n", level,
                      key.opcode);
        } else {
            // spelling kept
            err_print("inside_opcode_flush : error inserting aggregate - found dupicate?! status[%d] "
                      "level[%d] opcode[%d]\n",
                      static_cast<int>(result), level, key.opcode);
        }
    }
    return inserted;
}

// What the running call of a level has used so far, and not yet been charged for.
total_record part_done_so_far(const call_frame& frame, int32_t level, int64_t now_tv, const cpu_times& cpu)
{
    total_record part{};
    const int64_t elapsed_tv = std::max<int64_t>(now_tv - frame.start_tv, 0);
    part.total_tv = elapsed_tv;
    part.min_tv = elapsed_tv;
    part.max_tv = elapsed_tv;
    if (configured().collect_cpu_levels > level) {
        part.user_cpu_tv = cpu.user_tv - frame.user_cpu_tv;
        part.sys_cpu_tv = cpu.sys_tv - frame.sys_cpu_tv;
    }
    return part;
}

addition_details details_of(const log_context& context, const agg_node& node, int32_t level)
{
    addition_details details{};
    details.caller_ref_1 = node.caller_ref_1;
    details.caller_ref_2 = node.caller_ref_2;
    details.level = level;
    details.log_time = context.time_mode;
    return details;
}

void remember_flushed_part(total_record& own, const total_record& part)
{
    if (own.total_calls == start_marker) {
        own = total_record{};
    }
    own.total_tv += part.total_tv;
    own.user_cpu_tv += part.user_cpu_tv;
    own.sys_cpu_tv += part.sys_cpu_tv;
}

void charge_running_calls(log_context& context, const call_frame* new_stack, int64_t now_tv,
                          const cpu_times& cpu)
{
    for (int32_t level = 0; level <= innermost_frame(context); ++level) {
        call_frame& frame = context.frames[level];
        if (frame.node == nullptr) {
            continue;
        }
        const total_record part = part_done_so_far(frame, level, now_tv, cpu);
        if (!add_to_node(*frame.node, part, details_of(context, *frame.node, level))) {
            err_print("inside_opcode_flush : failed updating aggregation node\n");
        }
        if (frame.first_start_tv == 0) {
            frame.first_start_tv = frame.start_tv;
        }
        frame.start_tv = now_tv;
        frame.user_cpu_tv = cpu.user_tv;
        frame.sys_cpu_tv = cpu.sys_tv;
        frame.node = new_stack[level].node;
        remember_flushed_part(frame.own, part);
    }
}

} // namespace

void inside_opcode_flush(log_context* context, int64_t now_tv)
{
    const bool debug = debug_on(debug_general);
    if (!logs_to_file(context->time_mode)) {
        if (debug) {
            debug_print("inside_opcode_flush : not logging to file - nothing to do.\n");
        }
        return;
    }
    if (debug) {
        debug_print("inside_opcode_flush : recreate aggregation tree\n");
    }
    cpu_times cpu;
    if (configured().collect_cpu_levels > 0) {
        get_cpu_usage(&cpu.user_tv, &cpu.sys_tv);
    }
    agg_tree_ptr tree{create_agg_tree()};
    const heap_ptr<call_frame> stack = heap_zeroed<call_frame>(max_call_frames);
    if (!tree || !stack) {
        err_print("inside_opocode_flush : out of memory creating new tree\n"); // spelling kept
        return;
    }
    const int32_t inserted = replant_running_calls(*context, tree.get(), stack.get());
    charge_running_calls(*context, stack.get(), now_tv, cpu);
    flush_aggregation_tree(context);
    bt_destroy(context->trace.tree);
    context->trace.tree = tree.release();
    ++context->trace.tree_generation;
    context->trace.new_node_count = inserted;
}
