#ifndef OSTRUM_TOOL_CLI_COMMAND_H
#define OSTRUM_TOOL_CLI_COMMAND_H
// A subcommand: its name, its options, and what it does with them.
#include <functional>
#include <ostream>
#include <span>
#include <string>
#include <utility>

#include <CLI/App.hpp>

#include "output/table.h"

namespace ostrum_tool {

// Data goes to out, talk to err.
struct streams {
    std::ostream& out;
    std::ostream& err;
    text_style style;             // of out
    bool err_is_terminal = false; // progress is shown only there
};

using command_body = std::function<int(const streams& to)>; // returns the exit status

struct command {
    const char* name;
    const char* summary;
    // Adds the options to the subcommand's model and gives what runs once they are parsed. Values live in
    // the body that is returned.
    command_body (*declare)(CLI::App& app);
    bool long_text = false; // so that a terminal gets it through a pager
};

extern const command report_command, diff_command, check_command, export_command, counters_command,
    errors_command, variables_command, metrics_command, serve_command, flame_command, top_command,
    doctor_command, demo_command, completion_command;
std::span<const command* const> all_commands(); // in the order of the help text

// Adds a subcommand `verb` to a command that shows something without it.
inline command_body with_verb(CLI::App& app, const char* verb, const char* summary,
                              command_body (*declare)(CLI::App& app), command_body show)
{
    CLI::App* const model = app.add_subcommand(verb, summary);
    return [model, change = declare(*model), show = std::move(show)](const streams& to) {
        return model->parsed() ? change(to) : show(to);
    };
}

// The whole program: picks the subcommand, runs it, turns what it throws into a line on err.
// Returns the exit status.
int run_tool(std::span<const std::string> words, const streams& to);

} // namespace ostrum_tool
#endif
