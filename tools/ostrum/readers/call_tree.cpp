#include "readers/call_tree.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace ostrum_tool {
namespace {

constexpr size_t first_slots = 1'024; // a power of two

size_t mixed(size_t hash, size_t value)
{
    return (hash ^ value) * 0x9E3779B97F4A7C15U + (hash >> 29U);
}

size_t hash_of(node_index parent, const path_key& key)
{
    const std::hash<std::string_view> text;
    size_t hash = mixed(parent, static_cast<uint32_t>(key.opcode));
    for (const std::string_view part : {key.opname, key.program, key.fname, key.obj_type}) {
        hash = mixed(hash, text(part));
    }
    hash = mixed(hash, static_cast<uint32_t>(key.lineno));
    hash = mixed(hash, static_cast<uint32_t>(key.flags));
    hash = mixed(hash, static_cast<size_t>(key.db_num));
    return hash ^ (hash >> 32U);
}

path_key overflow_key()
{
    path_key key;
    key.opname = "(further paths)";
    return key;
}

} // namespace

void add_bounded(int64_t& sum, int64_t amount)
{
    if (__builtin_add_overflow(sum, amount, &sum)) {
        sum = amount > 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min();
    }
}

void totals::add(const totals& other)
{
    add_bounded(calls, other.calls);
    add_bounded(errors, other.errors);
    add_bounded(recs, other.recs);
    add_bounded(total_tv, other.total_tv);
    add_bounded(user_cpu_tv, other.user_cpu_tv);
    add_bounded(sys_cpu_tv, other.sys_cpu_tv);
    add_bounded(cached_calls, other.cached_calls);
    add_bounded(cached_tv, other.cached_tv);
    if (other.min_tv != 0 && (min_tv == 0 || other.min_tv < min_tv)) {
        min_tv = other.min_tv;
    }
    max_tv = std::max(max_tv, other.max_tv);
}

void totals::add(const figures& record)
{
    add(totals{record.total_calls, record.total_errors, record.total_recs, record.total_tv, record.min_tv,
               record.max_tv, record.user_cpu_tv, record.sys_cpu_tv, record.cm_cache_calls,
               record.cm_cache_tv});
}

int64_t totals::cpu_tv() const
{
    int64_t sum = user_cpu_tv;
    add_bounded(sum, sys_cpu_tv);
    return sum;
}

call_tree::call_tree() : slots_(first_slots)
{
    nodes_.emplace_back().depth = -1;
}

// The slot that holds the path, or the free one where it belongs.
size_t call_tree::slot_of(node_index parent, const path_key& key) const
{
    const size_t mask = slots_.size() - 1;
    for (size_t slot = hash_of(parent, key) & mask;; slot = (slot + 1) & mask) {
        const node_index found = slots_[slot];
        if (found == 0 || (nodes_[found].parent == parent && nodes_[found].key == key)) {
            return slot;
        }
    }
}

node_index call_tree::child(node_index parent, const path_key& key)
{
    const size_t slot = slot_of(parent, key);
    if (slots_[slot] != 0) {
        return slots_[slot];
    }
    if (nodes_.size() < max_nodes) {
        const node_index added = add_node(parent, key);
        slots_[slot] = added;
        grow_slots();
        return added;
    }
    overflowed_ = true;
    const size_t overflow = slot_of(root, overflow_key());
    if (slots_[overflow] == 0) {
        slots_[overflow] = add_node(root, overflow_key());
    }
    return slots_[overflow];
}

node_index call_tree::add_node(node_index parent, const path_key& key)
{
    call_node& node = nodes_.emplace_back();
    node.key = key;
    for (std::string_view* text :
         {&node.key.opname, &node.key.program, &node.key.fname, &node.key.obj_type}) {
        *text = own(*text);
    }
    node.parent = parent;
    node.depth = nodes_[parent].depth + 1;
    return static_cast<node_index>(nodes_.size() - 1);
}

void call_tree::grow_slots()
{
    if (nodes_.size() * 2 < slots_.size()) {
        return;
    }
    slots_.assign(slots_.size() * 2, 0);
    for (node_index index = 1; index < nodes_.size(); ++index) {
        slots_[slot_of(nodes_[index].parent, nodes_[index].key)] = index;
    }
}

std::string_view call_tree::own(std::string_view text)
{
    const auto found = own_texts_.find(text);
    if (found != own_texts_.end()) {
        return found->second;
    }
    const std::string_view kept = texts_.emplace_back(text);
    own_texts_.emplace(kept, kept);
    return kept;
}

void call_tree::add_bucket(node_index node, int64_t from_tv, int64_t to_tv, const totals& sums)
{
    std::vector<duration_bucket>& buckets = nodes_[node].buckets;
    const auto place = std::lower_bound(buckets.begin(), buckets.end(), std::pair(from_tv, to_tv),
                                        [](const duration_bucket& bucket, const auto& bounds) {
                                            return std::pair(bucket.from_tv, bucket.to_tv) < bounds;
                                        });
    if (place != buckets.end() && place->from_tv == from_tv && place->to_tv == to_tv) {
        place->sums.add(sums);
    } else if (buckets.size() < max_buckets) {
        buckets.insert(place, {from_tv, to_tv, sums});
    }
}

std::vector<node_index> call_tree::merge(const call_tree& other)
{
    std::vector<node_index> own_index(other.size());
    for (node_index index = 1; index < other.size(); ++index) {
        const call_node& node = other.at(index);
        const node_index here = own_index[index] = child(own_index[node.parent], node.key);
        nodes_[here].sums.add(node.sums);
        for (const duration_bucket& bucket : node.buckets) {
            add_bucket(here, bucket.from_tv, bucket.to_tv, bucket.sums);
        }
    }
    overflowed_ = overflowed_ || other.overflowed_;
    return own_index;
}

} // namespace ostrum_tool
