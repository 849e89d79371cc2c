#ifndef OSTRUM_TOOL_TOP_SCREEN_TEXT_H
#define OSTRUM_TOOL_TOP_SCREEN_TEXT_H
// The screen as lines of text, for any size.
#include <string>
#include <vector>

#include "top/view.h"

namespace ostrum_tool {

enum class line_look { plain, title, header, warning };

struct screen_line {
    std::string text; // no longer than the screen is wide; nothing in it acts on a terminal
    line_look look = line_look::plain;
};

struct screen_size {
    size_t rows = 24, columns = 80;
};

// What is known at the moment of drawing.
struct top_figures {
    std::string path;
    std::string host;    // who uses the file
    std::string problem; // why the file could not be read the last time
    comparison compared;
};

constexpr size_t lines_around_rows = 6; // above and below the rows of a pane

// Moves the view's first row so that the screen is filled.
std::vector<screen_line> compose_screen(top_view& view, const top_figures& figures,
                                        const pane_content& content, const screen_size& size, bool ascii);

// "counters 37 of 4096 (1%)  errors ...": how full the tables are.
std::string fill_text(const data_file& file);
// What the figures cover: "the last 1.00s", "since 14:02:00 (1m22s)", ...
std::string span_text(span_kind span, const comparison& compared);

} // namespace ostrum_tool
#endif
