#include "report/profile.h"

#include <algorithm>
#include <array>
#include <map>
#include <tuple>

#include <re2/re2.h>

#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

void relate(call_profile& profile)
{
    const call_tree& tree = profile.tree;
    profile.children.resize(tree.size());
    for (node_index index = 1; index < tree.size(); ++index) {
        profile.children[tree.at(index).parent].push_back(index);
    }
}

// Sums over the callees, which have higher numbers than their callers.
void sum_up(call_profile& profile)
{
    const call_tree& tree = profile.tree;
    std::vector<int64_t> callees_tv(tree.size());
    profile.total_tv.resize(tree.size());
    profile.self_tv.resize(tree.size());
    for (size_t left = tree.size(); left-- > 0;) {
        const call_node& node = tree.at(static_cast<node_index>(left));
        const bool stands_for_others = left == call_tree::root || node.key.is_group;
        const int64_t total_tv = stands_for_others ? callees_tv[left] : node.sums.total_tv;
        int64_t self_tv = 0;
        profile.total_tv[left] = total_tv;
        profile.self_tv[left] =
            __builtin_sub_overflow(total_tv, callees_tv[left], &self_tv) ? 0 : std::max<int64_t>(self_tv, 0);
        if (left != call_tree::root) {
            add_bounded(callees_tv[node.parent], total_tv);
        }
    }
}

path_key operation_key(const path_key& key)
{
    path_key operation;
    operation.opcode = key.opcode;
    operation.opname = key.opname;
    return operation;
}

// Goes through a tree with, at each node, the counts of what is open above it.
class flattener {
public:
    explicit flattener(const call_profile& from) : from_(from) {}

    call_profile run()
    {
        std::vector<step> steps{{call_tree::root, call_tree::root, false}};
        while (!steps.empty()) {
            const step next = steps.back();
            steps.pop_back();
            if (next.leaves) {
                --open_[next.here];
                continue;
            }
            const node_index here = enter(next);
            if (from_.tree.at(next.node).depth >= 0 && !from_.tree.at(next.node).key.is_group) {
                steps.push_back({next.node, here, true});
            }
            const node_index group = from_.tree.at(next.node).key.is_group ? here : next.here;
            for (const node_index child : from_.children[next.node]) {
                steps.push_back({child, group, false});
            }
        }
        relate(flat_);
        return std::move(flat_);
    }

private:
    struct step {
        node_index node; // of the tree
        node_index here; // of the flat one: the group on entry, the operation when it is left
        bool leaves;
    };

    node_index enter(const step& next)
    {
        const call_node& node = from_.tree.at(next.node);
        const node_index here = next.node == call_tree::root ? call_tree::root
                                : node.key.is_group          ? flat_.tree.child(call_tree::root, node.key)
                                                    : flat_.tree.child(next.here, operation_key(node.key));
        open_.resize(flat_.tree.size());
        flat_.total_tv.resize(flat_.tree.size());
        flat_.self_tv.resize(flat_.tree.size());
        flat_.tree.sums(here).add(node.sums);
        for (const duration_bucket& bucket : node.buckets) {
            flat_.tree.add_bucket(here, bucket.from_tv, bucket.to_tv, bucket.sums);
        }
        add_bounded(flat_.self_tv[here], from_.self_tv[next.node]);
        const bool is_path = next.node != call_tree::root && !node.key.is_group;
        if (!is_path || open_[here]++ == 0) {
            add_bounded(flat_.total_tv[here], from_.total_tv[next.node]);
        }
        return here;
    }

    const call_profile& from_;
    call_profile flat_;
    std::vector<uint32_t> open_; // of each flat node: how many of its paths are open above
};

int64_t sort_value(const call_profile& profile, node_index index, sort_key key)
{
    return key ? value_of(*key, profile.tree.at(index).sums, profile.total_tv[index], profile.self_tv[index])
               : 0;
}

auto order_of(const path_key& key)
{
    return std::tie(key.opname, key.opcode, key.flags, key.program, key.fname, key.lineno, key.obj_type,
                    key.db_num);
}

// The parts of a path that a label may have to name, as it names them.
using detail_texts = std::array<std::string, 5>;

detail_texts details_of(const path_key& key)
{
    return {"flags " + std::to_string(key.flags), printable(key.program), source_text(key.fname, key.lineno),
            printable(key.obj_type), "db " + db_text(key.db_num)};
}

// A name for each child of one node: name and number, and where several share these, also the parts in
// which they differ.
std::vector<std::string> labels_of(const call_tree& tree, const std::vector<node_index>& siblings)
{
    struct namesakes {
        detail_texts first;
        std::array<bool, 5> differs;
    };
    std::map<std::pair<std::string_view, int32_t>, namesakes> groups;
    for (const node_index each : siblings) {
        const path_key& key = tree.at(each).key;
        const detail_texts details = details_of(key);
        namesakes& group = groups.try_emplace({key.opname, key.opcode}, namesakes{details, {}}).first->second;
        for (size_t at = 0; at < details.size(); ++at) {
            group.differs[at] = group.differs[at] || details[at] != group.first[at];
        }
    }
    std::vector<std::string> labels;
    labels.reserve(siblings.size());
    for (const node_index each : siblings) {
        const path_key& key = tree.at(each).key;
        const namesakes& group = groups.at({key.opname, key.opcode});
        const detail_texts own = details_of(key);
        std::string details;
        for (size_t at = 0; at < own.size(); ++at) {
            if (group.differs[at] && !own[at].empty()) {
                details += (details.empty() ? "" : ", ") + own[at];
            }
        }
        labels.push_back(operation_text(key.opname, key.opcode) +
                         (details.empty() ? "" : " [" + details + "]"));
    }
    return labels;
}

} // namespace

call_profile profile_of(const call_tree& tree)
{
    call_profile profile;
    profile.tree.merge(tree);
    relate(profile);
    sum_up(profile);
    return profile;
}

call_profile flat_profile_of(const call_profile& profile)
{
    return flattener(profile).run();
}

std::vector<bool> visible_nodes(const call_profile& profile, const view_filter& filter)
{
    const re2::RE2 pattern(filter.name_pattern, re2::RE2::Quiet);
    if (!pattern.ok()) {
        throw usage_error("pattern " + filter.name_pattern + ": " + pattern.error());
    }
    const call_tree& tree = profile.tree;
    std::vector<bool> matched(tree.size()); // or below one that matches
    std::vector<bool> visible(tree.size());
    for (node_index index = 1; index < tree.size(); ++index) {
        const call_node& node = tree.at(index);
        const bool all_groups = filter.name_pattern.empty() && filter.opcodes.empty();
        matched[index] = matched[node.parent] ||
                         ((!node.key.is_group || all_groups) &&
                          re2::RE2::PartialMatch({node.key.opname.data(), node.key.opname.size()}, pattern) &&
                          (filter.opcodes.empty() || std::find(filter.opcodes.begin(), filter.opcodes.end(),
                                                               node.key.opcode) != filter.opcodes.end()));
        visible[index] = matched[index] && profile.total_tv[index] >= filter.min_total_tv &&
                         (filter.max_depth == 0 || node.depth < filter.max_depth);
    }
    for (auto index = static_cast<node_index>(tree.size()); --index > 0;) {
        if (visible[index]) {
            visible[tree.at(index).parent] = true;
        }
    }
    return visible;
}

int64_t value_of(path_figure which, const totals& sums, int64_t total_tv, int64_t self_tv)
{
    switch (which) {
    case path_figure::total:
        return total_tv;
    case path_figure::self:
        return self_tv;
    case path_figure::calls:
        return sums.calls;
    case path_figure::errors:
        return sums.errors;
    case path_figure::records:
        return sums.recs;
    case path_figure::average:
        return sums.average_tv();
    case path_figure::max:
        return sums.max_tv;
    case path_figure::cpu:
        return sums.cpu_tv();
    }
    return 0;
}

std::vector<node_index> sorted_children(const call_profile& profile, node_index parent, sort_key key)
{
    std::vector<node_index> sorted = profile.children[parent];
    std::sort(sorted.begin(), sorted.end(), [&](node_index a, node_index b) {
        const int64_t value_a = sort_value(profile, a, key);
        const int64_t value_b = sort_value(profile, b, key);
        return value_a != value_b ? value_a > value_b
                                  : order_of(profile.tree.at(a).key) < order_of(profile.tree.at(b).key);
    });
    return sorted;
}

std::vector<labelled_node> shown_from_last(const call_tree& tree, std::vector<node_index> siblings,
                                           const std::vector<bool>& visible, size_t top)
{
    std::erase_if(siblings, [&](node_index each) { return !visible[each]; });
    if (top > 0 && siblings.size() > top) {
        siblings.resize(top);
    }
    std::vector<std::string> labels = labels_of(tree, siblings);
    std::vector<labelled_node> shown;
    for (size_t at = siblings.size(); at-- > 0;) {
        shown.push_back({siblings[at], std::move(labels[at])});
    }
    return shown;
}

} // namespace ostrum_tool
