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
    void* in_flist;     // the host's; destroyed with the frame when owned
    bool owns_in_flist; // kept on purpose: nothing sets it in this build
    uint32_t opcode;
    uint32_t opflags;
    uint32_t sequence;     // of the operation in its context
    uint64_t key_hash;     // 0 = not aggregated; kept on purpose: nothing here reads it
    agg_node* node;        // of this path in the aggregation tree, which owns it
    agg_node* single_node; // the same in the single-operation tree
    total_record own;      // parts of this call that were flushed before it ended; total_calls is
                           // start_marker while there are none
};

inline bool own_totals_in_use(const call_frame& frame)
{
    return frame.own.total_calls != start_marker;
}

// Also of a call whose parts were flushed while it went on.
inline int64_t begin_of_whole_call(const call_frame& frame)
{
    return frame.first_start_tv != 0 ? frame.first_start_tv : frame.start_tv;
}

} // namespace ostrum
#endif
