#ifndef OSTRUM_TOOL_CLI_TRACE_OPTIONS_H
#define OSTRUM_TOOL_CLI_TRACE_OPTIONS_H
// The options that all commands over trace data files share, and the reading of what they name.
#include <functional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/option_values.h"
#include "readers/trace_set.h"
#include "readers/view_filter.h"

namespace ostrum_tool {

struct record_choice {
    std::string since, until, by = "none", period = "1h";
    std::vector<uint32_t> pids;
    std::vector<uint64_t> tids;
    std::vector<std::string> programs;
    bool brief = false;
};

struct view_choice {
    std::vector<int32_t> opcodes;
    std::string name_pattern, min_time;
    int32_t max_depth = 0;

    bool operator==(const view_choice&) const = default;
};

void add_trace_operands(CLI::App& app, std::vector<std::string>& operands);
void add_top_option(CLI::App& app, int64_t& top);
// For what compares two sides; `when` stands in front of the help.
void add_full_option(CLI::App& app, bool& full, const std::string& when = "");
void add_record_options(CLI::App& app, record_choice& chosen); // filters of records
void add_view_options(CLI::App& app, view_choice& chosen);     // filters of paths
// Both, and what makes several paths one, or several trees of them.
void add_tree_options(CLI::App& app, record_choice& records, view_choice& view);

tree_options tree_options_of(const record_choice& chosen);
view_filter view_filter_of(const view_choice& chosen);

// "." when there are none.
std::vector<std::string> operands_or_here(const std::vector<std::string>& operands);

// Calls it for each name. What it throws as input_error goes to err; false then.
bool for_each_readable(const std::vector<std::string>& names, const streams& to,
                       const std::function<void(const std::string& name)>& take);

// The trace data files that the operands name, "." when there are none. Those that cannot be looked at go
// to err and make `unreadable` true.
struct named_files {
    std::vector<std::string> files;
    bool unreadable = false;
};
named_files files_named(const std::vector<std::string>& operands, const streams& to,
                        const std::string& ending = ".plog.txt");

struct loaded_traces {
    trace_set set;
    int status = 0; // 0, exit_input or exit_damaged
};

// Reads them all, with progress and damage on err. Throws nothing_matched when there is no operation.
loaded_traces load_traces(const std::vector<std::string>& operands, const record_choice& chosen,
                          const streams& to);

// The two sides of a comparison.
struct loaded_pair {
    loaded_traces before, after;

    [[nodiscard]] bool has_both() const
    {
        return before.set.coverage.operations > 0 && after.set.coverage.operations > 0;
    }
    [[nodiscard]] int status() const { return before.status != 0 ? before.status : after.status; }
};
// Unless `full`, paths that differ in more than operation and caller are one, so that more of them have a
// counterpart.
loaded_pair load_both(const std::vector<std::string>& before, const std::vector<std::string>& after,
                      const record_choice& chosen, bool full, const streams& to);

// Says what is damaged, where: the first ones, and how many more there are.
void print_damages(const std::string& name, const damage_list& damages, size_t most, std::ostream& out);
// A few of each file, on err.
void print_damages(const std::vector<file_damages>& damaged, const streams& to);

} // namespace ostrum_tool
#endif
