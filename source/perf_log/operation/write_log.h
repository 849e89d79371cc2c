#ifndef OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#define OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"

extern "C" {
// The decision routine behind every hook: keeps the call stack and decides what of the call is
// aggregated, traced and counted, and when the context's tree is flushed. The caller holds the context's
// lock. The stack stays balanced whatever fails.
void write_log(ostrum::log_context* context, const ostrum::op_event* event);
}
#endif
