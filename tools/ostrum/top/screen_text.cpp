#include "top/screen_text.h"

#include <algorithm>

#include <fmt/format.h>

#include "output/value_text.h"
#include "readers/data_layout.h"
#include "readers/local_time.h"

namespace ostrum_tool {
namespace {

constexpr size_t least_name_width = 16;
constexpr const char* between_columns = "  ";

std::string ascii_only(const std::string& text)
{
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        shown += byte < 0x80 ? std::string(1, c) : fmt::format("\\x{:02X}", byte);
    }
    return shown;
}

// Cut or filled up to exactly this many columns, also where half a wide character was left.
std::string fitted(const std::string& text, size_t width, bool right = false)
{
    return padded(width == 0 ? "" : cut_to(text, width), width, right);
}

// Three or four digits that count; whole from 1,000 on.
std::string rate_text(double rate)
{
    return rate == 0    ? "0"
           : rate < 10  ? fmt::format("{:.2f}", rate)
           : rate < 1e3 ? fmt::format("{:.1f}", rate)
                        : fmt::format("{:.0f}", rate);
}

std::string live_text(const cell& value, cell_kind kind)
{
    if (value.holds() == cell::content::real && kind == cell_kind::number) {
        return rate_text(value.real());
    }
    return cell_text(value, kind);
}

size_t width_of(const column& shown)
{
    switch (shown.kind) {
    case cell_kind::text:
        return 14;
    case cell_kind::duration:
    case cell_kind::percent:
        return 7;
    default:
        return 9;
    }
}

struct placed_column {
    size_t at, width;
};

// Those with a title, the leading ones first.
std::vector<size_t> columns_in_order(const pane_content& content)
{
    std::vector<size_t> order = content.leading;
    for (size_t at = 0; at < content.columns.size(); ++at) {
        if (std::find(content.leading.begin(), content.leading.end(), at) == content.leading.end()) {
            order.push_back(at);
        }
    }
    std::erase_if(order, [&](size_t at) { return content.columns[at].title.empty(); });
    return order;
}

// The first gets what the others leave; from the right those go that leave too little.
std::vector<placed_column> place_columns(const pane_content& content, size_t width)
{
    std::vector<placed_column> placed;
    size_t taken = 0;
    for (const size_t at : columns_in_order(content)) {
        const column& shown = content.columns[at];
        const size_t wanted = 2 + std::max(width_of(shown), display_width(shown.title));
        if (!placed.empty() && taken + wanted + least_name_width > width) {
            break;
        }
        taken += placed.empty() ? 0 : wanted;
        placed.push_back({at, wanted - 2});
    }
    placed.front().width = width - std::min(taken, width);
    return placed;
}

template <typename TextOf>
std::string row_text(const std::vector<column>& columns, const std::vector<placed_column>& placed,
                     TextOf text_of)
{
    std::string line;
    for (const placed_column& each : placed) {
        const bool right = columns[each.at].kind != cell_kind::text;
        line += (line.empty() ? "" : between_columns) + fitted(text_of(each.at), each.width, right);
    }
    return line;
}

std::string header_text(const std::vector<column>& columns, const std::vector<placed_column>& placed,
                        const arrangement& order)
{
    return row_text(columns, placed, [&](size_t at) {
        const char* const mark = at != order.sort_column ? "" : order.descending ? "v" : "^";
        return mark + columns[at].title;
    });
}

std::string choices_text(const top_view& view, const pane_content& content)
{
    const auto& chosen = view.shown();
    const column& by = content.columns[chosen.order.sort_column];
    std::string text = "sorted by " + (by.title.empty() ? by.key : by.title);
    if (!chosen.kept_names.empty()) {
        text += "   grouped by " + printable(chosen.kept_names);
    }
    if (!chosen.order.pattern.empty()) {
        text += "   only /" + printable(chosen.order.pattern) + "/";
    }
    text += chosen.order.hide_idle ? "   without idle rows" : "";
    return text + fmt::format("   {} rows", content.rows.size());
}

screen_line status_line(const top_view& view, const top_figures& figures, const pane_content& content)
{
    switch (view.asked) {
    case question::pattern:
        return {"filter: " + printable(view.typed) + "_", line_look::warning};
    case question::group:
        return {"group by: " + printable(view.typed) + "_", line_look::warning};
    case question::interval:
        return {"interval: " + printable(view.typed) + "_", line_look::warning};
    case question::none:
        break;
    }
    if (!view.message.empty()) {
        return {printable(view.message), line_look::warning};
    }
    if (!figures.problem.empty()) {
        return {printable(figures.problem), line_look::warning};
    }
    if (!figures.compared.now.file.problems.empty()) {
        return {"damaged: " + printable(figures.compared.now.file.problems.front()), line_look::warning};
    }
    return {choices_text(view, content)};
}

std::string time_of_day(int64_t time_tv)
{
    const std::string full = local_time_text(time_tv); // "2026-11-21 10:00:00 ..."
    return full.size() >= 19 ? full.substr(11, 8) : full;
}

std::vector<screen_line> help_lines(size_t rows)
{
    std::vector<screen_line> lines{{"keys of ostrum top", line_look::title}, {""}};
    for (const key_help& each : all_keys()) {
        lines.push_back({fmt::format("{:<20}{}", each.keys, each.what)});
    }
    lines.push_back({""});
    lines.push_back({"any key leaves this page"});
    lines.resize(std::min(lines.size(), rows));
    return lines;
}

void add_rows(std::vector<screen_line>& lines, top_view& view, const pane_content& content,
              const screen_size& size)
{
    const auto placed = place_columns(content, size.columns);
    lines.push_back({header_text(content.columns, placed, view.shown().order), line_look::header});
    const size_t page = size.rows > lines_around_rows ? size.rows - lines_around_rows : 1;
    size_t& first = view.shown().first_row;
    first = std::min(first, content.rows.size() - std::min(content.rows.size(), page));
    for (size_t row = first; row < std::min(first + page, content.rows.size()); ++row) {
        lines.push_back({row_text(content.columns, placed, [&](size_t at) {
            return live_text(content.rows[row][at], content.columns[at].kind);
        })});
    }
    lines.resize(lines_around_rows - 1 + page);
}

} // namespace

std::string fill_text(const data_file& file)
{
    const auto fill = [](const table_layout& table, size_t used) {
        return fmt::format("{} {} of {} ({}%)", table.name, used, table.entries, used * 100 / table.entries);
    };
    return fill(counter_table, file.counters.size()) + "   " + fill(error_table, file.errors.size()) + "   " +
           fill(variable_table, file.variables.size());
}

std::string span_text(span_kind span, const comparison& compared)
{
    if (span == span_kind::all || compared.before == nullptr) {
        return "since the last reset";
    }
    const std::string length = duration_text(compared.now.monotonic_tv - compared.before->monotonic_tv);
    return span == span_kind::interval
               ? "in the last " + length
               : "since " + time_of_day(compared.before->local_tv) + " (" + length + ")";
}

std::vector<screen_line> compose_screen(top_view& view, const top_figures& figures,
                                        const pane_content& content, const screen_size& size, bool ascii)
{
    std::vector<screen_line> lines;
    if (view.shows_help) {
        lines = help_lines(size.rows);
    } else {
        const char* const state = view.paused ? "   paused" : "";
        lines.push_back({fmt::format("ostrum top   {}   {}   {}   every {}{}", printable(figures.path),
                                     printable(figures.host), time_of_day(figures.compared.now.local_tv),
                                     duration_text(view.interval_tv), state),
                         line_look::title});
        lines.push_back({fill_text(figures.compared.now.file)});
        lines.push_back({"figures " + span_text(view.span, figures.compared)});
        lines.push_back(status_line(view, figures, content));
        add_rows(lines, view, content, size);
        lines.push_back({"1 counters 2 errors 3 metrics 4 variables  s span  z mark  <> sort  / filter  "
                         "g group  ? help  q leave",
                         line_look::title});
    }
    for (screen_line& line : lines) {
        line.text = fitted(ascii ? ascii_only(line.text) : line.text, size.columns);
    }
    return lines;
}

} // namespace ostrum_tool
