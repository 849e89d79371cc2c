#ifndef OSTRUM_TOOL_COMPLETION_COMMAND_MODEL_H
#define OSTRUM_TOOL_COMPLETION_COMMAND_MODEL_H
// What the command line may hold, as shells and manual pages need it.
#include <string>
#include <vector>

#include <CLI/App.hpp>

namespace ostrum_tool {

struct option_model {
    std::vector<std::string> names; // "-o", "--output"; an operand has one without dashes
    std::string help;
    std::string value;               // "TEXT", "FILE", "UINT", ...; empty: it takes none
    std::vector<std::string> values; // all that it can be; empty: anything
    bool is_list = false;            // several in one, separated by commas
    bool repeats = false;            // operands: any number of them
    bool is_required = false;

    bool is_file = false;
};

struct command_model {
    std::string name, summary;
    std::string path; // from the program on: "vars set"; of the program itself ""
    std::vector<option_model> options, operands;
    std::vector<command_model> commands;
};

// Calls what follows for the command and all below it.
template <typename Visit>
void for_each_command(const command_model& command, Visit visit)
{
    visit(command);
    for (const command_model& each : command.commands) {
        for_each_command(each, visit);
    }
}

command_model model_of_program(const CLI::App& program);

} // namespace ostrum_tool
#endif
