#ifndef OSTRUM_PERF_LOG_OPERATION_OPERATION_STATE_H
#define OSTRUM_PERF_LOG_OPERATION_OPERATION_STATE_H
// What both halves of an operation ask of its context. The caller holds the context's lock.
#include "config/settings.h"
#include "perf_log/context/log_context.h"
#include "util/diagnostics.h"

namespace ostrum {

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

// Whether nested calls leave nothing behind but their place on the stack; a hook need then not look at
// what it was told.
inline bool nested_calls_pass(const log_context& context)
{
    return !logs_to_file(context.time_mode) && context.flist_mode <= 0 && !context.single_tree_active &&
           !context.grouped_transaction;
}

} // namespace ostrum
#endif
