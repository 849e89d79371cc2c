#include "prometheus/data_file_metrics.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <unordered_map>

#include "prometheus/figures.h"
#include "readers/data_layout.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

using enum metric_kind;

constexpr metric_family file_up{"ostrum_data_file_up", gauge, "",
                                "1 when the data file can be read, 0 when not"};

// What a file says of itself; "" when it does not.
struct file_state {
    metric_family family;
    std::string (*value)(const data_file& content);
};
constexpr file_state file_states[] = {
    {{"ostrum_data_file_problems", gauge, "", "Things in the data file that cannot be right"},
     [](const data_file& content) { return std::to_string(content.problems.size()); }},
    {{"ostrum_data_file_opened_by_pid", gauge, "",
      "Process id of the host process that last opened the data file"},
     [](const data_file& content) { return std::to_string(content.pid); }},
    {{"ostrum_variables_changed_timestamp_seconds", gauge, "seconds",
      "When a variable was last added or set by name, since 1970; missing when unknown"},
     [](const data_file& content) {
         const int64_t changed_tv = content.variables_changed_tv;
         return changed_tv > 0 ? seconds_text(static_cast<uint64_t>(changed_tv)) : "";
     }},
};

struct table_state {
    const table_layout* layout;
    size_t (*used)(const data_file& content);
};
constexpr table_state table_states[] = {
    {&counter_table, [](const data_file& content) { return content.counters.size(); }},
    {&error_table, [](const data_file& content) { return content.errors.size(); }},
    {&variable_table, [](const data_file& content) { return content.variables.size(); }},
};
struct table_figure {
    metric_family family;
    size_t (*value)(const table_state& table, const data_file& content);
};
constexpr table_figure table_figures[] = {
    {{"ostrum_table_entries", gauge, "", "Entries in use"},
     [](const table_state& table, const data_file& content) { return table.used(content); }},
    {{"ostrum_table_capacity", gauge, "",
      "Entries that the table has room for; what comes then is not counted"},
     [](const table_state& table, const data_file&) { return table.layout->entries; }},
};

constexpr metric_family variable_families[] = {
    {"ostrum_variable", gauge, "", "A variable that steers tracing, whose text is a number"},
    {"ostrum_variable_text", info, "", "A variable that steers tracing, whose text is no number"}};

constexpr metric_family cpu_time{"ostrum_operation_cpu_seconds", counter, "seconds",
                                 "CPU time of the process during the calls; 0 unless it is measured"};
using operation_figure = figure<uint64_t operation_counter::*>;
constexpr std::array<operation_figure, 6> operation_figures{
    {{{"ostrum_operation_calls", counter, "", "Outermost calls of an operation"}, &operation_counter::calls},
     {{"ostrum_operation_errors", counter, "", "Calls that failed"}, &operation_counter::errors},
     {{"ostrum_operation_records", counter, "", "Records that the calls handled"}, &operation_counter::recs},
     {{"ostrum_operation_duration_seconds", counter, "seconds", "Time that the calls took"},
      &operation_counter::total_tv},
     {cpu_time, &operation_counter::user_cpu_tv, "mode=\"user\""},
     {cpu_time, &operation_counter::sys_cpu_tv, "mode=\"system\""}}};
using error_figure = figure<uint64_t error_counter::*>;
constexpr std::array<error_figure, 1> error_figures{
    {{{"ostrum_errors", counter, "", "Errors of a kind; parts that are not recorded are 0 or missing"},
      &error_counter::count}}};

// Damaged totals must not make a sum small again.
uint64_t capped_sum(uint64_t a, uint64_t b)
{
    uint64_t sum = 0;
    return __builtin_add_overflow(a, b, &sum) ? UINT64_MAX : sum;
}

// The records of a table, those of equal labels as one, in order of first appearance.
template <typename Record, size_t Figures>
void add_table(exposition& out, const std::vector<exported_file>& files,
               std::vector<Record> data_file::*table, const label_choice& chosen,
               const std::array<figure<uint64_t Record::*>, Figures>& figures)
{
    std::unordered_map<std::string, size_t> places;
    std::vector<const std::string*> labels;
    std::vector<std::array<uint64_t, Figures>> sums;
    for (const exported_file& file : files) {
        if (!file.content) {
            continue;
        }
        for (const Record& record : (*file.content).*table) {
            std::string label_text = file_label(file);
            add_key_labels(label_text, record, chosen);
            const auto [entry, is_new] = places.try_emplace(std::move(label_text), sums.size());
            if (is_new) {
                labels.push_back(&entry->first);
                sums.emplace_back();
            }
            auto& sum = sums[entry->second];
            std::transform(
                sum.begin(), sum.end(), figures.begin(), sum.begin(),
                [&](uint64_t so_far, const auto& each) { return capped_sum(so_far, record.*each.place); });
        }
    }
    for (size_t row = 0; row < figures.size(); ++row) {
        begin_figure<figure<uint64_t Record::*>>(out, figures, row);
        for (size_t at = 0; at < sums.size(); ++at) {
            add_figure(out, figures[row], *labels[at], sums[at][row]);
        }
    }
}

// Calls `visit` with each file that could be read and its labels.
template <typename Visit>
void for_each_content(const std::vector<exported_file>& files, Visit visit)
{
    for (const exported_file& file : files) {
        if (file.content) {
            visit(*file.content, file_label(file));
        }
    }
}

void add_file_states(exposition& out, const std::vector<exported_file>& files)
{
    out.begin(file_up);
    for (const exported_file& file : files) {
        out.sample(file_label(file), uint64_t{file.content ? 1U : 0U});
    }
    for (const file_state& state : file_states) {
        out.begin(state.family);
        for_each_content(files, [&](const data_file& content, const std::string& labels) {
            if (const std::string value = state.value(content); !value.empty()) {
                out.sample(labels, value);
            }
        });
    }
}

void add_table_states(exposition& out, const std::vector<exported_file>& files)
{
    for (const table_figure& each : table_figures) {
        out.begin(each.family);
        for_each_content(files, [&](const data_file& content, const std::string& labels) {
            for (const table_state& table : table_states) {
                std::string table_labels = labels;
                add_label(table_labels, "table", table.layout->name);
                out.sample(table_labels, uint64_t{each.value(table, content)});
            }
        });
    }
}

bool is_number(const std::string& text)
{
    double number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc{} && stop == end && std::isfinite(number);
}

// Names are unique in a file in order; in a damaged one the first counts.
void add_variables(exposition& out, const std::vector<exported_file>& files)
{
    for (const bool numbers : {true, false}) {
        out.begin(variable_families[numbers ? 0 : 1]);
        for_each_content(files, [&](const data_file& content, const std::string& file_labels) {
            std::unordered_map<std::string, bool> seen;
            for (const variable& each : content.variables) {
                std::string labels = file_labels;
                add_label(labels, "name", each.name);
                if (!seen.try_emplace(labels, true).second || is_number(each.value) != numbers) {
                    continue;
                }
                if (!numbers) {
                    add_label(labels, "value", each.value);
                }
                out.sample(labels, numbers ? each.value : "1");
            }
        });
    }
}

} // namespace

std::vector<exported_file> read_exported_files(const std::vector<std::string>& paths)
{
    std::vector<exported_file> files;
    for (const std::string& path : paths) {
        const auto same_path = [&](const exported_file& file) { return file.path == path; };
        if (std::any_of(files.begin(), files.end(), same_path)) {
            continue; // its series would be there twice
        }
        exported_file& file = files.emplace_back(exported_file{path, std::nullopt, ""});
        try {
            file.content = read_data_file(path);
        } catch (const input_error& error) {
            file.failure = error.what();
        }
    }
    return files;
}

std::string exposition_of(const std::vector<exported_file>& files, const label_choice& labels,
                          exposition_format format)
{
    exposition out(format);
    add_file_states(out, files);
    add_table_states(out, files);
    add_variables(out, files);
    add_process_metrics(out, files);
    add_table(out, files, &data_file::counters, labels, operation_figures);
    add_table(out, files, &data_file::errors, labels, error_figures);
    return out.finish();
}

} // namespace ostrum_tool
