#ifndef OSTRUM_TOOL_FLAME_FLAME_OUTPUT_H
#define OSTRUM_TOOL_FLAME_FLAME_OUTPUT_H
#include <ostream>
#include <string>

#include "flame/flame_graph.h"

namespace ostrum_tool {

// How a graph is shown at first, and what stands above it.
struct flame_view {
    std::string title, about;
    std::string metric; // of a comparison, as diff names it
    std::string palette;
    std::string width; // whose time makes the width: "after", "before" or "both"
    bool icicle = false;
};

// One HTML file that needs nothing else: view, data and licences. It asks no server for anything, and its own
// rules keep anything else in it from being run.
void write_flame_page(std::ostream& out, const flame_graph& graph, const flame_view& view);

// A picture without scripts. Frames that are thinner than a quarter of a unit are left out.
void write_flame_svg(std::ostream& out, const flame_graph& graph, const flame_view& view);

} // namespace ostrum_tool
#endif
