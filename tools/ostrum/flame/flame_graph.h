#ifndef OSTRUM_TOOL_FLAME_FLAME_GRAPH_H
#define OSTRUM_TOOL_FLAME_FLAME_GRAPH_H
// The frames of a flame graph, of one set of traces or of two that are compared: what page and picture show.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "report/tree_diff.h"

namespace ostrum_tool {

struct flame_options {
    diff_metric metric = diff_metric::average; // what the colours of a comparison show
    size_t max_frames = 0;                     // the widest; 0 = all
};

struct flame_frame {
    uint32_t caller = 0; // number of its frame, which stands before it; the root is its own
    int32_t depth = 0;   // of the root 0
    std::string label, detail;
    // Own time and that of all callees, shown or not: never less than what stands above the frame together.
    int64_t width_tv = 0, before_width_tv = 0;
    path_figures after, before; // not of the root and of groups
    int32_t shade = -1;         // index into a palette, from the operation's name; -1 = no operation
    int32_t step = 0;           // of a comparison: index into change_steps
    std::optional<double> change_percent;
};

struct flame_graph {
    std::vector<flame_frame> frames; // callers before callees, siblings from the widest on; the root first
    int64_t left_out = 0;            // visible paths beyond max_frames
    bool compared = false;
};

flame_graph flame_graph_of(const call_profile& profile, const view_filter& filter,
                           const flame_options& options);
// Before and after.
flame_graph flame_graph_of(const tree_diff& diff, const view_filter& filter, const flame_options& options);

} // namespace ostrum_tool
#endif
