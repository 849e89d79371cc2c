#ifndef OSTRUM_PERF_LOG_AGGREGATION_CALL_FRAME_H
#define OSTRUM_PERF_LOG_AGGREGATION_CALL_FRAME_H
// One level of a context's call stack: an operation in progress.
#include <cstdint>

#include "perf_log/aggregation/agg_node.h"

namespace ostrum {

inline constexpr int32_t max_call_frames = 100;

struct call_frame {
    int64_t start_tv;       // ns since the epoch; since the last flush inside the call, if there was one
    int64_t first_start_tv; // start_tv before the first such flush; 0 = none
    int64_t user_cpu_tv;    // of the process at the start; 0 when CPU time is not measured here
    int64_t sys_cpu_tv;
    void* in_flist; // the host's; destroyed with the frame when owned
    bool owns_in_flist;
    uint32_t opcode;
    uint32_t opflags;
    uint32_t sequence;     // of the operation in its context
    uint64_t key_hash;     // 0 = not aggregated
    agg_node* node;        // of this path in the aggregation tree, which owns it
    agg_node* single_node; // the same in the single-operation tree
    total_record own;      // parts of this call that were flushed before it ended; total_calls is
                           // start_marker while there are none
};

inline bool own_totals_in_use(const call_frame& frame)
{
    return frame.own.total_calls != start_marker;
}

} // namespace ostrum

extern "C" {
// The update callback of bt_insert for trees of nodes. Status 2: makes a node of the copied key; its
// counts come with the end of the call. Status 3: merges the key into the node. Also called directly, with
// status 3, by those who hold the node already. Returns 1, or 0 after one diagnostic line.
int32_t agg_upd_fn(void* node, const void* key, uint32_t status, void** out);

// Adds the totals of calls to a duration bucket.
void agg_update_bucket_totals(ostrum::total_record* bucket, const ostrum::total_record* added);

// Finds or inserts the path of the key at its level, below the node that the stack holds for the level
// above, and notes it in the stack. Returns 2 (new path), 3 (known path) or, after a diagnostic line, 0.
uint32_t insert_agg_node(bt_tree* root, ostrum::call_frame* stack, const ostrum::agg_node* key, int32_t level,
                         ostrum::agg_node** out);
}
#endif
