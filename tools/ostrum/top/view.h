#ifndef OSTRUM_TOOL_TOP_VIEW_H
#define OSTRUM_TOOL_TOP_VIEW_H
// What the person at the screen has chosen to see, and how keys change it.
#include <array>
#include <string>
#include <vector>

#include "readers/time_units.h"
#include "top/panes.h"

namespace ostrum_tool {

enum class span_kind { interval, mark, all };
enum class question { none, pattern, group, interval }; // what a line is being typed for

struct top_view {
    pane_kind pane = pane_kind::counters;
    struct pane_choice {
        arrangement order;
        field_set kept = 0;
        std::string kept_names; // as they were typed
        size_t first_row = 0;
    };
    std::array<pane_choice, 4> panes{{{arrangement_by(pane_kind::counters)},
                                      {arrangement_by(pane_kind::errors)},
                                      {arrangement_by(pane_kind::metrics)},
                                      {arrangement_by(pane_kind::variables)}}};
    span_kind span = span_kind::interval;
    int64_t interval_tv = ns_per_second;
    bool paused = false;
    bool shows_help = false;
    question asked = question::none;
    std::string typed;
    std::string message; // about the last key; gone with the next

    pane_choice& shown() { return panes[static_cast<size_t>(pane)]; }
    [[nodiscard]] const pane_choice& shown() const { return panes[static_cast<size_t>(pane)]; }
};

enum class key { character, up, down, page_up, page_down, home, end, left, right, enter, escape, backspace };

struct key_press {
    key name = key::character;
    std::string character; // UTF-8
};

enum class key_effect {
    show,
    look, // at the file, now
    mark, // and count from now on
    leave
};

// What is on the screen, as far as keys move in it.
struct shown_rows {
    const std::vector<column>& columns;
    size_t rows = 0; // of the whole pane
    size_t page = 1; // that fit
};

key_effect handle_key(top_view& view, const key_press& pressed, const shown_rows& on_screen);

struct key_help {
    const char* keys;
    std::string what;
};
const std::vector<key_help>& all_keys();

} // namespace ostrum_tool
#endif
