#include "cli/trace_options.h"

#include <algorithm>
#include <array>
#include <chrono>

#include "cli/named_values.h"
#include "cli/progress_line.h"
#include "output/value_text.h"
#include "readers/time_units.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr size_t damages_shown = 5; // of each file

constexpr std::array<named_value<grouping>, 4> groupings{{{"none", grouping::none},
                                                          {"thread", grouping::thread},
                                                          {"process", grouping::process},
                                                          {"period", grouping::period}}};

} // namespace

void add_trace_operands(CLI::App& app, std::vector<std::string>& operands)
{
    app.add_option("FILE", operands, "Trace data files, directories of them, or - (default: this directory)");
}

void add_top_option(CLI::App& app, int64_t& top)
{
    app.add_option("--top", top, "Show only the first N of each caller")->check(CLI::Range(1, 1'000'000));
}

void add_full_option(CLI::App& app, bool& full, const std::string& when)
{
    const std::string help = "keep paths apart that differ in flags, program, source line, type or database";
    app.add_flag("--full", full, when.empty() ? "K" + help.substr(1) : when + help);
}

void add_record_options(CLI::App& app, record_choice& chosen)
{
    app.add_option("--since", chosen.since,
                   "Only periods that began then or later: \"2026-11-21 10:00\", 10:00, -2h, @1795256941");
    app.add_option("--until", chosen.until, "Only periods that began before");
    add_list(app, "--pid", chosen.pids, "Only these processes");
    add_list(app, "--tid", chosen.tids, "Only these threads; 0: contexts named by a key");
    add_list(app, "--program", chosen.programs, "Only outermost operations of these calling programs");
}

void add_view_options(CLI::App& app, view_choice& chosen)
{
    add_list(app, "--opcode", chosen.opcodes, "Only paths through these operation numbers");
    app.add_option("--name", chosen.name_pattern,
                   "Only paths through operations whose name matches the expression (RE2)");
    app.add_option("--depth", chosen.max_depth, "Show only the outermost N levels")
        ->check(CLI::Range(1, 1'000'000));
    app.add_option("--min-time", chosen.min_time, "Hide paths with less time in total: 10ms");
}

void add_tree_options(CLI::App& app, record_choice& records, view_choice& view)
{
    add_record_options(app, records);
    app.add_flag("--brief", records.brief,
                 "One path per operation and caller, whatever its flags, program, source, type, database");
    app.add_option("--by", records.by, "A tree for each: thread, process or period")
        ->check(CLI::IsMember(names_in(groupings)));
    app.add_option("--period", records.period,
                   "Length of the periods of --by period, from midnight on: 1h (default)");
    add_view_options(app, view);
}

tree_options tree_options_of(const record_choice& chosen)
{
    tree_options options;
    options.brief = chosen.brief;
    options.by = value_named(groupings, chosen.by, "cannot group by ");
    options.period_tv = duration_value("--period", chosen.period);
    if (options.period_tv < ns_per_second) {
        throw usage_error("--period " + chosen.period + ": a second or more is needed");
    }
    const int64_t now = now_tv<std::chrono::system_clock>();
    if (!chosen.since.empty()) {
        options.filter.since_tv = time_value("--since", chosen.since, now);
    }
    if (!chosen.until.empty()) {
        options.filter.until_tv = time_value("--until", chosen.until, now);
    }
    options.filter.pids = chosen.pids;
    options.filter.tids = chosen.tids;
    options.filter.programs = chosen.programs;
    return options;
}

view_filter view_filter_of(const view_choice& chosen)
{
    view_filter filter{chosen.name_pattern, chosen.opcodes, chosen.max_depth, 0};
    if (!chosen.min_time.empty()) {
        filter.min_total_tv = duration_value("--min-time", chosen.min_time);
    }
    return filter;
}

std::vector<std::string> operands_or_here(const std::vector<std::string>& operands)
{
    return operands.empty() ? std::vector<std::string>{"."} : operands;
}

bool for_each_readable(const std::vector<std::string>& names, const streams& to,
                       const std::function<void(const std::string& name)>& take)
{
    bool all_done = true;
    for (const std::string& name : names) {
        try {
            take(name);
        } catch (const input_error& error) {
            to.err << "ostrum: " << printable(error.what()) << "\n";
            all_done = false;
        }
    }
    return all_done;
}

named_files files_named(const std::vector<std::string>& operands, const streams& to,
                        const std::string& ending)
{
    named_files named;
    named.unreadable = !for_each_readable(operands_or_here(operands), to, [&](const std::string& operand) {
        const std::vector<std::string> files = trace_files_of(operand, ending);
        named.files.insert(named.files.end(), files.begin(), files.end());
        if (files.empty()) {
            to.err << "ostrum: " << printable(operand) << ": holds no files *" << ending << "\n";
        }
    });
    return named;
}

void print_damages(const std::string& name, const damage_list& damages, size_t most, std::ostream& out)
{
    const size_t shown = std::min(most, damages.first.size());
    for (size_t at = 0; at < shown; ++at) {
        const damage& each = damages.first[at];
        out << printable(name) << ": offset " << each.offset << ": " << printable(each.what) << "\n";
    }
    const int64_t more = damages.count - static_cast<int64_t>(shown);
    if (more > 0) {
        out << printable(name) << ": and " << more << " more\n";
    }
}

void print_damages(const std::vector<file_damages>& damaged, const streams& to)
{
    for (const file_damages& file : damaged) {
        print_damages(file.file == "-" ? "standard input" : file.file, file.list, damages_shown, to.err);
    }
}

loaded_traces load_traces(const std::vector<std::string>& operands, const record_choice& chosen,
                          const streams& to)
{
    const tree_options options = tree_options_of(chosen);
    const named_files named = files_named(operands, to);
    std::vector<trace_input> inputs;
    for (const std::string& file : named.files) {
        inputs.push_back({file});
    }
    loaded_traces loaded;
    {
        read_progress progress;
        const progress_line shown(progress, to);
        loaded.set = read_traces(inputs, options, progress);
    }
    for (const std::string& failure : loaded.set.unreadable) {
        to.err << "ostrum: " << printable(failure) << "\n";
    }
    print_damages(loaded.set.damaged, to);
    if (loaded.set.tree.is_full()) {
        to.err << "ostrum: more than " << call_tree::max_nodes
               << " paths; the rest is one path, (further paths)\n";
    }
    const bool failed = named.unreadable || !loaded.set.unreadable.empty();
    loaded.status = failed ? exit_input : loaded.set.damaged.empty() ? exit_done : exit_damaged;
    if (loaded.set.coverage.operations == 0 && !failed) {
        throw nothing_matched(loaded.set.coverage.left_out > 0 ? "the filters leave nothing of the input"
                                                               : "no operations found in the input");
    }
    return loaded;
}

loaded_pair load_both(const std::vector<std::string>& before, const std::vector<std::string>& after,
                      const record_choice& chosen, bool full, const streams& to)
{
    record_choice records = chosen;
    records.brief = !full;
    loaded_traces first = load_traces(before, records, to);
    return {std::move(first), load_traces(after, records, to)};
}

} // namespace ostrum_tool
