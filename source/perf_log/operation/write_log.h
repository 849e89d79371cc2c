#ifndef OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
#define OSTRUM_PERF_LOG_OPERATION_WRITE_LOG_H
// Start or end of an operation, as the event's phase says. The hooks take in the two halves themselves.
#include "perf_log/context/log_context.h"
#include "perf_log/operation/op_event.h"

extern "C" {
// An event without a time gets the present one. The caller holds the context's lock.
void write_log(ostrum::log_context* context, const ostrum::op_event* event);
}
#endif
