#include "flame/flame_graph.h"

#include <algorithm>
#include <functional>

#include <fmt/format.h>

#include "flame/flame_colours.h"
#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

std::vector<int64_t> widths_of(const call_tree& tree, const std::vector<path_pair>& pairs,
                               path_figures path_pair::*side)
{
    std::vector<int64_t> widths(tree.size());
    for (auto left = static_cast<node_index>(tree.size()); left-- > 0;) { // callees first
        add_bounded(widths[left], (pairs[left].*side).self_tv);
        if (left != call_tree::root) {
            add_bounded(widths[tree.at(left).parent], widths[left]);
        }
    }
    return widths;
}

std::string detail_of(const path_key& key)
{
    std::vector<std::string> parts{printable(key.program), source_text(key.fname, key.lineno),
                                   printable(key.obj_type)};
    if (key.db_num != 0) {
        parts.push_back("db " + db_text(key.db_num));
    }
    if (key.flags != 0) {
        parts.push_back(fmt::format("flags {:#x}", static_cast<uint32_t>(key.flags)));
    }
    std::erase(parts, "");
    return fmt::format("{}", fmt::join(parts, ", "));
}

class frame_maker {
public:
    frame_maker(const call_profile& profile, const std::vector<path_pair>& pairs,
                const flame_options& options)
        : profile_(profile), pairs_(pairs), options_(options),
          after_(widths_of(profile.tree, pairs, &path_pair::after)),
          before_(widths_of(profile.tree, pairs, &path_pair::before))
    {}

    flame_graph make(std::vector<bool> visible, bool compared)
    {
        graph_.compared = compared;
        leave_out_the_thinnest(visible);
        std::vector<step> pending{{call_tree::root, 0, "all"}};
        while (!pending.empty()) {
            const step next = std::move(pending.back());
            pending.pop_back();
            const auto number = static_cast<uint32_t>(graph_.frames.size());
            graph_.frames.push_back(frame_of(next));
            add_callees(next.node, number, visible, pending);
        }
        if (graph_.frames.size() == 1) {
            throw nothing_matched("nothing of what is left has any time");
        }
        return std::move(graph_);
    }

private:
    struct step {
        node_index node;
        uint32_t caller;
        std::string label;
    };

    [[nodiscard]] int64_t width(node_index node) const { return std::max(after_[node], before_[node]); }

    // A path is never wider than its caller, and behind it in the tree: where the limit cuts through paths
    // of one width, callers come before their callees.
    void leave_out_the_thinnest(std::vector<bool>& visible)
    {
        std::vector<int64_t> widths;
        for (node_index node = 1; node < visible.size(); ++node) {
            visible[node] = visible[node] && width(node) > 0;
            if (visible[node]) {
                widths.push_back(width(node));
            }
        }
        const size_t most = options_.max_frames;
        if (most == 0 || widths.size() <= most) {
            return;
        }
        graph_.left_out = static_cast<int64_t>(widths.size() - most);
        const auto limit = widths.begin() + static_cast<ptrdiff_t>(most - 1);
        std::nth_element(widths.begin(), limit, widths.end(), std::greater<>());
        auto as_wide = most - static_cast<size_t>(std::count_if(widths.begin(), limit,
                                                                [&](int64_t each) { return each > *limit; }));
        for (node_index node = 1; node < visible.size(); ++node) {
            if (visible[node] && width(node) <= *limit) {
                visible[node] = width(node) == *limit && as_wide > 0;
                as_wide -= visible[node] ? 1U : 0U;
            }
        }
    }

    void add_callees(node_index node, uint32_t number, const std::vector<bool>& visible,
                     std::vector<step>& pending) const
    {
        std::vector<node_index> callees = sorted_children(profile_, node, by_name);
        std::stable_sort(callees.begin(), callees.end(),
                         [&](node_index a, node_index b) { return width(a) > width(b); });
        for (labelled_node& each : shown_from_last(profile_.tree, std::move(callees), visible, 0)) {
            pending.push_back({each.node, number, std::move(each.label)});
        }
    }

    flame_frame frame_of(const step& place) const
    {
        flame_frame frame;
        frame.caller = place.caller;
        frame.label = place.label;
        frame.width_tv = after_[place.node];
        frame.before_width_tv = before_[place.node];
        if (place.node == call_tree::root) {
            frame.step = unchanged_step;
            return frame;
        }
        const path_key& key = profile_.tree.at(place.node).key;
        const path_pair& pair = pairs_[place.node];
        frame.depth = profile_.tree.at(place.node).depth + 1;
        frame.detail = detail_of(key);
        frame.after = pair.after;
        frame.before = pair.before;
        frame.shade = key.is_group ? -1 : shade_of(key.opname);
        frame.change_percent = pair.change_percent(options_.metric);
        frame.step = step_of(frame.change_percent.value_or(sign_of_change(pair) * much_percent));
        return frame;
    }

    // Without a percentage: new, gone, or nothing before.
    [[nodiscard]] int sign_of_change(const path_pair& pair) const
    {
        return !pair.after.present ? -1 : !pair.before.present ? 1 : pair.change(options_.metric) > 0 ? 1 : 0;
    }
    static constexpr double much_percent = 100;

    const call_profile& profile_;
    const std::vector<path_pair>& pairs_;
    const flame_options& options_;
    const std::vector<int64_t> after_, before_; // widths, by node
    flame_graph graph_;
};

} // namespace

flame_graph flame_graph_of(const call_profile& profile, const view_filter& filter,
                           const flame_options& options)
{
    std::vector<path_pair> pairs(profile.tree.size());
    for (node_index node = 1; node < pairs.size(); ++node) {
        pairs[node].after = {true, profile.tree.at(node).sums, profile.total_tv[node], profile.self_tv[node]};
    }
    return frame_maker(profile, pairs, options).make(visible_nodes(profile, filter), false);
}

flame_graph flame_graph_of(const tree_diff& diff, const view_filter& filter, const flame_options& options)
{
    return frame_maker(diff.both, diff.pairs, options).make(visible_nodes(diff.both, filter), true);
}

} // namespace ostrum_tool
