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

// What nodes take in of calls that have ended: as a rule one call, or the part of it since the last flush
// inside it.
struct node_addition {
    total_record totals;               // bounds and `next` unused
    const total_record* bucket_source; // whose total_tv chooses the bucket; null = totals
    uint64_t caller_ref_1;             // field lists of the call, as the node keeps them
    uint64_t caller_ref_2;
    const uint32_t* err_info; // location, class, number of the call's error; null = none
    int32_t level;
    int32_t log_time; // live_counter_bits
    bool single_trace;
    bool counts_in_buckets;
};

// Adds up; a call that ended in error never lowers the minimum.
inline void add_totals(total_record& totals, const total_record& added)
{
    totals.total_tv += added.total_tv;
    totals.cm_cache_tv += added.cm_cache_tv;
    totals.total_recs += added.total_recs;
    totals.total_calls += added.total_calls;
    totals.total_errors += added.total_errors;
    totals.cm_cache_calls += added.cm_cache_calls;
    totals.user_cpu_tv += added.user_cpu_tv;
    totals.sys_cpu_tv += added.sys_cpu_tv;
    if (added.total_errors == 0 && (totals.min_tv == 0 || totals.min_tv > added.min_tv)) {
        totals.min_tv = added.min_tv;
    }
    if (totals.max_tv < added.max_tv) {
        totals.max_tv = added.max_tv;
    }
}

inline bool has_buckets(const agg_node& node)
{
    return node.bucket_def != nullptr && node.bucket_def->threshold_count >= 0;
}

// Merges it into the node, its duration bucket and, at the levels that have them, into the counters of the
// data file. False, after a diagnostic line, when memory for a bucket is short.
bool add_to_node(agg_node& node, const node_addition& addition);
// What add_to_node does beside the node's own totals.
bool count_in_file_and_buckets(agg_node& node, const node_addition& addition);

// The deepest level whose calls are counted in the data file.
inline int32_t deepest_counted_level(int32_t log_time)
{
    return (log_time & live_counter_two_levels) != 0 ? 1 : 0;
}

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
