#include "perf_log/operation/write_log.h"

#include <algorithm>

#include "config/settings.h"
#include "flist_trace/flist_writer.h"
#include "flist_trace/perf_flist.h"
#include "os/os_calls.h"
#include "perf_log/flush/alarm_detection.h"
#include "perf_log/flush/flush.h"
#include "perf_log/operation/outermost_checks.h"
#include "perf_log/operation/timeout_nesting.h"
#include "process_metrics/cpu_usage.h"
#include "util/diagnostics.h"
#include "util/text.h"

namespace ostrum {

namespace {

// Elapsed and CPU time of the call that ends.
struct call_cost {
    int64_t elapsed_tv = 0;
    cpu_times cpu;
};

// Always at the outermost level while timing is on, deeper only when timing goes to a file.
bool is_aggregated(const log_context& context)
{
    return context.depth == 0 ? context.time_mode > 0 : logs_to_file(context.time_mode);
}

bool is_outermost(const log_context& context)
{
    return context.depth == 0 || (context.depth == 1 && context.grouped_transaction);
}

cpu_times cpu_at_level(int32_t level)
{
    cpu_times cpu;
    if (configured().collect_cpu_levels > level) {
        get_cpu_usage(&cpu.user_tv, &cpu.sys_tv);
    }
    return cpu;
}

// An error of these two numbers is part of normal work below the outermost level.
bool is_recorded_error(const op_event& event, int32_t depth)
{
    if (event.ebuf == nullptr || event.ebuf->errnum == 0) {
        return false;
    }
    const uint32_t errnum = event.ebuf->errnum;
    return depth == 0 || (errnum != 37 && errnum != 120);
}

int32_t live_counter_options(const log_context& context)
{
    return context.time_mode | (context.grouped_transaction ? live_counter_two_levels : 0);
}

// Which path. The text copies of a key are left unset: only its pointers are read.
void fill_identity(agg_node& key, const log_context& context, const op_event& event)
{
    key.opcode = event.opcode;
    key.flags = static_cast<int32_t>(event.opflags);
    key.level = context.depth;
    key.pid = static_cast<uint32_t>(context.trace.pid);
    key.tid = context.trace.tid;
    key.ptr_program = text_or_empty(event.program);
    key.ptr_opname = text_or_empty(event.opname);
    key.ptr_fname = text_or_empty(event.file);
    key.ptr_obj_type = text_or_empty(event.obj_type);
    key.lineno = event.line;
    key.db_num = event.db;
    key.bucket_id = 0;
    key.bucket_def = nullptr;
    key.live_counter = nullptr;
    key.sub_opcode_tree = nullptr;
}

void fill_start_key(agg_node& key, const log_context& context, const op_event& event)
{
    fill_identity(key, context, event);
    key.count_in_buckets = 0;
    key.log_time = live_counter_options(context);
    key.single_trace = 0;
    key.bucket_source = nullptr;
    key.caller_ref_1 = reinterpret_cast<uintptr_t>(event.in_flist);
    key.err_info = nullptr;
    key.main.total_calls = start_marker;
}

// What the call adds to the node that its frame holds. The node knows the path, so the key does not
// repeat it.
void fill_end_key(agg_node& key, const log_context& context, const op_event& event, const call_frame& frame,
                  const call_cost& cost)
{
    const bool cache_flag = (event.end_flags & end_flag_error) != 0;
    key.level = context.depth;
    key.count_in_buckets = 1;
    key.log_time = live_counter_options(context);
    key.single_trace = 0;
    key.main.total_tv = cost.elapsed_tv;
    key.main.min_tv = cost.elapsed_tv;
    key.main.max_tv = cost.elapsed_tv;
    key.main.cm_cache_tv = cache_flag ? cost.elapsed_tv : 0;
    key.main.total_recs = event.record_count;
    key.main.total_calls = 1;
    key.main.total_errors = is_recorded_error(event, context.depth) ? 1 : 0;
    key.main.cm_cache_calls = cache_flag ? 1 : 0;
    key.main.user_cpu_tv = cost.cpu.user_tv;
    key.main.sys_cpu_tv = cost.cpu.sys_tv;
    key.main.bs_tv = 0;
    key.main.be_tv = 0;
    key.main.next = nullptr;
    key.bucket_source = own_totals_in_use(frame) ? &frame.own : nullptr;
    key.caller_ref_1 = reinterpret_cast<uintptr_t>(event.in_flist);
    key.caller_ref_2 = reinterpret_cast<uintptr_t>(event.out_flist);
    key.err_info = event.ebuf != nullptr ? &event.ebuf->location : nullptr;
}

// Debug listing of a key, which needs the identity that an end key leaves out.
void dump_key(agg_node& key, const log_context& context, const op_event& event, const char* label)
{
    if (debug_on(debug_fine)) {
        fill_identity(key, context, event);
        key.hash_code = ostrum_hash_aggr_node(&key);
        __ostrum_dump_agg_node(&key, label);
    }
}

// The record of this start or end in the field-list trace.
void trace_flist(log_context& context, const op_event& event, flist_direction direction)
{
    if (context.flist_mode <= 0 || context.skip_flist_trace || !is_open(context.flist_trace)) {
        return;
    }
    void* flist = direction == flist_direction::in ? event.in_flist : event.out_flist;
    const flist_entry entry{direction,  event.opcode,    event.opname,   event.opflags, event.now_tv,
                            event.file, event.line,      event.obj_type, event.obj_id,  event.db,
                            flist,      event.end_flags, event.ebuf};
    write_flist(&context, &entry);
}

// ---- start ----

void begin_frame(log_context& context, const op_event& event, const cpu_times& cpu)
{
    call_frame& frame = context.frames[context.depth];
    frame.start_tv = event.now_tv;
    frame.user_cpu_tv = cpu.user_tv;
    frame.sys_cpu_tv = cpu.sys_tv;
    frame.in_flist = event.in_flist;
    frame.opcode = static_cast<uint32_t>(event.opcode);
    frame.opflags = event.opflags;
    frame.sequence = context.current_sequence;
    frame.own.total_calls = start_marker;
}

// The tree that the nodes of a level are in; null below a caller that has called nothing yet.
const bt_tree* tree_of_level(const trace_source& trace, int32_t level, const agg_node* caller)
{
    if (level == 0) {
        return trace.tree;
    }
    return caller != nullptr ? caller->sub_opcode_tree : nullptr;
}

// The node of the key's path in the aggregation tree, new or known; null when memory is short.
agg_node* find_or_insert_path(log_context& context, agg_node& key)
{
    trace_source& trace = context.trace;
    const int32_t level = context.depth;
    const agg_node* caller = level > 0 ? context.frames[level - 1].node : nullptr;
    const bt_tree* tree = tree_of_level(trace, level, caller);
    agg_node* node = find_hinted(context.hints, trace.tree_generation, tree, key);
    if (node != nullptr) {
        node->caller_ref_1 = key.caller_ref_1;
        context.frames[level].node = node;
        return node;
    }
    key.hash_code = ostrum_hash_aggr_node(&key);
    const uint32_t result = insert_agg_node(trace.tree, context.frames, &key, level, &node);
    if (result == BT_FAIL) {
        err_print("write_log : error inserting aggregate - level[%d] opcode[%d]\n", level, key.opcode);
        return nullptr;
    }
    if (result == BT_INSERTED) {
        ++trace.new_node_count;
    }
    // The first call from a caller has made the tree of its callees.
    remember_path(context.hints, tree_of_level(trace, level, caller), key, node);
    return node;
}

void insert_into_single_tree(log_context& context, const op_event& event, agg_node& key)
{
    key.single_trace = 1;
    key.hash_code = ostrum_hash_aggr_node(&key);
    context.frames[context.depth].key_hash = key.hash_code;
    if (insert_agg_node(context.single_tree, context.frames, &key, context.depth, nullptr) == BT_FAIL) {
        err_print("write_log : error inserting single tree - level[%d] opcode[%d]\n", context.depth,
                  key.opcode);
    }
    dump_key(key, context, event, "ENTER-SINGLE");
}

void enter_nodes(log_context& context, const op_event& event, const cpu_times& cpu, bool aggregate)
{
    agg_node key;
    fill_start_key(key, context, event);
    begin_frame(context, event, cpu);
    if (aggregate) {
        const agg_node* node = find_or_insert_path(context, key);
        context.frames[context.depth].key_hash =
            node != nullptr ? node->hash_code : ostrum_hash_aggr_node(&key);
        dump_key(key, context, event, "ENTER");
    }
    if (context.single_tree_active) {
        insert_into_single_tree(context, event, key);
    }
}

void log_start(log_context& context, const op_event& event)
{
    if (++context.depth >= max_call_frames) {
        return; // counted, without a frame
    }
    if (is_outermost(context)) {
        check_at_outermost_start(context, event);
    }
    const bool aggregate = is_aggregated(context);
    context.current_sequence = ++context.operation_sequence;
    if (context.depth == 0) {
        context.top_sequence = context.current_sequence;
    }
    const cpu_times cpu = cpu_at_level(context.depth);
    if (aggregate || context.single_tree_active) {
        enter_nodes(context, event, cpu, aggregate);
    } else if (context.flist_mode > 0) {
        begin_frame(context, event, cpu);
    } else {
        return;
    }
    trace_flist(context, event, flist_direction::in);
}

// ---- end ----

call_cost measure_call(log_context& context, const call_frame& frame, const op_event& event)
{
    const cpu_times cpu = cpu_at_level(context.depth);
    context.current_sequence = frame.sequence;
    return {std::max<int64_t>(event.now_tv - frame.start_tv, 0),
            {cpu.user_tv - frame.user_cpu_tv, cpu.sys_tv - frame.sys_cpu_tv}};
}

void update_node(log_context& context, const op_event& event, agg_node* node, agg_node& key,
                 const char* label)
{
    dump_key(key, context, event, label);
    if (agg_upd_fn(node, &key, BT_EXISTED, nullptr) != 1) {
        err_print(
            "perf_log : failed updating aggregation - level[%d] opcode[%d](%s) opflags[%#x] program[%s] "
            "filename[%s] lineno[%d] obj_type[%s] db_num[%ld]\n",
            key.level, event.opcode, text_or_empty(event.opname), event.opflags, text_or_empty(event.program),
            text_or_empty(event.file), event.line, text_or_empty(event.obj_type), event.db);
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
    agg_node key;
    fill_end_key(key, context, event, frame, cost);
    if (is_aggregated(context)) {
        update_node(context, event, frame.node, key, "EXIT");
    }
    if (context.single_tree_active) {
        key.single_trace = 1;
        update_node(context, event, frame.single_node, key, "EXIT-SINGLE");
    }
    if (own_totals_in_use(frame)) {
        add_to_own_totals(frame.own, key.main);
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

void flush_between_operations(log_context& context, int64_t now_tv)
{
    if (!logs_to_file(context.time_mode) || context.depth >= 0) {
        return;
    }
    if (context.flush_requested.load(std::memory_order_relaxed) ||
        due_time(context.trace.next_flush_tv) <= now_tv) {
        flush_aggregation_tree(&context);
        context.flush_requested = false;
    }
}

void end_open_frame(log_context& context, const op_event& event)
{
    call_frame& frame = context.frames[context.depth];
    const call_cost cost = measure_call(context, frame, event);
    if (is_aggregated(context) || context.single_tree_active) {
        merge_into_nodes(context, frame, event, cost);
    }
    if (context.depth == 0) {
        const ended_call ended{event.opname, event.file, event.line};
        raise_final_alarm(context, ended, whole_elapsed_tv(frame, cost), event.now_tv);
    }
    trace_flist(context, event, flist_direction::out);
    if (context.depth == 0 && context.single_tree_active) {
        return_single_tree(context, event);
    }
    --context.depth;
    flush_between_operations(context, event.now_tv);
    clear_frame(frame);
}

void log_end(log_context& context, const op_event& event)
{
    if (context.depth >= max_call_frames) {
        --context.depth; // it never had a frame
    } else if (context.depth >= 0) {
        end_open_frame(context, event);
    } else {
        // An end without a start: nothing to measure, but it is shown, and what is due is flushed.
        trace_flist(context, event, flist_direction::out);
        flush_between_operations(context, event.now_tv);
    }
}

} // namespace
} // namespace ostrum

void write_log(ostrum::log_context* context, const ostrum::op_event* event)
{
    using namespace ostrum;
    op_event timed;
    if (event->now_tv < 1) {
        timed = *event;
        timed.now_tv = os::realtime_ns();
        event = &timed;
    }
    const timeout_nesting_scope nesting;
    if (event->phase == op_phase::start) {
        log_start(*context, *event);
    } else {
        log_end(*context, *event);
    }
}
