#ifndef OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#define OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"
#include "perf_log/operation/timeout_nesting.h"

extern "C" {
// The decision routine behind every hook: keeps the call stack and decides what of the call is
// aggregated, traced and counted, and when the context's tree is flushed. The caller holds the context's
// lock. The stack stays balanced whatever fails. An event without a time gets the present one.
void write_log(ostrum::log_context* context, const ostrum::op_event* event);
}

namespace ostrum {

// The two halves of write_log, for events that have a time.
void log_operation_start(log_context& context, const op_event& event);
void log_operation_end(log_context& context, const op_event& event);

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
