#include "report/tree_diff.h"

#include <algorithm>
#include <limits>

namespace ostrum_tool {
namespace {

void take_side(tree_diff& diff, const call_profile& from, path_figures path_pair::*side)
{
    const std::vector<node_index> place = diff.both.tree.merge(from.tree);
    diff.pairs.resize(diff.both.tree.size());
    for (node_index index = 1; index < from.tree.size(); ++index) {
        diff.pairs[place[index]].*
            side = {true, from.tree.at(index).sums, from.total_tv[index], from.self_tv[index]};
    }
}

uint64_t size_of(int64_t change)
{
    return change < 0 ? 0 - static_cast<uint64_t>(change) : static_cast<uint64_t>(change);
}

} // namespace

diff_metric diff_metric_named(const std::string& name)
{
    return value_named(diff_metrics, name, "cannot compare by ");
}

bool is_duration(diff_metric metric)
{
    return metric != diff_metric::calls && metric != diff_metric::errors;
}

const char* path_pair::state() const
{
    return in_both() ? "" : after.present ? "new" : "gone";
}

int64_t path_pair::change(diff_metric metric) const
{
    int64_t change = 0;
    const int64_t from = before.value(metric);
    return __builtin_sub_overflow(after.value(metric), from, &change)
               ? (from < 0 ? std::numeric_limits<int64_t>::max() : std::numeric_limits<int64_t>::min())
               : change;
}

std::optional<double> path_pair::change_percent(diff_metric metric) const
{
    const int64_t from = before.value(metric);
    if (!in_both() || from <= 0) {
        return std::nullopt;
    }
    return static_cast<double>(change(metric)) * 100.0 / static_cast<double>(from);
}

tree_diff diff_of(const call_profile& before, const call_profile& after)
{
    tree_diff diff;
    take_side(diff, before, &path_pair::before);
    take_side(diff, after, &path_pair::after);
    diff.both = profile_of(diff.both.tree);
    return diff;
}

std::vector<node_index> children_by_change(const tree_diff& diff, node_index parent, diff_metric metric)
{
    std::vector<node_index> sorted = sorted_children(diff.both, parent, path_figure::total);
    std::stable_sort(sorted.begin(), sorted.end(), [&](node_index a, node_index b) {
        return size_of(diff.pairs[a].change(metric)) > size_of(diff.pairs[b].change(metric));
    });
    return sorted;
}

} // namespace ostrum_tool
