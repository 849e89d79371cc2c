#ifndef OSTRUM_PERF_LOG_AGGREGATION_AGG_DUMP_H
#define OSTRUM_PERF_LOG_AGGREGATION_AGG_DUMP_H
#include "perf_log/aggregation/agg_node.h"

extern "C" {
// Debug listing of a node or key, only with debug bit 0x4.
void __ostrum_dump_agg_node(const ostrum::agg_node* node, const char* label);
}
#endif
