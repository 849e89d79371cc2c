#ifndef OSTRUM_PERF_LOG_OPERATION_OPERATION_IN_FULL_H
#define OSTRUM_PERF_LOG_OPERATION_OPERATION_IN_FULL_H
// The way of a call that is not plain: traced, of a path that is not known, with CPU times or shown. Both
// halves take a copy of the event. Also what plain ends seldom need, out of their way. The caller holds the
// context's lock.
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"
#include "process_metrics/cpu_usage.h"

namespace ostrum {

// Elapsed and CPU time of a call that ends.
struct call_cost {
    int64_t elapsed_tv = 0;
    cpu_times cpu;
};

void start_in_full(log_context& context, op_event event); // numbered already
void end_in_full(log_context& context, op_event event);
void report_failed_update(const log_context& context, op_event event);
void flush_tree_now(log_context& context);

} // namespace ostrum
#endif
