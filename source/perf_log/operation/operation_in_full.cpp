#include "perf_log/operation/operation_in_full.h"

#include "flist_trace/flist_writer.h"
#include "flist_trace/perf_flist.h"
#include "perf_log/aggregation/agg_dump.h"
#include "perf_log/aggregation/agg_insert.h"
#include "perf_log/context/start_key.h"
#include "perf_log/flush/alarm_detection.h"
#include "perf_log/flush/flush.h"
#include "perf_log/operation/operation_end.h"
#include "perf_log/operation/operation_start.h"

namespace ostrum {

namespace {

cpu_times cpu_at_level(int32_t level)
{
    cpu_times cpu;
    if (configured().collect_cpu_levels > level) {
        get_cpu_usage(&cpu.user_tv, &cpu.sys_tv);
    }
    return cpu;
}

void fill_key(agg_node& key, const log_context& context, const op_event& event)
{
    fill_start_key(key, identity_of(event), context.trace, context.depth, live_counter_options(context));
    key.caller_ref_1 = reinterpret_cast<uintptr_t>(event.in_flist);
    key.hash_code = ostrum_hash_aggr_node(&key);
}

// Debug listing of a start or end: as the key that it is, with what it adds.
void dump_call(const log_context& context, const op_event& event, const total_record* added,
               const char* label)
{
    if (!debug_on(debug_fine)) {
        return;
    }
    agg_node key;
    fill_key(key, context, event);
    if (added != nullptr) {
        key.main = *added;
    }
    __ostrum_dump_agg_node(&key, label);
}

bool traces_flists(const log_context& context)
{
    return context.flist_mode > 0 && !context.skip_flist_trace && is_open(context.flist_trace);
}

// The record of this start or end in the field-list trace.
void write_flist_record(log_context& context, const op_event& event, flist_direction direction)
{
    void* flist = direction == flist_direction::in ? event.in_flist : event.out_flist;
    const flist_entry entry{direction,  event.opcode,    event.opname,   event.opflags, event.now_tv,
                            event.file, event.line,      event.obj_type, event.obj_id,  event.db,
                            flist,      event.end_flags, event.ebuf};
    write_flist(&context, &entry);
}

// ---- start ----

// For a path that is not remembered: its node in the aggregation tree, new or known. Without memory for it
// the frame has none.
void insert_path(log_context& context, const op_event& event, call_frame& frame)
{
    trace_source& trace = context.trace;
    agg_node key;
    fill_key(key, context, event);
    frame.key_hash = key.hash_code;
    agg_node* node = nullptr;
    const uint32_t result = insert_agg_node(trace.tree, context.frames, &key, context.depth, &node);
    if (result == BT_FAIL) {
        err_print("write_log : error inserting aggregate - level[%d] opcode[%d]\n", context.depth,
                  key.opcode);
        return;
    }
    if (result == BT_INSERTED) {
        ++trace.new_node_count;
    }
    // The first call from a caller has made the tree of its callees: its place is asked for anew.
    remember_path(context.index, place_of_level(context), identity_of(event), node);
}

void enter_path(log_context& context, const op_event& event, call_frame& frame)
{
    if (agg_node* node = find_known_path(context, event)) {
        enter_node(frame, event, *node);
    } else {
        insert_path(context, event, frame);
    }
    dump_call(context, event, nullptr, "ENTER");
}

void insert_into_single_tree(log_context& context, const op_event& event, call_frame& frame)
{
    agg_node key;
    fill_key(key, context, event);
    key.single_trace = 1;
    frame.key_hash = key.hash_code;
    if (insert_agg_node(context.single_tree, context.frames, &key, context.depth, nullptr) == BT_FAIL) {
        err_print("write_log : error inserting single tree - level[%d] opcode[%d]\n", context.depth,
                  key.opcode);
    }
    dump_call(context, event, nullptr, "ENTER-SINGLE");
}

// ---- end ----

call_cost measure_call(log_context& context, const call_frame& frame, const op_event& event)
{
    const cpu_times cpu = cpu_at_level(context.depth);
    context.current_sequence = frame.sequence;
    return {elapsed_since_start(frame, event),
            {cpu.user_tv - frame.user_cpu_tv, cpu.sys_tv - frame.sys_cpu_tv}};
}

void update_node(log_context& context, const op_event& event, const call_frame& frame, const call_cost& cost)
{
    if (debug_on(debug_fine)) {
        const total_record added = totals_of(event, context.depth, cost);
        dump_call(context, event, &added, "EXIT");
    }
    if (frame.node == nullptr) {
        report_failed_update(context, event);
        return;
    }
    merge_into_node(context, event, frame, cost);
}

void update_single_node(const log_context& context, const op_event& event, const call_frame& frame,
                        const call_cost& cost)
{
    const total_record added = totals_of(event, context.depth, cost);
    addition_details details = details_of(context, event, frame);
    details.single_trace = true;
    dump_call(context, event, &added, "EXIT-SINGLE");
    if (frame.single_node == nullptr || !add_to_node(*frame.single_node, added, details)) {
        report_failed_update(context, event);
    }
}

// The parts of the call that were flushed before it ended, made up to the whole call.
void add_to_own_totals(total_record& own, const total_record& added)
{
    own.total_tv += added.total_tv;
    own.max_tv = own.total_tv;
    own.user_cpu_tv += added.user_cpu_tv;
    own.sys_cpu_tv += added.sys_cpu_tv;
    own.cm_cache_calls = added.cm_cache_calls;
    own.cm_cache_tv = added.cm_cache_calls != 0 ? own.total_tv : 0;
    own.total_errors = added.total_errors;
    own.total_recs = added.total_recs;
    own.total_calls = added.total_calls;
}

void merge_into_nodes(log_context& context, call_frame& frame, const op_event& event, const call_cost& cost)
{
    if (is_aggregated(context)) {
        update_node(context, event, frame, cost);
    }
    if (context.single_tree_active) {
        update_single_node(context, event, frame, cost);
    }
    if (own_totals_in_use(frame)) {
        add_to_own_totals(frame.own, totals_of(event, context.depth, cost));
    }
}

// The time since the operation began, whatever part of it was flushed meanwhile.
int64_t whole_elapsed_tv(const call_frame& frame, const call_cost& cost)
{
    return own_totals_in_use(frame) ? frame.own.total_tv : cost.elapsed_tv;
}

void return_single_tree(log_context& context, const op_event& event)
{
    return_perf_flist(context.single_tree, event.out_flist);
    if (bt_empty(context.single_tree) != BT_EMPTIED) {
        err_print("write_log : failed deleting single opcode tree\n");
    }
    context.single_tree_active = false;
}

void end_open_frame(log_context& context, const op_event& event)
{
    call_frame& frame = context.frames[context.depth];
    const call_cost cost = measure_call(context, frame, event);
    if (is_aggregated(context) || context.single_tree_active) {
        merge_into_nodes(context, frame, event, cost);
    }
    if (context.depth == 0 && context.alarm_at != nullptr) {
        const ended_call ended{event.opname, event.file, event.line};
        raise_final_alarm(context, ended, whole_elapsed_tv(frame, cost), event.now_tv);
    }
    if (traces_flists(context)) {
        write_flist_record(context, event, flist_direction::out);
    }
    if (context.depth == 0 && context.single_tree_active) {
        return_single_tree(context, event);
    }
    --context.depth;
    flush_between_operations(context, event.now_tv);
    clear_frame(frame);
}

} // namespace

void start_in_full(log_context& context, op_event event)
{
    const bool aggregate = is_aggregated(context);
    if (!aggregate && !context.single_tree_active && context.flist_mode <= 0) {
        return;
    }
    const cpu_times cpu = cpu_at_level(context.depth);
    call_frame& frame = context.frames[context.depth];
    begin_frame(context, event, cpu);
    if (aggregate) {
        enter_path(context, event, frame);
    }
    if (context.single_tree_active) {
        insert_into_single_tree(context, event, frame);
    }
    if (traces_flists(context)) {
        write_flist_record(context, event, flist_direction::in);
    }
}

void end_in_full(log_context& context, op_event event)
{
    if (context.depth >= max_call_frames) {
        --context.depth; // it never had a frame
    } else if (context.depth >= 0) {
        end_open_frame(context, event);
    } else {
        // An end without a start: nothing to measure, but it is shown, and what is due is flushed.
        if (traces_flists(context)) {
            write_flist_record(context, event, flist_direction::out);
        }
        flush_between_operations(context, event.now_tv);
    }
}

void report_failed_update(const log_context& context, op_event event)
{
    err_print("perf_log : failed updating aggregation - level[%d] opcode[%d](%s) opflags[%#x] program[%s] "
              "filename[%s] lineno[%d] obj_type[%s] db_num[%ld]\n",
              context.depth, event.opcode, text_or_empty(event.opname), event.opflags,
              text_or_empty(event.program), text_or_empty(event.file), event.line,
              text_or_empty(event.obj_type), event.db);
}

void flush_tree_now(log_context& context)
{
    flush_aggregation_tree(&context);
    context.flush_requested = false;
}

} // namespace ostrum
