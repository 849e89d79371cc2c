#include "report/report_rows.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

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
        all.insert(all.end(), {{"calls", "calls"},
                               {"errors", "errors"},
                               {"records", "records"},
                               {"total_ns", "total", cell_kind::duration},
                               {"self_ns", "self", cell_kind::duration},
                               {"min_ns", "min", cell_kind::duration},
                               {"average_ns", "average", cell_kind::duration},
                               {"max_ns", "max", cell_kind::duration},
                               {"", "CPU", cell_kind::duration},
                               {"user_cpu_ns", "", cell_kind::duration},
                               {"system_cpu_ns", "", cell_kind::duration},
                               {"cached_calls", ""},
                               {"cached_ns", "", cell_kind::duration},
                               {"share_of_parent", "of parent", cell_kind::percent},
                               {"share_of_all", "of all", cell_kind::percent}});
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
        std::vector<cell> cells;
        add_path_cells(cells, profile_.tree, row.node, row.label);
        if (node.key.is_group) {
            add_group_time(cells, profile_.total_tv[row.node]);
        } else {
            add_figures(cells, node.sums, profile_.total_tv[row.node], profile_.self_tv[row.node]);
        }
        cells.push_back(share_cell(profile_.total_tv[row.node], profile_.total_tv[node.parent]));
        cells.push_back(share_cell(profile_.total_tv[row.node], profile_.total_tv[call_tree::root]));
        add_percentiles(cells, node);
        if (options_.buckets) {
            cells.push_back(cell::of_json(buckets_json(node)));
        }
        table_.add_row(std::move(cells));
    }

    // The cells from calls to the time served by a cache.
    static constexpr size_t figure_cells = 13;

    // A group has no other figure of its own.
    static void add_group_time(std::vector<cell>& cells, int64_t total_tv)
    {
        const size_t behind = cells.size() + figure_cells;
        cells.insert(cells.end(), {cell(), cell(), cell(), total_tv});
        cells.resize(behind);
    }

    static void add_figures(std::vector<cell>& cells, const totals& sums, int64_t total_tv, cell self)
    {
        const bool cpu_measured = sums.user_cpu_tv != 0 || sums.sys_cpu_tv != 0;
        cells.insert(cells.end(), {sums.calls, sums.errors, sums.recs, total_tv, std::move(self),
                                   sums.min_tv == 0 ? cell() : cell(sums.min_tv), sums.average_tv(),
                                   sums.max_tv, cpu_measured ? cell(sums.cpu_tv()) : cell(), sums.user_cpu_tv,
                                   sums.sys_cpu_tv, sums.cached_calls, sums.cached_tv});
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
            add_figures(cells, bucket.sums, bucket.sums.total_tv, cell());
            cells.resize(columns().size(), cell(std::string()));
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
    return {{"", "operation", cell_kind::text},
            {"id", ""},
            {"parent", ""},
            {"depth", ""},
            {"name", "", cell_kind::text},
            {"opcode", ""},
            {"flags", ""},
            {"program", "", cell_kind::text},
            {"file", "", cell_kind::text},
            {"line", ""},
            {"type", "", cell_kind::text},
            {"db", ""},
            {"group", "", cell_kind::text}};
}

void add_path_cells(std::vector<cell>& cells, const call_tree& tree, node_index index,
                    const std::string& label)
{
    const call_node& node = tree.at(index);
    const path_key& key = node.key;
    cells.emplace_back(std::string(2 * static_cast<size_t>(node.depth), ' ') + label);
    cells.emplace_back(int64_t{index});
    cells.push_back(node.parent == call_tree::root ? cell() : cell(int64_t{node.parent}));
    cells.emplace_back(int64_t{node.depth});
    if (key.is_group) {
        cells.resize(cells.size() + 8);
        cells.emplace_back(std::string(key.opname));
        return;
    }
    cells.insert(cells.end(), {std::string(key.opname), int64_t{key.opcode}, int64_t{key.flags},
                               std::string(key.program), std::string(key.fname), int64_t{key.lineno},
                               std::string(key.obj_type), key.db_num, cell()});
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
