#ifndef OSTRUM_TOOL_CLI_TRACE_OPTIONS_H
#define OSTRUM_TOOL_CLI_TRACE_OPTIONS_H
// The options that all commands over trace data files share, and the reading of what they name.
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/option_values.h"
#include "readers/trace_set.h"
#include "report/profile.h"

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

    [[nodiscard]] bool is_any() const
    {
        return !opcodes.empty() || !name_pattern.empty() || !min_time.empty() || max_depth != 0;
    }
};

void add_record_options(CLI::App& app, record_choice& chosen); // filters of records
void add_brief_option(CLI::App& app, record_choice& chosen);
void add_grouping_options(CLI::App& app, record_choice& chosen); // --by, --period
void add_view_options(CLI::App& app, view_choice& chosen);       // filters of paths

tree_options tree_options_of(const record_choice& chosen);
view_filter view_filter_of(const view_choice& chosen);

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

// Says what is damaged, where; a few of each file.
void print_damages(const std::vector<file_damages>& damaged, const streams& to);

} // namespace ostrum_tool
#endif
