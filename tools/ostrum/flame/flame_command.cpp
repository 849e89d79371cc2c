#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include <fmt/format.h>

#include "cli/trace_options.h"
#include "flame/flame_colours.h"
#include "flame/flame_output.h"
#include "output/value_text.h"
#include "report/report_rows.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct flame_choice {
    std::vector<std::string> operands, others;
    std::string output, title, metric = "average", palette = "warm", width = "after";
    record_choice records;
    view_choice view;
    bool svg = false, icicle = false, full = false;
    size_t max_frames = 100'000;
};

struct flame_input {
    flame_graph graph;
    std::string about;
    int status;
};

flame_input read_one(const flame_choice& chosen, const flame_options& options, const streams& to)
{
    const loaded_traces loaded = load_traces(chosen.operands, chosen.records, to);
    if (loaded.set.coverage.operations == 0) {
        return {{}, "", loaded.status};
    }
    return {flame_graph_of(profile_of(loaded.set.tree), view_filter_of(chosen.view), options),
            coverage_text(loaded.set.coverage), loaded.status};
}

flame_input read_both(const flame_choice& chosen, const flame_options& options, const streams& to)
{
    const loaded_pair sides = load_both(chosen.others, chosen.operands, chosen.records, chosen.full, to);
    if (!sides.has_both()) {
        return {{}, "", exit_input};
    }
    const tree_diff diff = diff_of(profile_of(sides.before.set.tree), profile_of(sides.after.set.tree));
    return {flame_graph_of(diff, view_filter_of(chosen.view), options),
            fmt::format("after: {}; before: {}", coverage_text(sides.after.set.coverage),
                        coverage_text(sides.before.set.coverage)),
            sides.status()};
}

std::string names_of(const std::vector<std::string>& operands)
{
    return printable(operands.empty() ? "." : fmt::format("{}", fmt::join(operands, ", ")));
}

flame_view view_of(const flame_choice& chosen, const flame_input& input)
{
    flame_view view{printable(chosen.title), input.about,  chosen.metric,
                    chosen.palette,          chosen.width, chosen.icicle};
    if (view.title.empty()) {
        view.title =
            names_of(chosen.operands) + (chosen.others.empty() ? "" : " against " + names_of(chosen.others));
    }
    if (input.graph.left_out > 0) {
        view.about += fmt::format("; the {} paths with least time are left out", input.graph.left_out);
    }
    return view;
}

void write_to(std::ostream& out, const flame_choice& chosen, const flame_input& input)
{
    (chosen.svg ? write_flame_svg : write_flame_page)(out, input.graph, view_of(chosen, input));
}

void write_to_file(const flame_choice& chosen, const flame_input& input)
{
    std::ofstream file(chosen.output, std::ios::binary);
    write_to(file, chosen, input);
    if (!file.flush()) {
        throw input_error(printable(chosen.output) + ": " + std::strerror(errno));
    }
}

int run_flame(const flame_choice& chosen, const streams& to)
{
    const bool to_standard_output = chosen.output.empty() || chosen.output == "-";
    if (to_standard_output && to.style.terminal) {
        throw usage_error("a page is nothing for a terminal: name a file with -o");
    }
    if (chosen.others.empty() && (chosen.width != "after" || chosen.full)) {
        throw usage_error("--width and --full are for --diff");
    }
    const flame_options options{diff_metric_named(chosen.metric), chosen.max_frames};
    const flame_input input =
        chosen.others.empty() ? read_one(chosen, options, to) : read_both(chosen, options, to);
    if (input.graph.frames.empty()) {
        return input.status;
    }
    if (input.graph.left_out > 0) {
        to.err << "ostrum: the " << input.graph.left_out
               << " paths with least time are left out (--max-frames)\n";
    }
    if (to_standard_output) {
        write_to(to.out, chosen, input);
    } else {
        write_to_file(chosen, input);
    }
    return input.status;
}

command_body declare_flame(CLI::App& app)
{
    const auto chosen = std::make_shared<flame_choice>();
    add_trace_operands(app, chosen->operands);
    app.add_option("-o,--output", chosen->output, "The file to write (default: standard output)")
        ->type_name(file_name);
    app.add_flag("--svg", chosen->svg, "A picture without scripts in place of the page");
    app.add_option("--diff", chosen->others,
                   "What it is compared with: files or directories from before; may be repeated")
        ->allow_extra_args(false)
        ->type_name(file_name);
    app.add_option("--metric", chosen->metric, "Whose change gives the colours of --diff (default: average)")
        ->check(names_known(names_of_all(diff_metrics)));
    app.add_option("--width", chosen->width,
                   "Whose time gives the widths of --diff: after (default), before, both")
        ->check(CLI::IsMember({"after", "before", "both"}));
    add_full_option(app, chosen->full, "With --diff: ");
    app.add_option("--palette", chosen->palette,
                   "Colours at first: warm (default) or safe, for the colour-blind")
        ->check(CLI::IsMember({flame_palettes[0].name, flame_palettes[1].name}));
    app.add_flag("--icicle", chosen->icicle, "Outermost operations at the top");
    app.add_option("--title", chosen->title, "What stands above (default: the names of the input)");
    app.add_option("--max-frames", chosen->max_frames, "Only the N paths with most time (100000); 0: all");
    add_tree_options(app, chosen->records, chosen->view);
    return [chosen](const streams& to) { return run_flame(*chosen, to); };
}

} // namespace

const command flame_command{"flame", "Where the time went, as a flame graph: one HTML file, or SVG",
                            declare_flame};

} // namespace ostrum_tool
