#include "readers/call_tree.h"

#include <algorithm>
#include <limits>

namespace ostrum_tool {
namespace {

// Sums of hostile input must not overflow; a sum that does is shown at its limit.
void add_bounded(int64_t& sum, int64_t amount)
{
    if (__builtin_add_overflow(sum, amount, &sum)) {
        sum = amount > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    }
}

} // namespace

void totals::add(const figures& record)
{
    add_bounded(calls, record.total_calls);
    add_bounded(errors, record.total_errors);
    add_bounded(recs, record.total_recs);
    add_bounded(total_tv, record.total_tv);
    add_bounded(user_cpu_tv, record.user_cpu_tv);
    add_bounded(sys_cpu_tv, record.sys_cpu_tv);
    if (record.min_tv != 0 && (min_tv == 0 || record.min_tv < min_tv)) {
        min_tv = record.min_tv;
    }
    max_tv = std::max(max_tv, record.max_tv);
}

node_index call_tree::child(node_index parent, const path_key& key)
{
    const auto [place, added] = nodes_[parent].children.try_emplace(key, nodes_.size());
    const node_index index = place->second;
    if (added) {
        call_node& node = nodes_.emplace_back();
        node.key = key;
        node.parent = parent;
    }
    return index;
}

int64_t call_tree::children_tv(node_index index) const
{
    int64_t sum = 0;
    for (const auto& [key, child] : nodes_[index].children) {
        add_bounded(sum, nodes_[child].sums.total_tv);
    }
    return sum;
}

int64_t call_tree::self_tv(node_index index) const
{
    int64_t self = 0;
    const int64_t total = nodes_[index].sums.total_tv;
    return __builtin_sub_overflow(total, children_tv(index), &self) ? 0 : std::max<int64_t>(self, 0);
}

} // namespace ostrum_tool
