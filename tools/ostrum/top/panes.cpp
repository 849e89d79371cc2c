#include "top/panes.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include <re2/re2.h>

#include "data/data_file_command.h"
#include "data/metric_names.h"

namespace ostrum_tool {
namespace {

constexpr double ns_per_second = 1e9;

cell rate(uint64_t gained, double seconds)
{
    return seconds > 0 ? cell(static_cast<double>(gained) / seconds) : cell();
}

// Of a second of one processor; several threads reach more than 100 %.
cell share_of_time(uint64_t gained_tv, double seconds)
{
    return seconds > 0 ? cell(static_cast<double>(gained_tv) * 100 / (seconds * ns_per_second)) : cell();
}

std::vector<cell> counter_cells(const operation_counter& gained, const operation_counter& total,
                                double seconds)
{
    const int64_t calls = signed_value(gained.calls);
    const int64_t total_tv = signed_value(gained.total_tv);
    return {operation_text(gained.opname, gained.opcode),
            gained.opname,
            int64_t{gained.opcode},
            rate(gained.calls, seconds),
            total_tv,
            share_of_time(gained.total_tv, seconds),
            calls == 0 ? cell() : cell(total_tv / calls),
            rate(gained.errors, seconds),
            rate(gained.recs, seconds),
            share_of_time(gained.user_cpu_tv + gained.sys_cpu_tv, seconds),
            gained.calls,
            gained.errors,
            gained.recs,
            signed_value(gained.user_cpu_tv),
            signed_value(gained.sys_cpu_tv),
            total.calls,
            gained.program,
            gained.obj_type,
            source_text(gained.fname, gained.lineno),
            gained.fname,
            int64_t{gained.lineno},
            uint64_t{gained.opflags},
            db_text(gained.db_number),
            gained.db_number};
}

pane_content counters_pane(const comparison& compared, field_set kept)
{
    static const std::vector<operation_counter> none;
    const std::vector<operation_counter>& now = compared.now.file.counters;
    const auto totals = merged_counters(now, kept);
    const auto gained =
        merged_counters(gains(compared.before != nullptr ? compared.before->file.counters : none, now), kept);
    pane_content pane{{{"", "operation", cell_kind::text},
                       {"name", "", cell_kind::text},
                       {"opcode", ""},
                       {"calls_per_s", "calls/s"},
                       {"total_ns", "time", cell_kind::duration},
                       {"busy_percent", "busy", cell_kind::percent},
                       {"average_ns", "average", cell_kind::duration},
                       {"errors_per_s", "errors/s"},
                       {"records_per_s", "recs/s"},
                       {"cpu_percent", "cpu", cell_kind::percent},
                       {"calls", "calls"},
                       {"errors", "errors"},
                       {"records", ""},
                       {"user_cpu_ns", "", cell_kind::duration},
                       {"system_cpu_ns", "", cell_kind::duration},
                       {"all_calls", "all calls"},
                       {"program", "program", cell_kind::text},
                       {"type", "type", cell_kind::text},
                       {"", "source", cell_kind::text},
                       {"file", "", cell_kind::text},
                       {"line", ""},
                       {"flags", "flags"},
                       {"", "db", cell_kind::text},
                       {"db", ""}},
                      {},
                      10};
    // Merging keeps the order of first appearance, which is the same for both.
    for (size_t at = 0; at < gained.size(); ++at) {
        pane.rows.push_back(counter_cells(gained[at], totals[at], compared.seconds()));
    }
    return pane;
}

pane_content errors_pane(const comparison& compared, field_set kept)
{
    static const std::vector<error_counter> none;
    const std::vector<error_counter>& now = compared.now.file.errors;
    const auto totals = merged_errors(now, kept);
    const auto gained =
        merged_errors(gains(compared.before != nullptr ? compared.before->file.errors : none, now), kept);
    pane_content pane{{{"", "operation", cell_kind::text},
                       {"name", "", cell_kind::text},
                       {"opcode", ""},
                       {"error", "error"},
                       {"count_per_s", "errors/s"},
                       {"count", "count"},
                       {"all_count", "all"},
                       {"class", "class"},
                       {"location", "location"},
                       {"program", "program", cell_kind::text},
                       {"", "db", cell_kind::text},
                       {"db", ""}},
                      {},
                      5};
    for (size_t at = 0; at < gained.size(); ++at) {
        const error_counter& error = gained[at];
        pane.rows.push_back({operation_text(error.opname, error.opcode), error.opname, int64_t{error.opcode},
                             uint64_t{error.errnum}, rate(error.count, compared.seconds()), error.count,
                             totals[at].count, uint64_t{error.err_class}, uint64_t{error.location},
                             error.program, db_text(error.dbno), error.dbno});
    }
    return pane;
}

pane_content metrics_pane(const comparison& compared)
{
    pane_content pane{{{"metric", "metric", cell_kind::text},
                       {"value", "value"},
                       {"change", "change"},
                       {"change_per_s", "change/s"}},
                      {},
                      2};
    for (size_t word = 0; word < metric_words; ++word) {
        const uint64_t value = compared.now.file.metrics[word];
        cell change;
        cell per_second;
        if (compared.before != nullptr) {
            const auto moved = static_cast<int64_t>(value - compared.before->file.metrics[word]);
            change = cell(moved);
            per_second = cell(static_cast<double>(moved) / compared.seconds());
        }
        pane.rows.push_back({std::string(metric_names[word]), value, change, per_second});
    }
    return pane;
}

pane_content variables_pane(const comparison& compared)
{
    pane_content pane{
        {{"variable", "variable", cell_kind::text}, {"value", "value", cell_kind::text}}, {}, 0};
    for (const variable& each : compared.now.file.variables) {
        pane.rows.push_back({each.name, each.value});
    }
    return pane;
}

double number_in(const cell& value)
{
    switch (value.holds()) {
    case cell::content::number:
        return static_cast<double>(value.number());
    case cell::content::unsigned_number:
        return static_cast<double>(value.unsigned_number());
    case cell::content::real:
        return value.real();
    default:
        return -HUGE_VAL;
    }
}

bool is_less(const cell& a, const cell& b)
{
    if (a.holds() == cell::content::text && b.holds() == cell::content::text) {
        return a.text() < b.text();
    }
    return number_in(a) < number_in(b);
}

re2::RE2::Options search_options()
{
    re2::RE2::Options options;
    options.set_case_sensitive(false);
    options.set_log_errors(false);
    return options;
}

bool has_match(const std::vector<cell>& row, const re2::RE2& pattern)
{
    return std::any_of(row.begin(), row.end(), [&](const cell& value) {
        return value.holds() == cell::content::text && re2::RE2::PartialMatch(value.text(), pattern);
    });
}

} // namespace

double comparison::seconds() const
{
    return before == nullptr ? 0
                             : static_cast<double>(now.monotonic_tv - before->monotonic_tv) / ns_per_second;
}

pane_content build_pane(pane_kind kind, const comparison& compared, field_set kept)
{
    switch (kind) {
    case pane_kind::counters:
        return counters_pane(compared, kept);
    case pane_kind::errors:
        return errors_pane(compared, kept);
    case pane_kind::metrics:
        return metrics_pane(compared);
    case pane_kind::variables:
        break;
    }
    return variables_pane(compared);
}

std::optional<std::string> pattern_problem(const std::string& pattern)
{
    const re2::RE2 compiled(pattern, search_options());
    return compiled.ok() ? std::nullopt : std::optional(compiled.error());
}

void arrange(pane_content& content, const arrangement& wanted)
{
    const re2::RE2 pattern(wanted.pattern, search_options());
    std::erase_if(content.rows, [&](const std::vector<cell>& row) {
        const bool idle = content.gain_column != 0 && !(number_in(row[content.gain_column]) != 0);
        return (wanted.hide_idle && idle) || (!wanted.pattern.empty() && !has_match(row, pattern));
    });
    const size_t by = std::min(wanted.sort_column, content.columns.size() - 1);
    std::stable_sort(content.rows.begin(), content.rows.end(), [&](const auto& a, const auto& b) {
        return wanted.descending ? is_less(b[by], a[by]) : is_less(a[by], b[by]);
    });
}

} // namespace ostrum_tool
