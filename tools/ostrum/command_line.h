#ifndef OSTRUM_TOOL_COMMAND_LINE_H
#define OSTRUM_TOOL_COMMAND_LINE_H
// Subcommands, their options, and the two streams they write to.
#include <map>
#include <ostream>
#include <span>
#include <string>
#include <vector>

namespace ostrum_tool {

struct option_spec {
    const char* name;       // "--sort"
    const char* value_name; // null: the option takes no value
    const char* help;
};

struct arguments {
    std::map<std::string, std::string> options; // by name; "" for an option without a value
    std::vector<std::string> operands;

    [[nodiscard]] bool has(const std::string& option) const { return options.count(option) != 0; }
    [[nodiscard]] std::string value(const std::string& option, const std::string& fallback) const;
};

struct streams {
    std::ostream& out;
    std::ostream& err;
};

struct command {
    const char* name;
    const char* operands; // as the help text shows them
    const char* summary;
    std::span<const option_spec> options;
    int (*run)(const arguments& given, const streams& to); // returns the exit status
};

extern const command report_command, counters_command, errors_command, variables_command, metrics_command;

inline constexpr option_spec format_option{"--format", "text|csv", "aligned columns (default) or CSV"};

// Options may stand anywhere; "--" ends them, "-" is an operand. Throws usage_error.
arguments parse_arguments(std::span<const std::string> words, std::span<const option_spec> known);

// The only operand of a command that takes one. Throws usage_error.
const std::string& single_operand(const arguments& given);

void print_command_help(std::ostream& out, const command& of);

// The whole program: picks the subcommand, runs it, turns what it throws into a line on err.
// Returns the exit status: 0, exit_input or exit_usage.
int run_tool(std::span<const std::string> words, const streams& to);

} // namespace ostrum_tool
#endif
