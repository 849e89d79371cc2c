#ifndef OSTRUM_PERF_LOG_OPERATION_OPERATION_START_H
#define OSTRUM_PERF_LOG_OPERATION_OPERATION_START_H
// The start of an operation, for the hooks to take in: pushes its frame and leads it to its node. The caller
// holds the context's lock. The stack stays balanced whatever fails.
//
// Most calls are plain: aggregated on a path that is known, and nothing else. Their whole way is here and in
// operation_end.h; everything else goes on in operation_in_full.cpp.
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/operation_in_full.h"
#include "perf_log/operation/operation_state.h"
#include "perf_log/operation/outermost_checks.h"
#include "perf_log/operation/timeout_nesting.h"
#include "util/text.h"

namespace ostrum {

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

} // namespace ostrum
#endif
