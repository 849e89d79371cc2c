#include "top/view.h"

#include <algorithm>
#include <sstream>

#include <fmt/format.h>

#include "cli/option_values.h"
#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr int64_t least_interval_tv = 100'000'000;
constexpr size_t longest_line = 200;

void show_pane(top_view& view, pane_kind pane)
{
    view.pane = pane;
}

void next_pane(top_view& view)
{
    view.pane = static_cast<pane_kind>((static_cast<size_t>(view.pane) + 1) % view.panes.size());
}

void next_span(top_view& view)
{
    view.span = static_cast<span_kind>((static_cast<int>(view.span) + 1) % 3);
}

void ask(top_view& view, question asked, std::string start)
{
    view.asked = asked;
    view.typed = std::move(start);
}

// Over the columns that people see.
void move_sort(top_view& view, const std::vector<column>& columns, bool right)
{
    size_t& at = view.shown().order.sort_column;
    do {
        at = (at + (right ? 1 : columns.size() - 1)) % columns.size();
    } while (columns[at].title.empty());
    view.shown().order.descending = sorts_descending(columns[at]);
}

std::vector<std::string> words_between_commas(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream stream(text);
    for (std::string word; std::getline(stream, word, ',');) {
        word.erase(std::remove(word.begin(), word.end(), ' '), word.end());
        if (!word.empty()) {
            words.push_back(word);
        }
    }
    return words;
}

void take_group(top_view& view)
{
    const std::vector<std::string> names = words_between_commas(view.typed);
    view.shown().kept =
        view.pane == pane_kind::counters ? counter_fields("group", names) : error_fields("group", names);
    view.shown().kept_names = view.shown().kept == 0 ? "" : view.typed;
}

void take_pattern(top_view& view)
{
    if (const auto problem = pattern_problem(view.typed)) {
        throw usage_error("filter: " + *problem);
    }
    view.shown().order.pattern = view.typed;
    view.shown().first_row = 0;
}

void take_interval(top_view& view)
{
    view.interval_tv = std::max(duration_value("interval", view.typed), least_interval_tv);
}

void take_answer(top_view& view)
{
    try {
        switch (std::exchange(view.asked, question::none)) {
        case question::pattern:
            return take_pattern(view);
        case question::group:
            return take_group(view);
        case question::interval:
            return take_interval(view);
        case question::none:
            break;
        }
    } catch (const usage_error& error) {
        view.message = error.what();
    }
}

void type(top_view& view, const key_press& pressed)
{
    switch (pressed.name) {
    case key::enter:
        return take_answer(view);
    case key::escape:
        view.asked = question::none;
        break;
    case key::backspace:
        while (!view.typed.empty() && continues_character(view.typed.back())) {
            view.typed.pop_back();
        }
        if (!view.typed.empty()) {
            view.typed.pop_back();
        }
        break;
    case key::character:
        view.typed += view.typed.size() < longest_line ? pressed.character : "";
        break;
    default:
        break;
    }
}

void move_rows(top_view& view, key name, const shown_rows& on_screen)
{
    if (name == key::left || name == key::right) {
        move_sort(view, on_screen.columns, name == key::right);
        return;
    }
    const size_t last = on_screen.rows - std::min(on_screen.rows, on_screen.page);
    const size_t at = std::min(view.shown().first_row, last);
    const auto up_by = [&](size_t rows) { return at - std::min(at, rows); };
    const auto down_by = [&](size_t rows) { return std::min(at + rows, last); };
    size_t& first = view.shown().first_row;
    first = name == key::up          ? up_by(1)
            : name == key::down      ? down_by(1)
            : name == key::page_up   ? up_by(on_screen.page)
            : name == key::page_down ? down_by(on_screen.page)
            : name == key::home      ? 0
            : name == key::end       ? last
                                     : first;
}

void ask_for_group(top_view& view)
{
    if (view.pane == pane_kind::counters || view.pane == pane_kind::errors) {
        ask(view, question::group, view.shown().kept_names);
    } else {
        view.message = "only counters and errors can be grouped";
    }
}

// Characters that do one thing.
struct character_key {
    char character;
    void (*act)(top_view& view);
    key_effect effect = key_effect::show;
};
constexpr character_key character_keys[] = {
    {'q', [](top_view&) {}, key_effect::leave},
    {'?', [](top_view& view) { view.shows_help = true; }},
    {'h', [](top_view& view) { view.shows_help = true; }},
    {'1', [](top_view& view) { show_pane(view, pane_kind::counters); }},
    {'2', [](top_view& view) { show_pane(view, pane_kind::errors); }},
    {'3', [](top_view& view) { show_pane(view, pane_kind::metrics); }},
    {'4', [](top_view& view) { show_pane(view, pane_kind::variables); }},
    {'\t', next_pane},
    {'s', next_span},
    {'z', [](top_view& view) { view.span = span_kind::mark; }, key_effect::mark},
    {'r', [](top_view& view) { view.shown().order.descending = !view.shown().order.descending; }},
    {'i', [](top_view& view) { view.shown().order.hide_idle = !view.shown().order.hide_idle; }},
    {'/', [](top_view& view) { ask(view, question::pattern, view.shown().order.pattern); }},
    {'g', ask_for_group},
    {'d', [](top_view& view) { ask(view, question::interval, ""); }},
    {'p', [](top_view& view) { view.paused = !view.paused; }},
    {' ', [](top_view&) {}, key_effect::look},
};

} // namespace

const std::vector<key_help>& all_keys()
{
    static const std::vector<key_help> keys{
        {"1 2 3 4, Tab", "counters, errors, metrics, variables"},
        {"< > or arrows", "sort by the column to the left or right"},
        {"r", "reverse the order"},
        {"/", "show rows with a text that fits a regular expression; empty: all"},
        {"g", "group: merge what is equal in the named key fields; empty: no groups"},
        {"", fmt::format("{}", fmt::join(counter_field_names(), ", "))},
        {"", fmt::format("errors: {}", fmt::join(error_field_names(), ", "))},
        {"i", "hide rows without a change, or show them again"},
        {"s", "span: the last interval, since the mark, all that the file holds"},
        {"z", "set the mark to now, and show what comes from now on"},
        {"d", "interval between two looks, such as 500ms or 5s"},
        {"p", "pause, or go on"},
        {"Space", "look now"},
        {"Up Down PgUp PgDn", "move through the rows; Home, End"},
        {"q, Ctrl-C", "leave"},
    };
    return keys;
}

key_effect handle_key(top_view& view, const key_press& pressed, const shown_rows& on_screen)
{
    view.message.clear();
    if (view.asked != question::none) {
        type(view, pressed);
        return key_effect::show;
    }
    if (std::exchange(view.shows_help, false)) {
        return key_effect::show; // any key leaves the help
    }
    if (pressed.name != key::character) {
        move_rows(view, pressed.name, on_screen);
        return key_effect::show;
    }
    if (pressed.character == "<" || pressed.character == ">") {
        move_sort(view, on_screen.columns, pressed.character == ">");
        return key_effect::show;
    }
    for (const character_key& each : character_keys) {
        if (pressed.character == std::string_view(&each.character, 1)) {
            each.act(view);
            return each.effect;
        }
    }
    view.message = "no such key: " + printable(pressed.character) + "; ? shows the keys";
    return key_effect::show;
}

} // namespace ostrum_tool
