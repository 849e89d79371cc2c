#ifndef OSTRUM_TOOL_CHANGE_CHANGES_OF_DATA_FILE_H
#define OSTRUM_TOOL_CHANGE_CHANGES_OF_DATA_FILE_H
// The subcommands that change something.
#include "cli/command.h"

namespace ostrum_tool {

command_body declare_set_variable(CLI::App& app); // vars set
command_body declare_reset_counters(CLI::App& app);
command_body declare_reset_errors(CLI::App& app);

} // namespace ostrum_tool
#endif
