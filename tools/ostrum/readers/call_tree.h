#ifndef OSTRUM_TOOL_READERS_CALL_TREE_H
#define OSTRUM_TOOL_READERS_CALL_TREE_H
// The call tree of any number of trace files: one node per call path, with the sums of all its records.
// Nodes refer to one another by index, so that nothing here recurses, however deep the input is.
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <tuple>
#include <utility>

#include "readers/trace_record.h"

namespace ostrum_tool {

// What makes two records of one parent the same path.
struct path_key {
    int32_t opcode = 0;
    std::string opname;
    int32_t flags = 0;
    std::string program;
    std::string fname;
    int32_t lineno = 0;
    std::string obj_type;
    int64_t db_num = 0;

    bool operator<(const path_key& other) const
    {
        const auto parts = [](const path_key& key) {
            return std::tie(key.opcode, key.opname, key.flags, key.program, key.fname, key.lineno,
                            key.obj_type, key.db_num);
        };
        return parts(*this) < parts(other);
    }
};

struct totals {
    int64_t calls = 0;
    int64_t errors = 0;
    int64_t recs = 0;
    int64_t total_tv = 0;
    int64_t min_tv = 0; // 0 = no call without error
    int64_t max_tv = 0;
    int64_t user_cpu_tv = 0;
    int64_t sys_cpu_tv = 0;

    void add(const figures& record);
    [[nodiscard]] int64_t average_tv() const { return calls > 0 ? total_tv / calls : 0; }
};

using bucket_bounds = std::pair<int64_t, int64_t>; // ns, [start, end); 0 = open
using node_index = size_t;

struct call_node {
    path_key key;
    node_index parent = 0;
    totals sums;
    std::map<bucket_bounds, totals> buckets;
    std::map<path_key, node_index> children;
};

class call_tree {
public:
    static constexpr node_index root = 0; // stands for all the input; has no figures of its own

    call_tree() { nodes_.emplace_back(); }

    // The node of that path under the parent, made on first use.
    node_index child(node_index parent, const path_key& key);

    [[nodiscard]] call_node& at(node_index index) { return nodes_[index]; }
    [[nodiscard]] const call_node& at(node_index index) const { return nodes_[index]; }

    [[nodiscard]] int64_t children_tv(node_index index) const;
    // Time not spent in the recorded callees; never below 0.
    [[nodiscard]] int64_t self_tv(node_index index) const;

private:
    std::deque<call_node> nodes_;
};

} // namespace ostrum_tool
#endif
