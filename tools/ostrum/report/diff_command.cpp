#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "cli/trace_options.h"
#include "output/value_text.h"
#include "readers/time_units.h"
#include "report/report_rows.h"
#include "report/tree_diff.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct diff_choice {
    std::string before, after, metric = "average", fail_over, min_change = "0";
    record_choice records;
    view_choice view;
    bool flat = false, full = false;
    int64_t top = 0;
    output_format format = output_format::text;
};

// A figure that both sides have.
struct side_column {
    const char* name;
    bool for_people;
    bool of_groups; // which have no figures of their own but their time
    cell_kind kind;
    int64_t (*figure)(const path_figures& side);
};
constexpr side_column side_columns[] = {
    {"calls", true, false, cell_kind::number, [](const path_figures& side) { return side.sums.calls; }},
    {"errors", false, false, cell_kind::number, [](const path_figures& side) { return side.sums.errors; }},
    {"total", true, true, cell_kind::duration, [](const path_figures& side) { return side.total_tv; }},
    {"self", false, false, cell_kind::duration, [](const path_figures& side) { return side.self_tv; }},
    {"average", true, false, cell_kind::duration,
     [](const path_figures& side) { return side.sums.average_tv(); }},
    {"max", false, false, cell_kind::duration, [](const path_figures& side) { return side.sums.max_tv; }},
};

std::vector<column> diff_columns(diff_metric metric)
{
    std::vector<column> columns = path_columns();
    columns.push_back({"state", "state", cell_kind::text});
    for (const side_column& each : side_columns) {
        const std::string name = each.name;
        const char* const unit = each.kind == cell_kind::duration ? "_ns" : "";
        columns.push_back({name + "_a" + unit, each.for_people ? name + " A" : "", each.kind});
        columns.push_back({name + "_b" + unit, each.for_people ? name + " B" : "", each.kind});
    }
    const cell_kind kind = is_duration(metric) ? cell_kind::duration : cell_kind::number;
    columns.insert(columns.end(), {{is_duration(metric) ? "change_ns" : "change", "", kind},
                                   {"change_percent", "", cell_kind::percent},
                                   {"", "change", cell_kind::number},
                                   {"", "percent", cell_kind::number}});
    return columns;
}

std::string signed_text(int64_t change, diff_metric metric)
{
    return (change > 0 ? "+" : "") +
           cell_text(change, is_duration(metric) ? cell_kind::duration : cell_kind::number);
}

std::vector<cell> diff_cells(const tree_diff& diff, node_index index, const std::string& label,
                             diff_metric metric)
{
    const path_pair& pair = diff.pairs[index];
    const bool is_group = diff.both.tree.at(index).key.is_group;
    std::vector<cell> cells = path_cells(diff.both.tree, index, label);
    cells.emplace_back(std::string(pair.state()));
    for (const side_column& each : side_columns) {
        for (const path_figures* side : {&pair.before, &pair.after}) {
            const bool known = side->present && (each.of_groups || !is_group);
            cells.push_back(known ? cell(each.figure(*side)) : cell());
        }
    }
    const std::optional<double> percent = pair.change_percent(metric);
    cells.emplace_back(pair.change(metric));
    cells.push_back(percent ? cell(*percent) : cell());
    cells.emplace_back(signed_text(pair.change(metric), metric));
    cells.push_back(percent ? cell(fmt::format("{:+.1f}%", *percent)) : cell());
    return cells;
}

table diff_table(const tree_diff& diff, const std::vector<bool>& visible, diff_metric metric, size_t top)
{
    table rows(diff_columns(metric));
    std::vector<labelled_node> pending;
    const auto push_children = [&](node_index parent) {
        for (labelled_node& each :
             shown_from_last(diff.both.tree, children_by_change(diff, parent, metric), visible, top)) {
            pending.push_back(std::move(each));
        }
    };
    push_children(call_tree::root);
    while (!pending.empty()) {
        const auto [index, label] = pending.back();
        pending.pop_back();
        rows.add_row(diff_cells(diff, index, label, metric));
        push_children(index);
    }
    return rows;
}

struct slow_down {
    int64_t paths = 0;
    double worst_percent = 0;
    node_index worst = call_tree::root;
};

// Paths that only one side has are no slow-down: there is nothing to compare.
slow_down find_slow_downs(const tree_diff& diff, const std::vector<bool>& visible, diff_metric metric,
                          double limit, int64_t min_change)
{
    slow_down found;
    for (node_index index = 1; index < diff.both.tree.size(); ++index) {
        const path_pair& pair = diff.pairs[index];
        const std::optional<double> percent = pair.change_percent(metric);
        if (!visible[index] || diff.both.tree.at(index).key.is_group || !percent || *percent <= limit ||
            pair.change(metric) < min_change) {
            continue;
        }
        ++found.paths;
        if (*percent > found.worst_percent) {
            found.worst_percent = *percent;
            found.worst = index;
        }
    }
    return found;
}

std::string path_text(const call_tree& tree, node_index index)
{
    std::vector<std::string> operations; // innermost first
    for (; index != call_tree::root; index = tree.at(index).parent) {
        const path_key& key = tree.at(index).key;
        operations.push_back(operation_text(key.opname, key.opcode));
    }
    return fmt::format("{}", fmt::join(operations.rbegin(), operations.rend(), " > "));
}

// Of counts the plain number.
int64_t change_value(const diff_choice& chosen, diff_metric metric)
{
    const int64_t change_tv = duration_value("--min-change", chosen.min_change);
    return is_duration(metric) ? change_tv : change_tv / ns_per_second;
}

int run_diff(const diff_choice& chosen, const streams& to)
{
    const diff_metric metric = diff_metric_named(chosen.metric);
    const bool has_limit = !chosen.fail_over.empty();
    const double limit = has_limit ? percent_value("--fail-over", chosen.fail_over) : 0;
    const int64_t min_change = change_value(chosen, metric);
    const loaded_pair sides = load_both({chosen.before}, {chosen.after}, chosen.records, chosen.full, to);
    if (!sides.has_both()) {
        return exit_input;
    }
    const call_profile tree_before = profile_of(sides.before.set.tree);
    const call_profile tree_after = profile_of(sides.after.set.tree);
    const tree_diff diff = chosen.flat ? diff_of(flat_profile_of(tree_before), flat_profile_of(tree_after))
                                       : diff_of(tree_before, tree_after);
    const std::vector<bool> visible = visible_nodes(diff.both, view_filter_of(chosen.view));
    const table rows = diff_table(diff, visible, metric, static_cast<size_t>(chosen.top));
    if (rows.empty()) {
        throw nothing_matched("the filters leave no path");
    }
    rows.print(to.out, chosen.format, to.style, {{"kind", "diff"}, {"metric", chosen.metric}});
    if (has_limit) {
        const slow_down found = find_slow_downs(diff, visible, metric, limit, min_change);
        if (found.paths > 0) {
            to.err << fmt::format("ostrum: {} paths are up by more than {:g}% in {}; most: {}, {:+.1f}%\n",
                                  found.paths, limit, chosen.metric, path_text(diff.both.tree, found.worst),
                                  found.worst_percent);
            return exit_threshold;
        }
    }
    return sides.status();
}

command_body declare_diff(CLI::App& app)
{
    const auto chosen = std::make_shared<diff_choice>();
    app.add_option("A", chosen->before, "A trace data file or a directory of them: before")
        ->required()
        ->type_name(file_name);
    app.add_option("B", chosen->after, "The same: after")->required()->type_name(file_name);
    app.add_option("--metric", chosen->metric, "What is compared (default: average)")
        ->check(names_known(names_of_all(diff_metrics)));
    app.add_option("--fail-over", chosen->fail_over,
                   "End with status 4 when a path shown is up by more than this: 10%");
    app.add_option("--min-change", chosen->min_change, "For --fail-over: smaller changes do not count: 50us");
    app.add_flag("--flat", chosen->flat, "One row per operation, whatever calls it");
    add_full_option(app, chosen->full);
    add_top_option(app, chosen->top);
    add_record_options(app, chosen->records);
    add_view_options(app, chosen->view);
    add_format_options(app, chosen->format);
    return [chosen](const streams& to) { return run_diff(*chosen, to); };
}

} // namespace

const command diff_command{"diff", "Two sets of trace data files compared, path by path", declare_diff, true};

} // namespace ostrum_tool
