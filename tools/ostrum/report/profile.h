#ifndef OSTRUM_TOOL_REPORT_PROFILE_H
#define OSTRUM_TOOL_REPORT_PROFILE_H
// A call tree that no longer changes, with what follows from it: who calls whom, and what time is left to
// each path for itself. All vectors go by the tree's node numbers.
#include <array>
#include <optional>
#include <string>
#include <vector>

#include "cli/named_values.h"
#include "readers/call_tree.h"
#include "readers/view_filter.h"

namespace ostrum_tool {

struct call_profile {
    call_tree tree;
    std::vector<std::vector<node_index>> children;
    std::vector<int64_t> total_tv; // of a path its own; of a group or the root what stands below it
    std::vector<int64_t> self_tv;  // not spent in recorded callees; never below 0
};

call_profile profile_of(const call_tree& tree);

// One row for each operation, whatever calls it; under each group when there are groups. Inclusive times
// count an operation that calls itself once.
call_profile flat_profile_of(const call_profile& profile);

// A path that matches is shown with what stands above and below it. Throws usage_error for a bad pattern.
std::vector<bool> visible_nodes(const call_profile& profile, const view_filter& filter);

// What rows are ordered and compared by.
enum class path_figure { total, self, calls, errors, records, average, max, cpu };
// Total and self time are those of a profile: totals know neither.
int64_t value_of(path_figure which, const totals& sums, int64_t total_tv, int64_t self_tv);

using sort_key = std::optional<path_figure>;
inline constexpr sort_key by_name = std::nullopt;

inline constexpr std::array<named_value<sort_key>, 9> sort_keys{{{"total", path_figure::total},
                                                                 {"self", path_figure::self},
                                                                 {"calls", path_figure::calls},
                                                                 {"errors", path_figure::errors},
                                                                 {"records", path_figure::records},
                                                                 {"average", path_figure::average},
                                                                 {"max", path_figure::max},
                                                                 {"cpu", path_figure::cpu},
                                                                 {"name", by_name}}};

// Siblings in the order of the key, largest first (names ascending); equal ones by their path.
std::vector<node_index> sorted_children(const call_profile& profile, node_index parent, sort_key key);

struct labelled_node {
    node_index node;
    std::string label;
};
// Those of the siblings that are shown, at most `top` of them (0 = all), the last one first: so that a stack
// gives them in their order.
std::vector<labelled_node> shown_from_last(const call_tree& tree, std::vector<node_index> siblings,
                                           const std::vector<bool>& visible, size_t top);

} // namespace ostrum_tool
#endif
