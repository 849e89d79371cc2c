#include <memory>

#include "cli/trace_options.h"
#include "report/follow.h"
#include "report/report_rows.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct report_choice {
    std::vector<std::string> operands, percentiles;
    record_choice records;
    view_choice view;
    std::string sort = "total", interval = "2s";
    bool flat = false, buckets = false, follow = false;
    int64_t top = 0, count = 0;
    output_format format = output_format::text;
};

nlohmann::ordered_json coverage_json(const trace_set& set)
{
    int64_t damages = 0;
    for (const file_damages& file : set.damaged) {
        damages += file.list.count;
    }
    const trace_coverage& coverage = set.coverage;
    return {{"kind", "report"},
            {"coverage",
             {{"files", coverage.files},
              {"processes", coverage.processes()},
              {"threads", coverage.threads.size()},
              {"flushes", coverage.flushes},
              {"operations", coverage.operations},
              {"left_out", coverage.left_out},
              {"from_ns", coverage.from_tv},
              {"to_ns", coverage.to_tv},
              {"damages", damages}}}};
}

report_options report_options_of(const report_choice& chosen)
{
    report_options options{chosen.format,
                           value_named(sort_keys, chosen.sort, "cannot sort by "),
                           chosen.buckets,
                           {},
                           static_cast<size_t>(chosen.top)};
    for (const std::string& text : chosen.percentiles) {
        const double percent = percent_value("--percentiles", text);
        if (percent <= 0 || percent > 100) {
            throw usage_error("--percentiles " + text + ": above 0 and up to 100");
        }
        options.percentiles.push_back(percent);
    }
    return options;
}

void print_report(const trace_set& set, const report_choice& chosen, const streams& to)
{
    const report_options options = report_options_of(chosen);
    call_profile profile = profile_of(set.tree);
    if (chosen.flat) {
        profile = flat_profile_of(profile);
    }
    const std::vector<bool> visible = visible_nodes(profile, view_filter_of(chosen.view));
    const table rows = report_table(profile, visible, options);
    if (rows.empty()) {
        throw nothing_matched("the filters leave no path");
    }
    if (chosen.format == output_format::text) {
        to.out << coverage_text(set.coverage) << "\n\n";
    }
    rows.print(to.out, chosen.format, to.style, coverage_json(set));
}

int run_report(const report_choice& chosen, const streams& to)
{
    report_options_of(chosen); // a wrong option shows before anything is read
    view_filter_of(chosen.view);
    if (chosen.follow) {
        const follow_options options{chosen.operands, duration_value("--interval", chosen.interval),
                                     chosen.count};
        return follow_traces(options, chosen.records, to,
                             [&](const trace_set& set) { print_report(set, chosen, to); });
    }
    const loaded_traces loaded = load_traces(chosen.operands, chosen.records, to);
    if (loaded.set.coverage.operations > 0) {
        print_report(loaded.set, chosen, to);
    }
    return loaded.status;
}

command_body declare_report(CLI::App& app)
{
    const auto chosen = std::make_shared<report_choice>();
    add_trace_operands(app, chosen->operands);
    app.add_flag("--flat", chosen->flat, "One row per operation, whatever calls it");
    app.add_option("--sort", chosen->sort, "Order of siblings (default: total)")
        ->check(names_known(names_of_all(sort_keys)));
    add_top_option(app, chosen->top);
    app.add_flag("--buckets", chosen->buckets, "Show the duration histogram of operations that have buckets");
    add_list(app, "--percentiles", chosen->percentiles,
             "The intervals that hold these percentiles, from the buckets: 50,90,99");
    add_tree_options(app, chosen->records, chosen->view);
    app.add_flag("--follow", chosen->follow, "Read on and report again as files grow and appear");
    app.add_option("--interval", chosen->interval, "Time between two reports of --follow: 2s (default)");
    app.add_option("--count", chosen->count, "End --follow after N reports")
        ->check(CLI::Range(1, 1'000'000'000));
    add_format_options(app, chosen->format);
    return [chosen](const streams& to) { return run_report(*chosen, to); };
}

} // namespace

const command report_command{"report", "Merged call tree of trace data files", declare_report, true};

} // namespace ostrum_tool
