#include <algorithm>
#include <memory>

#include "cli/trace_options.h"
#include "export/chrome_trace.h"
#include "export/record_rows.h"
#include "export/sqlite_store.h"
#include "export/stacks.h"
#include "output/value_text.h"
#include "prometheus/textfile.h"
#include "readers/time_units.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct export_choice {
    std::vector<std::string> operands;
    bool collapsed = false, speedscope = false, chrome = false, tsv = false, header = false;
    std::string sqlite_file, host, weight = "self";
    std::string prometheus_file;
    label_choice labels;
    record_choice records;
    view_choice view;
};

std::string name_of(const std::vector<std::string>& operands)
{
    return operands.empty()       ? "."
           : operands.size() == 1 ? operands.front()
                                  : operands.front() + " and others";
}

int export_stacks(const export_choice& chosen, const streams& to)
{
    const loaded_traces loaded = load_traces(chosen.operands, chosen.records, to);
    if (loaded.set.coverage.operations == 0) {
        return loaded.status;
    }
    const call_profile profile = profile_of(loaded.set.tree);
    const std::vector<bool> visible = visible_nodes(profile, view_filter_of(chosen.view));
    const stack_weight weight = chosen.weight == "calls" ? stack_weight::calls : stack_weight::self_tv;
    if (chosen.collapsed) {
        write_collapsed(to.out, profile, visible, weight);
    } else {
        write_speedscope(to.out, profile, visible, weight, printable(name_of(chosen.operands)));
    }
    return loaded.status;
}

// Reads file by file: `take` gives what is damaged in one.
template <typename Take>
int export_files(const named_files& named, const streams& to, Take take)
{
    if (named.files.empty() && !named.unreadable) {
        throw nothing_matched("no trace files of that kind");
    }
    std::vector<file_damages> damaged;
    const auto take_one = [&](const std::string& file) {
        damage_list list = take(file);
        if (list.count > 0) {
            damaged.push_back({file, std::move(list)});
        }
    };
    const bool all_read = for_each_readable(named.files, to, take_one);
    print_damages(damaged, to);
    return named.unreadable || !all_read ? exit_input : damaged.empty() ? exit_done : exit_damaged;
}

int export_tsv(const export_choice& chosen, const std::string& host, const streams& to)
{
    if (chosen.header) {
        write_tsv_header(to.out);
    }
    return export_files(files_named(chosen.operands, to), to, [&](const std::string& path) {
        const std::string name = row_file_name(path);
        return read_rows(path, [&](const trace_row& row) { write_tsv_row(to.out, host, name, row); });
    });
}

int export_sqlite(const export_choice& chosen, const std::string& host, const streams& to)
{
    sqlite_store store(chosen.sqlite_file);
    int64_t files = 0;
    int64_t added_rows = 0;
    const int status = export_files(files_named(chosen.operands, to), to, [&](const std::string& path) {
        loaded_file loaded = store.load(host, path);
        added_rows += loaded.added_rows;
        ++files;
        return std::move(loaded.damages);
    });
    to.err << chosen.sqlite_file << ": " << added_rows << " new rows of " << files
           << (files == 1 ? " file" : " files") << "\n";
    return status;
}

// The second in which the first call of all files starts; 0 when it is not known beforehand.
int64_t base_of_timeline(const std::vector<std::string>& files)
{
    int64_t first_tv = INT64_MAX;
    for (const std::string& file : files) {
        try {
            // What standard input holds can be read once only.
            first_tv = std::min(first_tv, file == "-" ? INT64_MAX : first_call_tv(file).value_or(INT64_MAX));
        } catch (const input_error&) { // told when the file is read
        }
    }
    return first_tv == INT64_MAX ? 0 : first_tv - first_tv % ns_per_second;
}

int export_chrome(const export_choice& chosen, const streams& to)
{
    if (chosen.records.brief || chosen.records.by != "none" || !chosen.records.programs.empty() ||
        chosen.view != view_choice()) {
        throw usage_error("of the filters --chrome takes --since, --until, --pid and --tid");
    }
    const named_files named = files_named(chosen.operands, to, ".flog.txt");
    const tree_options options = tree_options_of(chosen.records);
    chrome_trace timeline(to.out, options.filter, base_of_timeline(named.files));
    const int status =
        export_files(named, to, [&](const std::string& path) { return timeline.add_file(path); });
    if (timeline.events() == 0 && status == exit_done) {
        throw nothing_matched("no calls found in the field-list traces");
    }
    timeline.finish();
    if (timeline.lost_ends() > 0) {
        to.err << "ostrum: " << timeline.lost_ends() << " ends of calls without their begin are left out\n";
    }
    return status;
}

bool filters_records(const record_choice& records, const view_choice& view)
{
    return !records.since.empty() || !records.until.empty() || !records.pids.empty() ||
           !records.tids.empty() || !records.programs.empty() || records.brief || records.by != "none" ||
           view != view_choice();
}

int run_export(const export_choice& chosen, const streams& to)
{
    if (chosen.collapsed || chosen.speedscope) {
        return export_stacks(chosen, to);
    }
    if (chosen.chrome) {
        return export_chrome(chosen, to);
    }
    if (filters_records(chosen.records, chosen.view)) {
        throw usage_error(
            "rows are exported whole: filters and grouping are for --collapsed and --speedscope");
    }
    if (!chosen.prometheus_file.empty()) {
        return export_prometheus(chosen.prometheus_file, chosen.operands, chosen.labels, to);
    }
    const std::string host = chosen.host.empty() ? this_host() : printable(chosen.host);
    return chosen.tsv ? export_tsv(chosen, host, to) : export_sqlite(chosen, host, to);
}

command_body declare_export(CLI::App& app)
{
    const auto chosen = std::make_shared<export_choice>();
    add_trace_operands(app, chosen->operands);
    CLI::Option_group* const forms = app.add_option_group("form");
    forms->add_flag("--collapsed", chosen->collapsed, "Collapsed stacks: one line a path, with its weight");
    forms->add_flag("--speedscope", chosen->speedscope, "A speedscope file (JSON)");
    forms->add_flag("--chrome", chosen->chrome,
                    "Chrome trace (JSON): a timeline of the calls in field-list traces, *.flog.txt");
    forms->add_flag("--tsv", chosen->tsv,
                    "One row for each record, for COPY into the table of schema/postgresql.sql");
    forms
        ->add_option("--sqlite", chosen->sqlite_file,
                     "Load new records into this SQLite database; made when missing")
        ->type_name(file_name);
    forms
        ->add_option("--prometheus", chosen->prometheus_file,
                     "Metrics of data files, whole or not at all, into this file of a textfile collector; "
                     "- for standard output")
        ->type_name(file_name);
    forms->require_option(1);
    app.add_option("--weight", chosen->weight, "Of stacks: self (default; time in ns) or calls")
        ->check(CLI::IsMember({"self", "calls"}));
    app.add_flag("--header", chosen->header, "Names of the columns in front of --tsv");
    app.add_option("--host", chosen->host, "Host that rows are known by (default: this one)");
    add_label_options(app, chosen->labels);
    add_tree_options(app, chosen->records, chosen->view);
    return [chosen](const streams& to) { return run_export(*chosen, to); };
}

} // namespace

const command export_command{"export", "Traces for other programs: stacks, rows, databases", declare_export};

} // namespace ostrum_tool
