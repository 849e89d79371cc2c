#ifndef OSTRUM_TOOL_READERS_CALL_TREE_H
#define OSTRUM_TOOL_READERS_CALL_TREE_H
// The call tree of any number of trace files: one node per call path, with the sums of all its records.
// Nodes refer to one another by index, so that nothing here recurses, however deep the input is.
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "readers/trace_record.h"

namespace ostrum_tool {

// What makes two records of one parent the same path. The texts are the tree's own once it is in a node.
struct path_key {
    std::string_view opname, program, fname, obj_type;
    int64_t db_num = 0;
    int32_t opcode = 0;
    int32_t flags = 0;
    int32_t lineno = 0;
    bool is_group = false; // no operation but what stands above them: a thread, a process, a period

    bool operator==(const path_key& other) const = default;
};

struct totals {
    int64_t calls = 0;
    int64_t errors = 0;
    int64_t recs = 0;
    int64_t total_tv = 0;
    int64_t min_tv = 0; // shortest error-free call; 0 = none
    int64_t max_tv = 0;
    int64_t user_cpu_tv = 0;
    int64_t sys_cpu_tv = 0;
    int64_t cached_calls = 0;
    int64_t cached_tv = 0;

    void add(const figures& record);
    void add(const totals& other);
    [[nodiscard]] int64_t average_tv() const { return calls > 0 ? total_tv / calls : 0; }
    [[nodiscard]] int64_t cpu_tv() const; // user and system
};

struct duration_bucket {
    int64_t from_tv = 0; // ns, [from, to); 0 = open
    int64_t to_tv = 0;
    totals sums;
};

using node_index = uint32_t;

struct call_node {
    path_key key;
    node_index parent = 0;
    int32_t depth = 0; // 0: under the root
    totals sums;
    std::vector<duration_bucket> buckets; // ascending by bounds, no two alike
};

class call_tree {
public:
    static constexpr node_index root = 0; // stands for all the input; has no figures of its own
    // Beyond so many paths all further ones are one, so that no input takes all the memory.
    static constexpr size_t max_nodes = 1'000'000;
    static constexpr size_t max_buckets = 1'024; // of a path, for the same reason

    call_tree();
    call_tree(call_tree&&) = default; // nodes refer to texts, which moving leaves in their place
    call_tree& operator=(call_tree&&) = default;
    call_tree(const call_tree&) = delete; // merge() copies
    call_tree& operator=(const call_tree&) = delete;
    ~call_tree() = default;

    // The node of that path under the parent, made on first use.
    node_index child(node_index parent, const path_key& key);
    void add_bucket(node_index node, int64_t from_tv, int64_t to_tv, const totals& sums);
    // Gives where each node of the other tree is in this one.
    std::vector<node_index> merge(const call_tree& other);

    [[nodiscard]] totals& sums(node_index index) { return nodes_[index].sums; }
    [[nodiscard]] const call_node& at(node_index index) const { return nodes_[index]; }
    [[nodiscard]] size_t size() const { return nodes_.size(); } // parents stand before their children
    [[nodiscard]] bool is_full() const { return overflowed_; }

private:
    [[nodiscard]] size_t slot_of(node_index parent, const path_key& key) const;
    node_index add_node(node_index parent, const path_key& key);
    void grow_slots();
    std::string_view own(std::string_view text);

    std::deque<call_node> nodes_;
    std::vector<node_index> slots_; // open addressing; 0 = free
    std::deque<std::string> texts_;
    std::unordered_map<std::string_view, std::string_view> own_texts_;
    bool overflowed_ = false;
};

// Sums of hostile input must not overflow; a sum that does stays at its limit.
void add_bounded(int64_t& sum, int64_t amount);

} // namespace ostrum_tool
#endif
