#ifndef OSTRUM_PERF_LOG_OPERATION_OPERATION_END_H
#define OSTRUM_PERF_LOG_OPERATION_OPERATION_END_H
// The end of an operation, for the hooks to take in: measures it, merges it into its node and flushes the
// context's tree when that is due. The caller holds the context's lock.
#include <algorithm>

#include "host_abi/host_opcodes.h"
#include "perf_log/aggregation/node_update.h"
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/operation_in_full.h"
#include "perf_log/operation/operation_state.h"
#include "perf_log/operation/timeout_nesting.h"

namespace ostrum {

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
