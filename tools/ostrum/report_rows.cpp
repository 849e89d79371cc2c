#include "report_rows.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <tuple>

#include "tool_errors.h"
#include "value_text.h"

namespace ostrum_tool {
namespace {

constexpr double bar_width = 20; // characters

struct sort_name {
    const char* name;
    sort_key key;
};
constexpr std::array<sort_name, 7> sort_names{{{"total", sort_key::total},
                                               {"self", sort_key::self},
                                               {"calls", sort_key::calls},
                                               {"errors", sort_key::errors},
                                               {"average", sort_key::average},
                                               {"max", sort_key::max},
                                               {"name", sort_key::name}}};

int64_t sort_value(const call_tree& tree, node_index index, sort_key key)
{
    const totals& sums = tree.at(index).sums;
    switch (key) {
    case sort_key::self:
        return tree.self_tv(index);
    case sort_key::calls:
        return sums.calls;
    case sort_key::errors:
        return sums.errors;
    case sort_key::average:
        return sums.average_tv();
    case sort_key::max:
        return sums.max_tv;
    case sort_key::total:
        return sums.total_tv;
    case sort_key::name:
        break;
    }
    return 0;
}

std::vector<node_index> sorted_children(const call_tree& tree, node_index parent, sort_key key)
{
    std::vector<std::pair<int64_t, node_index>> keyed;
    for (const auto& [path, child] : tree.at(parent).children) {
        keyed.emplace_back(sort_value(tree, child, key), child);
    }
    std::sort(keyed.begin(), keyed.end(), [&](const auto& a, const auto& b) {
        if (a.first != b.first) {
            return a.first > b.first;
        }
        const path_key& left = tree.at(a.second).key;
        const path_key& right = tree.at(b.second).key;
        return std::tie(left.opname, left) < std::tie(right.opname, right);
    });
    std::vector<node_index> children;
    children.reserve(keyed.size());
    for (const auto& [value, child] : keyed) {
        children.push_back(child);
    }
    return children;
}

// The parts of a path that a label may have to name, as it names them.
using detail_texts = std::array<std::string, 5>;

detail_texts details_of(const path_key& key)
{
    return {"flags " + std::to_string(key.flags), printable(key.program), source_text(key.fname, key.lineno),
            printable(key.obj_type), "db " + db_text(key.db_num, output_format::text)};
}

// Labels the children of one node: name and number, and where several share these, also the parts in
// which they differ.
class sibling_labels {
public:
    explicit sibling_labels(const call_node& parent)
    {
        for (const auto& [key, child] : parent.children) {
            const detail_texts details = details_of(key);
            namesakes& group =
                groups_.try_emplace({key.opcode, key.opname}, namesakes{details, {}}).first->second;
            for (size_t at = 0; at < details.size(); ++at) {
                group.differs[at] = group.differs[at] || details[at] != group.first[at];
            }
        }
    }

    [[nodiscard]] std::string of(const path_key& key) const
    {
        const namesakes& group = groups_.at({key.opcode, key.opname});
        const detail_texts own = details_of(key);
        std::string details;
        for (size_t at = 0; at < own.size(); ++at) {
            if (group.differs[at] && !own[at].empty()) {
                details += (details.empty() ? "" : ", ") + own[at];
            }
        }
        return operation_text(key.opname, key.opcode) + (details.empty() ? "" : " [" + details + "]");
    }

private:
    struct namesakes {
        detail_texts first;
        std::array<bool, 5> differs;
    };
    std::map<std::pair<int32_t, std::string>, namesakes> groups_;
};

std::string bounds_text(const bucket_bounds& bounds)
{
    const auto bound = [](int64_t tv) { return duration_text(tv, output_format::text); };
    if (bounds.first == 0) {
        return bounds.second == 0 ? "all" : "< " + bound(bounds.second);
    }
    return bounds.second == 0 ? ">= " + bound(bounds.first)
                              : bound(bounds.first) + " - " + bound(bounds.second);
}

class row_writer {
public:
    row_writer(const call_tree& tree, const report_options& options, text_table& table)
        : tree_(tree), options_(options), table_(table), all_tv_(tree.children_tv(call_tree::root))
    {}

    void write_all()
    {
        push_children(call_tree::root, 0);
        while (!stack_.empty()) {
            const pending_row next = stack_.back();
            stack_.pop_back();
            write_node(next);
            if (options_.max_depth == 0 || next.depth + 1 < options_.max_depth) {
                push_children(next.node, next.depth + 1);
            }
        }
    }

private:
    struct pending_row {
        node_index node;
        int32_t depth;
        std::string label;
    };

    void push_children(node_index parent, int32_t depth)
    {
        const auto children = sorted_children(tree_, parent, options_.sort);
        const sibling_labels labels(tree_.at(parent));
        for (auto child = children.rbegin(); child != children.rend(); ++child) {
            stack_.push_back({*child, depth, labels.of(tree_.at(*child).key)});
        }
    }

    void write_node(const pending_row& row)
    {
        const call_node& node = tree_.at(row.node);
        const int64_t parent_tv =
            node.parent == call_tree::root ? all_tv_ : tree_.at(node.parent).sums.total_tv;
        add_row(row.depth, row.label, node.sums, time(tree_.self_tv(row.node)),
                share_text(node.sums.total_tv, parent_tv, options_.format),
                share_text(node.sums.total_tv, all_tv_, options_.format));
        if (options_.buckets) {
            write_buckets(node, row.depth + 1);
        }
    }

    void write_buckets(const call_node& node, int32_t depth)
    {
        size_t widest = 0;
        for (const auto& [bounds, sums] : node.buckets) {
            widest = std::max(widest, bounds_text(bounds).size());
        }
        for (const auto& [bounds, sums] : node.buckets) {
            std::string label = "| " + bounds_text(bounds);
            if (options_.format == output_format::text) {
                label.resize(widest + 3, ' ');
                label += bar(sums.calls, node.sums.calls);
            }
            add_row(depth, label, sums, "", "", "");
        }
    }

    static std::string bar(int64_t calls, int64_t all_calls)
    {
        if (calls <= 0 || all_calls <= 0) {
            return "";
        }
        const double share = std::min(1.0, static_cast<double>(calls) / static_cast<double>(all_calls));
        return std::string(std::max<size_t>(1, static_cast<size_t>(std::lround(share * bar_width))), '#');
    }

    void add_row(int32_t depth, const std::string& label, const totals& sums, std::string self,
                 std::string of_parent, std::string of_all)
    {
        const bool csv = options_.format == output_format::csv;
        std::vector<std::string> cells;
        if (csv) {
            cells.push_back(std::to_string(depth));
        }
        cells.insert(cells.end(),
                     {csv ? label : std::string(2 * static_cast<size_t>(depth), ' ') + label,
                      std::to_string(sums.calls), std::to_string(sums.errors), time(sums.total_tv),
                      std::move(self), sums.min_tv == 0 ? (csv ? "" : "-") : time(sums.min_tv),
                      time(sums.average_tv()), time(sums.max_tv), std::move(of_parent), std::move(of_all)});
        table_.add_row(std::move(cells));
    }

    [[nodiscard]] std::string time(int64_t tv) const { return duration_text(tv, options_.format); }

    const call_tree& tree_;
    const report_options& options_;
    text_table& table_;
    int64_t all_tv_;
    std::vector<pending_row> stack_;
};

} // namespace

sort_key sort_key_named(const std::string& name)
{
    const auto found = std::find_if(sort_names.begin(), sort_names.end(),
                                    [&](const sort_name& each) { return name == each.name; });
    if (found == sort_names.end()) {
        throw usage_error("cannot sort by " + name + ": total, self, calls, errors, average, max or name");
    }
    return found->key;
}

text_table report_table(const call_tree& tree, const report_options& options)
{
    std::vector<column> columns;
    if (options.format == output_format::csv) {
        columns.push_back({"depth", align::right});
    }
    columns.insert(columns.end(), {{"operation", align::left},
                                   {"calls", align::right},
                                   {"errors", align::right},
                                   {"total", align::right},
                                   {"self", align::right},
                                   {"min", align::right},
                                   {"average", align::right},
                                   {"max", align::right},
                                   {"of parent", align::right},
                                   {"of all", align::right}});
    text_table table(std::move(columns));
    row_writer(tree, options, table).write_all();
    return table;
}

} // namespace ostrum_tool
