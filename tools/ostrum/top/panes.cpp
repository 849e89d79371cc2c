#include "top/panes.h"

#include <algorithm>

#include <re2/re2.h>

#include "data/key_columns.h"
#include "readers/time_units.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

cell rate(uint64_t gained, double seconds)
{
    return seconds > 0 ? cell(static_cast<double>(gained) / seconds) : cell();
}

// Of a second of one processor; several threads reach more than 100 %.
cell share_of_time(uint64_t gained_tv, double seconds)
{
    return seconds > 0 ? cell(static_cast<double>(gained_tv) * 100 / (seconds * ns_per_second)) : cell();
}

// A record with what its totals have gained, and with all that they hold.
template <typename Record>
struct live {
    Record gained;
    const Record& total;
    double seconds;
};

// A column of records, of what they have gained.
template <const auto& Column, typename Record>
constexpr record_column<live<Record>> of_gained_record(const record_column<Record>& /*Column*/)
{
    return {Column.key, Column.title, Column.kind,
            [](const live<Record>& row) { return Column.value(row.gained); }, Column.fields};
}
template <const auto& Column>
constexpr auto of_gained = of_gained_record<Column>(Column);

using counter = live<operation_counter>;
using error = live<error_counter>;
using counter_member = uint64_t operation_counter::*;

template <counter_member Total>
cell gained_rate(const counter& of)
{
    return rate(of.gained.*Total, of.seconds);
}

template <counter_member Total>
cell gained_total(const counter& of)
{
    return cell(of.gained.*Total);
}

template <counter_member Total>
cell gained_time(const counter& of)
{
    return cell(signed_value(of.gained.*Total));
}

using ck = counter_column;
using ek = error_column;

constexpr record_column<counter> counter_columns[] = {
    of_gained<ck::operation>,
    of_gained<ck::name>,
    of_gained<ck::opcode>,
    {"calls_per_s", "calls/s", cell_kind::number, gained_rate<&operation_counter::calls>},
    {"total_ns", "time", cell_kind::duration, gained_time<&operation_counter::total_tv>},
    {"busy_percent", "busy", cell_kind::percent,
     [](const counter& of) { return share_of_time(of.gained.total_tv, of.seconds); }},
    {"average_ns", "average", cell_kind::duration, [](const counter& of) { return average_cell(of.gained); }},
    {"errors_per_s", "errors/s", cell_kind::number, gained_rate<&operation_counter::errors>},
    {"records_per_s", "recs/s", cell_kind::number, gained_rate<&operation_counter::recs>},
    {"cpu_percent", "cpu", cell_kind::percent,
     [](const counter& of) {
         return share_of_time(of.gained.user_cpu_tv + of.gained.sys_cpu_tv, of.seconds);
     }},
    {"calls", "calls", cell_kind::number, gained_total<&operation_counter::calls>},
    {"errors", "errors", cell_kind::number, gained_total<&operation_counter::errors>},
    {"records", "", cell_kind::number, gained_total<&operation_counter::recs>},
    {"user_cpu_ns", "", cell_kind::duration, gained_time<&operation_counter::user_cpu_tv>},
    {"system_cpu_ns", "", cell_kind::duration, gained_time<&operation_counter::sys_cpu_tv>},
    {"all_calls", "all calls", cell_kind::number, [](const counter& of) { return cell(of.total.calls); }},
    of_gained<ck::program>,
    of_gained<ck::type>,
    of_gained<ck::source>,
    of_gained<ck::file>,
    of_gained<ck::line>,
    of_gained<ck::flags>,
    of_gained<ck::db_name>,
    of_gained<ck::db>,
};

constexpr record_column<error> error_columns[] = {
    of_gained<ek::operation>,
    of_gained<ek::name>,
    of_gained<ek::opcode>,
    of_gained<ek::error>,
    {"count_per_s", "errors/s", cell_kind::number,
     [](const error& of) { return rate(of.gained.count, of.seconds); }},
    {"count", "count", cell_kind::number, [](const error& of) { return cell(of.gained.count); }},
    {"all_count", "all", cell_kind::number, [](const error& of) { return cell(of.total.count); }},
    of_gained<ek::error_class>,
    of_gained<ek::location>,
    of_gained<ek::program>,
    of_gained<ek::db_name>,
    of_gained<ek::db>,
};

// Merging keeps the order of first appearance, which is the same for what there is and what was gained.
template <typename Record>
pane_content records_pane(const comparison& compared, std::vector<Record> data_file::*records,
                          std::vector<Record> (*merged)(std::vector<Record>, field_set), field_set kept,
                          std::span<const record_column<live<Record>>> columns, const char* gain_key,
                          const char* sort_key)
{
    static const std::vector<Record> none;
    const std::vector<Record>& now = compared.now.file.*records;
    const std::vector<Record>& before = compared.before != nullptr ? compared.before->file.*records : none;
    const auto totals = merged(now, kept);
    const auto gained = merged(gains(before, now), kept);
    pane_content pane{columns_of(columns, kept), {}};
    pane.gain_column = find_column(pane.columns, gain_key);
    pane.first_sort = find_column(pane.columns, sort_key);
    for (size_t at = 0; kept != 0 && at < columns.size(); ++at) {
        if ((columns[at].fields & kept) != 0) {
            pane.leading.push_back(at);
        }
    }
    for (size_t at = 0; at < gained.size(); ++at) {
        pane.rows.push_back(cells_of(columns, {gained[at], totals[at], compared.seconds()}, kept));
    }
    return pane;
}

pane_content metrics_pane(const comparison& compared)
{
    pane_content pane{{{"metric", "metric", cell_kind::text},
                       {"value", "value"},
                       {"change", "change"},
                       {"change_per_s", "change/s"}},
                      {}};
    pane.gain_column = find_column(pane.columns, "change");
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
    pane_content pane{{{"variable", "variable", cell_kind::text}, {"value", "value", cell_kind::text}}, {}};
    for (const variable& each : compared.now.file.variables) {
        pane.rows.push_back({each.name, each.value});
    }
    return pane;
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
        return records_pane<operation_counter>(compared, &data_file::counters, merged_counters, kept,
                                               counter_columns, "calls", "total_ns");
    case pane_kind::errors:
        return records_pane<error_counter>(compared, &data_file::errors, merged_errors, kept, error_columns,
                                           "count", "count");
    case pane_kind::metrics:
        return metrics_pane(compared);
    case pane_kind::variables:
        break;
    }
    return variables_pane(compared);
}

arrangement arrangement_by(pane_kind kind, const std::string& column)
{
    const look nothing;
    const pane_content pane = build_pane(kind, {nullptr, nothing}, 0);
    const size_t by = column.empty() ? pane.first_sort : find_column(pane.columns, column);
    if (by == pane.columns.size()) {
        throw usage_error("--sort " + column + ": no column of this pane");
    }
    return {by, sorts_descending(pane.columns[by]), "", false};
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
    sort_rows(content.rows, by, wanted.descending);
}

} // namespace ostrum_tool
