#include "report/report_rows.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <type_traits>

#include <fmt/format.h>

#include "output/record_columns.h"
#include "output/value_text.h"
#include "readers/local_time.h"
#include "report/percentiles.h"

namespace ostrum_tool {
namespace {

using nlohmann::ordered_json;

constexpr double bar_width = 20; // characters

std::string bounds_text(const duration_bucket& bucket)
{
    if (bucket.from_tv == 0) {
        return bucket.to_tv == 0 ? "all" : "< " + duration_text(bucket.to_tv);
    }
    return bucket.to_tv == 0 ? ">= " + duration_text(bucket.from_tv)
                             : duration_text(bucket.from_tv) + " - " + duration_text(bucket.to_tv);
}

std::string bar(int64_t calls, int64_t all_calls)
{
    if (calls <= 0 || all_calls <= 0) {
        return "";
    }
    const double share = std::min(1.0, static_cast<double>(calls) / static_cast<double>(all_calls));
    return std::string(std::max<size_t>(1, static_cast<size_t>(std::lround(share * bar_width))), '#');
}

std::string percentile_name(double percent)
{
    return fmt::format("p{:g}", percent);
}

ordered_json buckets_json(const call_node& node)
{
    ordered_json list = ordered_json::array();
    for (const duration_bucket& bucket : node.buckets) {
        list.push_back({{"from_ns", bucket.from_tv},
                        {"to_ns", bucket.to_tv == 0 ? ordered_json() : ordered_json(bucket.to_tv)},
                        {"calls", bucket.sums.calls},
                        {"errors", bucket.sums.errors},
                        {"total_ns", bucket.sums.total_tv}});
    }
    return list;
}

// A share in percent; unknown of nothing.
cell share_cell(int64_t part, int64_t whole)
{
    return whole <= 0 ? cell() : cell(static_cast<double>(part) * 100.0 / static_cast<double>(whole));
}

// A path as tables name it. Groups have no operation.
struct named_path {
    const call_tree& tree;
    node_index index;
    const std::string& label;

    [[nodiscard]] const call_node& node() const { return tree.at(index); }
};

template <auto Member>
cell key_cell(const named_path& path)
{
    const path_key& key = path.node().key;
    if (key.is_group) {
        return {};
    }
    if constexpr (std::is_convertible_v<decltype(key.*Member), std::string_view>) {
        return std::string(key.*Member);
    } else {
        return int64_t{key.*Member};
    }
}

constexpr record_column<named_path> name_columns[] = {
    {"", "operation", cell_kind::text,
     [](const named_path& path) {
         return cell(std::string(2 * static_cast<size_t>(path.node().depth), ' ') + path.label);
     }},
    {"id", "", cell_kind::number, [](const named_path& path) { return cell(int64_t{path.index}); }},
    {"parent", "", cell_kind::number,
     [](const named_path& path) {
         return path.node().parent == call_tree::root ? cell() : cell(int64_t{path.node().parent});
     }},
    {"depth", "", cell_kind::number, [](const named_path& path) { return cell(int64_t{path.node().depth}); }},
    {"name", "", cell_kind::text, key_cell<&path_key::opname>},
    {"opcode", "", cell_kind::number, key_cell<&path_key::opcode>},
    {"flags", "", cell_kind::number, key_cell<&path_key::flags>},
    {"program", "", cell_kind::text, key_cell<&path_key::program>},
    {"file", "", cell_kind::text, key_cell<&path_key::fname>},
    {"line", "", cell_kind::number, key_cell<&path_key::lineno>},
    {"type", "", cell_kind::text, key_cell<&path_key::obj_type>},
    {"db", "", cell_kind::number, key_cell<&path_key::db_num>},
    {"group", "", cell_kind::text,
     [](const named_path& path) {
         return path.node().key.is_group ? cell(std::string(path.node().key.opname)) : cell();
     }},
};

// What a path or a duration bucket of it has in sums. A group has no other figure of its own than its time.
struct row_figures {
    const totals* sums; // null: a group
    int64_t total_tv;
    cell self, of_parent, of_all; // shares of the caller's time, and of all that there is
};

template <int64_t totals::*Member>
cell sum_cell(const row_figures& row)
{
    return row.sums == nullptr ? cell() : cell(row.sums->*Member);
}

cell min_cell(const row_figures& row)
{
    return row.sums == nullptr || row.sums->min_tv == 0 ? cell() : cell(row.sums->min_tv);
}

cell cpu_cell(const row_figures& row)
{
    const bool measured = row.sums != nullptr && (row.sums->user_cpu_tv != 0 || row.sums->sys_cpu_tv != 0);
    return measured ? cell(row.sums->cpu_tv()) : cell();
}

constexpr record_column<row_figures> figure_columns[] = {
    {"calls", "calls", cell_kind::number, sum_cell<&totals::calls>},
    {"errors", "errors", cell_kind::number, sum_cell<&totals::errors>},
    {"records", "records", cell_kind::number, sum_cell<&totals::recs>},
    {"total_ns", "total", cell_kind::duration, [](const row_figures& row) { return cell(row.total_tv); }},
    {"self_ns", "self", cell_kind::duration, [](const row_figures& row) { return row.self; }},
    {"min_ns", "min", cell_kind::duration, min_cell},
    {"average_ns", "average", cell_kind::duration,
     [](const row_figures& row) { return row.sums == nullptr ? cell() : cell(row.sums->average_tv()); }},
    {"max_ns", "max", cell_kind::duration, sum_cell<&totals::max_tv>},
    {"", "CPU", cell_kind::duration, cpu_cell},
    {"user_cpu_ns", "", cell_kind::duration, sum_cell<&totals::user_cpu_tv>},
    {"system_cpu_ns", "", cell_kind::duration, sum_cell<&totals::sys_cpu_tv>},
    {"cached_calls", "", cell_kind::number, sum_cell<&totals::cached_calls>},
    {"cached_ns", "", cell_kind::duration, sum_cell<&totals::cached_tv>},
    {"share_of_parent", "of parent", cell_kind::percent,
     [](const row_figures& row) { return row.of_parent; }},
    {"share_of_all", "of all", cell_kind::percent, [](const row_figures& row) { return row.of_all; }},
};

template <typename Element>
void append(std::vector<Element>& to, std::vector<Element> more)
{
    std::move(more.begin(), more.end(), std::back_inserter(to));
}

class row_writer {
public:
    row_writer(const call_profile& profile, const std::vector<bool>& visible, const report_options& options)
        : profile_(profile), visible_(visible), options_(options), table_(columns())
    {}

    table write_all()
    {
        push_children(call_tree::root);
        while (!pending_.empty()) {
            const labelled_node next = pending_.back();
            pending_.pop_back();
            write_node(next);
            if (options_.buckets && options_.format == output_format::text) {
                write_buckets(profile_.tree.at(next.node));
            }
            push_children(next.node);
        }
        return std::move(table_);
    }

private:
    [[nodiscard]] std::vector<column> columns() const
    {
        std::vector<column> all = path_columns();
        append(all, columns_of<row_figures>(figure_columns));
        for (const double percent : options_.percentiles) {
            const std::string name = percentile_name(percent);
            all.push_back({"", name, cell_kind::number});
            all.push_back({name + "_from_ns", "", cell_kind::duration});
            all.push_back({name + "_to_ns", "", cell_kind::duration});
        }
        if (options_.buckets) {
            all.push_back({"buckets", "", cell_kind::object});
        }
        return all;
    }

    void push_children(node_index parent)
    {
        for (labelled_node& each : shown_from_last(
                 profile_.tree, sorted_children(profile_, parent, options_.sort), visible_, options_.top)) {
            pending_.push_back(std::move(each));
        }
    }

    void write_node(const labelled_node& row)
    {
        const call_node& node = profile_.tree.at(row.node);
        const int64_t total_tv = profile_.total_tv[row.node];
        std::vector<cell> cells = path_cells(profile_.tree, row.node, row.label);
        append(cells, cells_of<row_figures>(figure_columns,
                                            {node.key.is_group ? nullptr : &node.sums, total_tv,
                                             node.key.is_group ? cell() : cell(profile_.self_tv[row.node]),
                                             share_cell(total_tv, profile_.total_tv[node.parent]),
                                             share_cell(total_tv, profile_.total_tv[call_tree::root])}));
        add_percentiles(cells, node);
        if (options_.buckets) {
            cells.push_back(cell::of_json(buckets_json(node)));
        }
        table_.add_row(std::move(cells));
    }

    void add_percentiles(std::vector<cell>& cells, const call_node& node) const
    {
        for (const double percent : options_.percentiles) {
            const auto interval = node.key.is_group ? std::nullopt : percentile(node, percent);
            if (!interval) {
                cells.insert(cells.end(), {std::string("no buckets"), cell(), cell()});
                continue;
            }
            cells.emplace_back(duration_text(interval->from_tv) + " - " + duration_text(interval->to_tv));
            cells.insert(cells.end(), {interval->from_tv, interval->to_tv});
        }
    }

    void write_buckets(const call_node& node)
    {
        const cell blank{std::string()};
        size_t widest = 0;
        for (const duration_bucket& bucket : node.buckets) {
            widest = std::max(widest, bounds_text(bucket).size());
        }
        for (const duration_bucket& bucket : node.buckets) {
            std::string label(2 * static_cast<size_t>(node.depth + 1), ' ');
            label += fmt::format("| {:<{}} {}", bounds_text(bucket), widest,
                                 bar(bucket.sums.calls, node.sums.calls));
            std::vector<cell> cells{std::move(label)};
            cells.resize(path_columns().size());
            append(cells, cells_of<row_figures>(figure_columns,
                                                {&bucket.sums, bucket.sums.total_tv, cell(), blank, blank}));
            cells.resize(columns().size(), blank);
            table_.add_row(std::move(cells));
        }
    }

    const call_profile& profile_;
    const std::vector<bool>& visible_;
    const report_options& options_;
    table table_;
    std::vector<labelled_node> pending_;
};

std::string counted(size_t count, const char* one, const char* many)
{
    return fmt::format("{}{} {}", count, count >= trace_coverage::most_remembered ? "+" : "",
                       count == 1 ? one : many);
}

} // namespace

table report_table(const call_profile& profile, const std::vector<bool>& visible,
                   const report_options& options)
{
    return row_writer(profile, visible, options).write_all();
}

std::vector<column> path_columns()
{
    return columns_of<named_path>(name_columns);
}

std::vector<cell> path_cells(const call_tree& tree, node_index index, const std::string& label)
{
    return cells_of<named_path>(name_columns, {tree, index, label});
}

std::string coverage_text(const trace_coverage& coverage)
{
    std::string text = counted(static_cast<size_t>(coverage.files), "file", "files") + ", " +
                       counted(coverage.processes(), "process", "processes") + ", " +
                       counted(coverage.threads.size(), "thread", "threads") + ", " +
                       counted(static_cast<size_t>(coverage.flushes), "flush", "flushes");
    if (coverage.from_tv > 0 && coverage.to_tv > 0) {
        text += ", " + local_time_text(coverage.from_tv) + " to " + local_time_text(coverage.to_tv);
    }
    return text;
}

} // namespace ostrum_tool
