#ifndef OSTRUM_PERF_LOG_OPERATION_OUTERMOST_CHECKS_H
#define OSTRUM_PERF_LOG_OPERATION_OUTERMOST_CHECKS_H
#include "perf_log/context/log_context.h"

namespace ostrum {

// What is looked at when an outermost operation starts: the operators' variables, a new aggregation
// period, and whether the trace file must be flushed, closed or opened. The caller holds the lock.
void check_at_outermost_start(log_context& context, int32_t opcode, int64_t now_tv);

} // namespace ostrum
#endif
