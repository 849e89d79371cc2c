#include <cmath>
#include <string_view>
#include <unordered_map>

#include <nlohmann/json.hpp>

#include "flame/flame_colours.h"
#include "flame/flame_output.h"
#include "flame_page_text.h"
#include "output/table.h"

namespace ostrum_tool {
namespace {

using nlohmann::ordered_json;

// JSON that may stand in a script element: no text in it can end the element or open a comment.
std::string harmless(std::string json)
{
    for (size_t at = json.find('<'); at != std::string::npos; at = json.find('<', at)) {
        json.replace(at, 1, "\\u003c");
    }
    return json;
}

// Texts that many frames share, each held once.
class text_numbers {
public:
    size_t number_of(const std::string& text)
    {
        const auto [place, added] = numbers_.try_emplace(text, numbers_.size());
        if (added) {
            texts_.push_back(text);
        }
        return place->second;
    }
    [[nodiscard]] std::string json() const { return harmless(json_text(texts_)); }

private:
    std::unordered_map<std::string, size_t> numbers_;
    ordered_json texts_ = ordered_json::array();
};

// "name":[value of the first frame, of the second, ...]
template <typename Value>
void write_column(std::ostream& out, std::string_view name, const flame_graph& graph, Value value)
{
    out << ",\n\"" << name << "\":[";
    const char* separator = "";
    for (const flame_frame& frame : graph.frames) {
        out << separator << value(frame);
        separator = ",";
    }
    out << "]";
}

struct figure_column {
    const char* name;
    int64_t (*value)(const path_figures& side);
};
constexpr figure_column figure_columns[] = {
    {"calls", [](const path_figures& side) { return side.sums.calls; }},
    {"errors", [](const path_figures& side) { return side.sums.errors; }},
    {"total", [](const path_figures& side) { return side.total_tv; }},
    {"self", [](const path_figures& side) { return side.self_tv; }}};

// One decimal is enough; null where there is no percentage.
std::string percent_json(const flame_frame& frame)
{
    return frame.change_percent && std::isfinite(*frame.change_percent)
               ? json_text(std::round(*frame.change_percent * 10) / 10)
               : "null";
}

int state_of(const flame_frame& frame)
{
    return frame.after.present == frame.before.present ? 0 : frame.after.present ? 1 : 2;
}

void write_comparison(std::ostream& out, const flame_graph& graph)
{
    write_column(out, "width_before", graph, [](const flame_frame& each) { return each.before_width_tv; });
    for (const figure_column& column : figure_columns) {
        write_column(out, std::string(column.name) + "_before", graph,
                     [&](const flame_frame& each) { return column.value(each.before); });
    }
    write_column(out, "step", graph, [](const flame_frame& each) { return each.step; });
    write_column(out, "state", graph, state_of);
    write_column(out, "percent", graph, percent_json);
}

void write_frames(std::ostream& out, const flame_graph& graph)
{
    text_numbers labels;
    text_numbers details;
    out << "\"frames\":{\"schema\":1";
    write_column(out, "parent", graph, [](const flame_frame& each) { return each.caller; });
    write_column(out, "label", graph, [&](const flame_frame& each) { return labels.number_of(each.label); });
    write_column(out, "detail", graph,
                 [&](const flame_frame& each) { return details.number_of(each.detail); });
    write_column(out, "shade", graph, [](const flame_frame& each) { return each.shade; });
    write_column(out, "width", graph, [](const flame_frame& each) { return each.width_tv; });
    for (const figure_column& column : figure_columns) {
        write_column(out, column.name, graph,
                     [&](const flame_frame& each) { return column.value(each.after); });
    }
    if (graph.compared) {
        write_comparison(out, graph);
    }
    out << "},\n\"labels\":" << labels.json() << ",\n\"details\":" << details.json();
}

ordered_json colours()
{
    ordered_json colours = {{"match_colours", {matched_colour, quiet_colour}}};
    for (const flame_palette& palette : flame_palettes) {
        colours["palettes"][palette.name] = palette.shades;
    }
    for (const change_step& step : change_steps) {
        colours["change_colours"].push_back(step.colour);
        colours["change_texts"].push_back(step.text);
    }
    return colours;
}

} // namespace

void write_flame_page(std::ostream& out, const flame_graph& graph, const flame_view& view)
{
    const std::string_view page = flame_page_text;
    constexpr std::string_view mark = "{{data}}";
    const size_t place = page.find(mark);
    ordered_json about = {{"title", view.title},     {"about", view.about}, {"icicle", view.icicle},
                          {"palette", view.palette}, {"width", view.width}, {"metric", view.metric}};
    about.update(colours());
    if (graph.compared) {
        about["compared"] = true;
    }
    std::string head = harmless(json_text(about));
    head.back() = ','; // in place of its closing brace
    out << page.substr(0, place) << head << "\n";
    write_frames(out, graph);
    out << "}" << page.substr(place + mark.size());
}

} // namespace ostrum_tool
