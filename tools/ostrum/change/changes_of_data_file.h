#ifndef OSTRUM_TOOL_CHANGE_SET_VARIABLE_H
#define OSTRUM_TOOL_CHANGE_SET_VARIABLE_H
#include "cli/command.h"

namespace ostrum_tool {

command_body declare_set_variable(CLI::App& app); // vars set
command_body declare_reset_counters(CLI::App& app);
command_body declare_reset_errors(CLI::App& app);

} // namespace ostrum_tool
#endif
