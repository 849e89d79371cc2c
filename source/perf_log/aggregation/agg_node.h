#ifndef OSTRUM_PERF_LOG_AGGREGATION_AGG_NODE_H
#define OSTRUM_PERF_LOG_AGGREGATION_AGG_NODE_H
// One call path of a context's aggregation tree: the record that the trees store and, with pointers in
// place of the text copies, the key that callers build on their stack. Trees of nodes are made with
// create_agg_tree(), or with sizeof(agg_node), __ostrum_agg_cmp_fn and __ostrum_agg_free_fn: their nodes are
// then blocks of the heap.
#include <cstddef>
#include <cstdint>
#include <memory>

#include "data_file/layout.h"
#include "ostrum_util.h"
#include "perf_log/buckets/bucket_file.h"

namespace ostrum {

// A total_calls of this value marks a key as the start of an operation, and a call frame's own totals as
// not in use.
inline constexpr int64_t start_marker = -1;

// Totals of one path, or of one of its duration buckets. Times in nanoseconds.
struct total_record {
    int64_t total_tv;       // sum of elapsed times
    int64_t min_tv;         // shortest error-free call; 0 = none yet
    int64_t max_tv;         // longest call
    int64_t cm_cache_tv;    // sum of elapsed times of calls served from the cache
    int64_t total_recs;     // sum of record counts
    int64_t total_calls;    // calls, or start_marker
    int64_t total_errors;   // calls that ended in error
    int64_t cm_cache_calls; // calls served from the cache
    int64_t user_cpu_tv;    // of the process, while the calls ran
    int64_t sys_cpu_tv;
    int64_t bs_tv;      // bucket: lower bound, inclusive; 0 for the first bucket and for paths
    int64_t be_tv;      // bucket: upper bound, exclusive; 0 for the last bucket and for paths
    total_record* next; // owned; next duration bucket, in the order of the bounds
};
static_assert(sizeof(total_record) == 104);

// Options of the live counter of a path (bits of the variable "time_on"; the last one is set by the
// library for grouped transactions).
enum live_counter_bits : int32_t {
    live_counter_on = 0x1,
    live_counter_by_line = 0x4,  // line number and file name are part of the counter's identity
    live_counter_by_flags = 0x8, // so are the operation's flags
    live_counter_two_levels = 0x10
};

struct agg_node {
    int32_t opcode; // 0 or below: known by name
    int32_t flags;
    int32_t level; // 0 = outermost
    uint32_t pid;
    uint64_t tid;
    char program[text_bytes]; // owned copies, cut to 127 characters; unset in a key
    char opname[text_bytes];
    char fname[text_bytes];
    int32_t lineno; // 0 = none
    char obj_type[text_bytes];
    int64_t db_num;
    const char* ptr_program; // in a key: the caller's texts; in a stored node: null
    const char* ptr_opname;
    const char* ptr_fname;
    const char* ptr_obj_type;
    uint64_t hash_code;
    int32_t count_in_buckets;          // in a key: 1 = sort this call into the buckets
    int32_t bucket_id;                 // positive: identifies a node without its texts; always 0 here
    int32_t log_time;                  // live_counter_bits
    int32_t single_trace;              // in a key: 1 = of the single-operation tree
    total_record main;                 // its `next` heads the bucket list
    const total_record* bucket_source; // in a key: whose total_tv chooses the bucket; null = main
    const opcode_buckets* bucket_def;  // null = no buckets
    uint64_t caller_ref_1;             // input field list of the last call
    uint64_t caller_ref_2;             // output field list of the last completed call
    counter_entry* live_counter;       // in the data file; null until the first completed call
    bt_tree* sub_opcode_tree;          // owned; operations called from this path; null = none yet
    const uint32_t* err_info;          // in a key: location, class, number of the call's error; null = none
};
static_assert(sizeof(agg_node) == 768);
static_assert(offsetof(agg_node, main) == 608);

// A new tree of nodes, which holds the memory of all its nodes and of the trees below them; null when memory
// is short.
bt_tree* create_agg_tree();

struct destroy_agg_tree {
    void operator()(bt_tree* tree) const { bt_destroy(tree); }
};
using agg_tree_ptr = std::unique_ptr<bt_tree, destroy_agg_tree>;

} // namespace ostrum

extern "C" {
// The key's hash_code, over its opcode (or name), line, file and object type, from the pointers alone.
uint64_t ostrum_hash_aggr_node(const ostrum::agg_node* key);
int32_t __ostrum_agg_cmp_fn(const void* key, const void* node);
void __ostrum_agg_free_fn(void* node);
}
#endif
