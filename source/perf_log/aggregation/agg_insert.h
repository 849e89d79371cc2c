#ifndef OSTRUM_PERF_LOG_AGGREGATION_AGG_INSERT_H
#define OSTRUM_PERF_LOG_AGGREGATION_AGG_INSERT_H
#include <cstdint>

#include "perf_log/aggregation/call_frame.h"

extern "C" {
// Finds or inserts the path of the key at its level, below the node that the stack holds for the level
// above, and notes it in the stack. Returns BT_INSERTED, BT_EXISTED or, after a diagnostic line, BT_FAIL.
uint32_t insert_agg_node(bt_tree* root, ostrum::call_frame* stack, const ostrum::agg_node* key, int32_t level,
                         ostrum::agg_node** out);
}
#endif
