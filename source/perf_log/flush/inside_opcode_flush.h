#ifndef OSTRUM_PERF_LOG_FLUSH_INSIDE_OPCODE_FLUSH_H
#define OSTRUM_PERF_LOG_FLUSH_INSIDE_OPCODE_FLUSH_H
#include <cstdint>

#include "perf_log/context/log_context.h"

extern "C" {
// Flushes while operations are in progress: their time so far is charged to the tree that is written,
// without a call, and they go on in a fresh tree, where they are counted when they end. The caller holds
// the context's lock. Dormant: start-up refuses the setting that asks for it.
void inside_opcode_flush(ostrum::log_context* context, int64_t now_tv);
}
#endif
