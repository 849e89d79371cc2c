#ifndef OSTRUM_PERF_LOG_AGGREGATION_NODE_UPDATE_H
#define OSTRUM_PERF_LOG_AGGREGATION_NODE_UPDATE_H
// What nodes take in of calls that have ended. Here, and not behind a call, for the hooks: what an end leaves
// behind as a rule is a few additions.
#include <cstdint>

#include "config/settings.h"
#include "data_file/counters.h"
#include "perf_log/aggregation/agg_node.h"

namespace ostrum {

// What comes with the totals of calls that a node takes in: as a rule of one call, or of the part of it since
// the last flush inside it.
struct addition_details {
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
[[gnu::always_inline]] inline void add_totals(total_record& totals, const total_record& added)
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

// A copy that does not make the compiler keep the original in memory, as copying the whole would.
[[gnu::always_inline]] inline total_record member_by_member(const total_record& totals)
{
    return {.total_tv = totals.total_tv,
            .min_tv = totals.min_tv,
            .max_tv = totals.max_tv,
            .cm_cache_tv = totals.cm_cache_tv,
            .total_recs = totals.total_recs,
            .total_calls = totals.total_calls,
            .total_errors = totals.total_errors,
            .cm_cache_calls = totals.cm_cache_calls,
            .user_cpu_tv = totals.user_cpu_tv,
            .sys_cpu_tv = totals.sys_cpu_tv,
            .bs_tv = 0,
            .be_tv = 0,
            .next = nullptr};
}

// The parts that go out of the way; they take copies.
void count_in_new_live_counter(agg_node& node, int32_t log_time, total_record added);
void count_error(const agg_node& node, int64_t errors, const uint32_t* err_info);
// False, after a diagnostic line, when memory for a bucket is short.
bool add_to_bucket(agg_node& node, int64_t elapsed_tv, total_record added);

// The outermost calls, and the next level of grouped transactions.
[[gnu::always_inline]] inline bool is_counted_in_file(const addition_details& details)
{
    const int32_t deepest = (details.log_time & live_counter_two_levels) != 0 ? 1 : 0;
    return !details.single_trace && details.level <= deepest;
}

[[gnu::always_inline]] inline void count_in_file(agg_node& node, const total_record& added,
                                                 const addition_details& details)
{
    if ((details.log_time & live_counter_on) != 0) {
        if (node.live_counter != nullptr) [[likely]] {
            rt_counter_update(node.live_counter, added.total_calls, added.total_errors, added.total_recs,
                              added.total_tv, added.user_cpu_tv, added.sys_cpu_tv);
        } else {
            count_in_new_live_counter(node, details.log_time, member_by_member(added));
        }
    }
    if (added.total_errors > 0 && configured().error_counter_level != 0) {
        count_error(node, added.total_errors, details.err_info);
    }
}

// Merges the totals (bounds and `next` unused) into the node, its duration bucket and, at the levels that
// have them, into the counters of the data file. False, after a diagnostic line, when memory for a bucket is
// short.
[[gnu::always_inline]] inline bool add_to_node(agg_node& node, const total_record& added,
                                               const addition_details& details)
{
    node.caller_ref_1 = details.caller_ref_1;
    node.caller_ref_2 = details.caller_ref_2;
    add_totals(node.main, added);
    if (is_counted_in_file(details)) {
        count_in_file(node, added, details);
    }
    const opcode_buckets* buckets = node.bucket_def;
    if (buckets == nullptr || buckets->threshold_count < 0 || !details.counts_in_buckets) {
        return true;
    }
    const total_record* source = details.bucket_source;
    return add_to_bucket(node, source != nullptr ? source->total_tv : added.total_tv,
                         member_by_member(added));
}

} // namespace ostrum

extern "C" {
// The update callback of bt_insert for trees of nodes. BT_INSERTED: makes a node of the copied key; its
// counts come with the end of the call. BT_EXISTED: merges the key into the node; hooks merge without a key,
// so that only keys of starts come here from this library. Returns 1, or 0 after one diagnostic line.
int32_t agg_upd_fn(void* node, const void* key, uint32_t status, void** out);

// Adds the totals of calls to a duration bucket. Kept on purpose; nothing here calls it.
void agg_update_bucket_totals(ostrum::total_record* bucket, const ostrum::total_record* added);
}
#endif
