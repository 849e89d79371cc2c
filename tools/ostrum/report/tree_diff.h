#ifndef OSTRUM_TOOL_REPORT_TREE_DIFF_H
#define OSTRUM_TOOL_REPORT_TREE_DIFF_H
// Two profiles laid over one another, path by path.
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "report/profile.h"

namespace ostrum_tool {

using diff_metric = path_figure; // those that can be compared

inline constexpr std::array<named_value<diff_metric>, 7> diff_metrics{{{"average", diff_metric::average},
                                                                       {"total", diff_metric::total},
                                                                       {"self", diff_metric::self},
                                                                       {"max", diff_metric::max},
                                                                       {"cpu", diff_metric::cpu},
                                                                       {"calls", diff_metric::calls},
                                                                       {"errors", diff_metric::errors}}};

diff_metric diff_metric_named(const std::string& name); // the value of --metric; throws usage_error
bool is_duration(diff_metric metric);

struct path_figures {
    bool present = false;
    totals sums;
    int64_t total_tv = 0, self_tv = 0;

    [[nodiscard]] int64_t value(diff_metric metric) const
    {
        return value_of(metric, sums, total_tv, self_tv);
    }
};

struct path_pair {
    path_figures before, after;

    [[nodiscard]] bool in_both() const { return before.present && after.present; }
    [[nodiscard]] const char* state() const; // "new", "gone" or ""
    // A path that one side lacks counts as 0 there.
    [[nodiscard]] int64_t change(diff_metric metric) const;
    // Nothing when the first side is 0 or lacks the path.
    [[nodiscard]] std::optional<double> change_percent(diff_metric metric) const;
};

struct tree_diff {
    call_profile both;            // the tree of all paths; its sums are those of both sides together
    std::vector<path_pair> pairs; // by node
};

tree_diff diff_of(const call_profile& before, const call_profile& after);

// Siblings by the size of their change, largest first.
std::vector<node_index> children_by_change(const tree_diff& diff, node_index parent, diff_metric metric);

} // namespace ostrum_tool
#endif
