#ifndef OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#define OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
// The decision routine behind every hook: keeps the call stack and decides what of the call is aggregated,
// traced and counted, and when the context's tree is flushed. The caller holds the context's lock. The stack
// stays balanced whatever fails.
//
// Most calls are plain: aggregated on a path that is known, and nothing else. Their whole way is here, for
// the hooks to take in; everything else goes on in write_log.cpp, which gets a copy of the event, so that a
// plain call need not put one together.
#include <algorithm>

#include "config/settings.h"
#include "host_abi/host_opcodes.h"
#include "perf_log/aggregation/node_update.h"
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/outermost_checks.h"
#include "perf_log/operation/timeout_nesting.h"
#include "process_metrics/cpu_usage.h"
#include "util/diagnostics.h"
#include "util/text.h"

extern "C" {
// Both halves by the event's phase. An event without a time gets the present one.
void write_log(ostrum::log_context* context, const ostrum::op_event* event);
}

namespace ostrum {

// Elapsed and CPU time of a call that ends.
struct call_cost {
    int64_t elapsed_tv = 0;
    cpu_times cpu;
};

// ---- the rest of the way, for calls that are not plain ----

void start_in_full(log_context& context, op_event event); // numbered already
void end_in_full(log_context& context, op_event event);
void report_failed_update(const log_context& context, op_event event);
void flush_tree_now(log_context& context);

// ---- what both halves ask ----

inline bool is_outermost(const log_context& context)
{
    return context.depth == 0 || (context.depth == 1 && context.grouped_transaction);
}

// Whether the call at this depth is aggregated and nothing else is done with it.
[[gnu::always_inline]] inline bool is_plain(const log_context& context)
{
    return is_aggregated(context) && context.flist_mode <= 0 && !context.single_tree_active &&
           configured().collect_cpu_levels <= context.depth && !debug_on(debug_fine);
}

inline int32_t live_counter_options(const log_context& context)
{
    return context.time_mode | (context.grouped_transaction ? live_counter_two_levels : 0);
}

// ---- start ----

[[gnu::always_inline]] inline path_identity identity_of(const op_event& event)
{
    return {event.opcode,
            static_cast<int32_t>(event.opflags),
            event.line,
            event.db,
            text_or_empty(event.program),
            text_or_empty(event.opname),
            text_or_empty(event.file),
            text_or_empty(event.obj_type)};
}

// Where the nodes of this level are; no tree below a caller that has called nothing yet.
[[gnu::always_inline]] inline path_place place_of_level(const log_context& context)
{
    const trace_source& trace = context.trace;
    if (context.depth == 0) {
        return {trace.tree, trace.tree_generation};
    }
    const agg_node* caller = context.frames[context.depth - 1].node;
    return {caller != nullptr ? caller->sub_opcode_tree : nullptr, trace.tree_generation};
}

[[gnu::always_inline]] inline agg_node* find_known_path(log_context& context, const op_event& event)
{
    return find_path(context.index, place_of_level(context), identity_of(event));
}

[[gnu::always_inline]] inline void begin_frame(log_context& context, const op_event& event,
                                               const cpu_times& cpu)
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

[[gnu::always_inline]] inline void enter_node(call_frame& frame, const op_event& event, agg_node& node)
{
    node.caller_ref_1 = reinterpret_cast<uintptr_t>(event.in_flist);
    frame.node = &node;
    frame.key_hash = node.hash_code;
}

inline void number_operation(log_context& context)
{
    context.current_sequence = ++context.operation_sequence;
    if (context.depth == 0) {
        context.top_sequence = context.current_sequence;
    }
}

[[gnu::always_inline]] inline void log_operation_start(log_context& context, const op_event& event)
{
    const timeout_nesting_scope nesting;
    if (++context.depth >= max_call_frames) {
        return; // counted, without a frame
    }
    if (is_outermost(context)) {
        check_at_outermost_start(context, event.opcode, event.now_tv);
    }
    number_operation(context);
    agg_node* node = is_plain(context) ? find_known_path(context, event) : nullptr;
    if (node == nullptr) [[unlikely]] {
        start_in_full(context, member_by_member(event));
        return;
    }
    begin_frame(context, event, {});
    enter_node(context.frames[context.depth], event, *node);
}

// ---- end ----

inline bool is_recorded_error(const op_event& event, int32_t depth)
{
    if (event.ebuf == nullptr || event.ebuf->errnum == 0) {
        return false;
    }
    return depth == 0 || !contains(usual_nested_errors, event.ebuf->errnum);
}

[[gnu::always_inline]] inline total_record totals_of(const op_event& event, int32_t level,
                                                     const call_cost& cost)
{
    const bool cache_hit = (event.end_flags & end_flag_cache_hit) != 0;
    return {.total_tv = cost.elapsed_tv,
            .min_tv = cost.elapsed_tv,
            .max_tv = cost.elapsed_tv,
            .cm_cache_tv = cache_hit ? cost.elapsed_tv : 0,
            .total_recs = event.record_count,
            .total_calls = 1,
            .total_errors = is_recorded_error(event, level) ? 1 : 0,
            .cm_cache_calls = cache_hit ? 1 : 0,
            .user_cpu_tv = cost.cpu.user_tv,
            .sys_cpu_tv = cost.cpu.sys_tv,
            .bs_tv = 0,
            .be_tv = 0,
            .next = nullptr};
}

inline int64_t elapsed_since_start(const call_frame& frame, const op_event& event)
{
    return std::max<int64_t>(event.now_tv - frame.start_tv, 0);
}

[[gnu::always_inline]] inline addition_details details_of(const log_context& context, const op_event& event,
                                                          const call_frame& frame)
{
    return {.bucket_source = own_totals_in_use(frame) ? &frame.own : nullptr,
            .caller_ref_1 = reinterpret_cast<uintptr_t>(event.in_flist),
            .caller_ref_2 = reinterpret_cast<uintptr_t>(event.out_flist),
            .err_info = event.ebuf != nullptr ? &event.ebuf->location : nullptr,
            .level = context.depth,
            .log_time = live_counter_options(context),
            .single_trace = false,
            .counts_in_buckets = true};
}

[[gnu::always_inline]] inline void merge_into_node(const log_context& context, const op_event& event,
                                                   const call_frame& frame, const call_cost& cost)
{
    if (!add_to_node(*frame.node, totals_of(event, context.depth, cost), details_of(context, event, frame)))
        [[unlikely]] {
        report_failed_update(context, member_by_member(event));
    }
}

[[gnu::always_inline]] inline void flush_between_operations(log_context& context, int64_t now_tv)
{
    const bool due = context.flush_requested.load(std::memory_order_relaxed) ||
                     due_time(context.trace.next_flush_tv) <= now_tv;
    if (context.depth < 0 && due && logs_to_file(context.time_mode)) [[unlikely]] {
        flush_tree_now(context);
    }
}

[[gnu::always_inline]] inline void log_operation_end(log_context& context, const op_event& event)
{
    const timeout_nesting_scope nesting;
    const bool has_frame = context.depth >= 0 && context.depth < max_call_frames;
    if (!has_frame || !is_plain(context) || context.alarm_at != nullptr) [[unlikely]] {
        end_in_full(context, member_by_member(event));
        return;
    }
    call_frame& frame = context.frames[context.depth];
    if (frame.node == nullptr || own_totals_in_use(frame)) [[unlikely]] {
        end_in_full(context, member_by_member(event));
        return;
    }
    context.current_sequence = frame.sequence;
    merge_into_node(context, event, frame, {elapsed_since_start(frame, event), {}});
    --context.depth;
    flush_between_operations(context, event.now_tv);
    clear_frame(frame);
}

// ---- nested calls that nothing records ----

// Whether nested calls leave nothing behind but their place on the stack; a hook need then not look at
// what it was told.
inline bool nested_calls_pass(const log_context& context)
{
    return !logs_to_file(context.time_mode) && context.flist_mode <= 0 && !context.single_tree_active &&
           !context.grouped_transaction;
}

// Counts a nested start that passes. False: it is one that log_operation_start must see.
inline bool pass_start(log_context& context)
{
    if (context.depth < 0 || !nested_calls_pass(context)) {
        return false;
    }
    const timeout_nesting_scope nesting;
    if (++context.depth < max_call_frames) {
        context.current_sequence = ++context.operation_sequence;
    }
    return true;
}

// The end of a nested call that passed. False: it is one that log_operation_end must see.
inline bool pass_end(log_context& context)
{
    if (context.depth < 1 || context.depth >= max_call_frames || !nested_calls_pass(context) ||
        context.frames[context.depth].start_tv != 0) {
        return false;
    }
    const timeout_nesting_scope nesting;
    context.current_sequence = context.frames[context.depth].sequence;
    --context.depth;
    return true;
}

} // namespace ostrum
#endif
