#include <array>

#include "cli/command.h"

namespace ostrum_tool {

extern const command report_command, counters_command, errors_command, variables_command, metrics_command;

std::span<const command* const> all_commands()
{
    static constexpr std::array commands{&report_command, &counters_command, &errors_command,
                                         &variables_command, &metrics_command};
    return commands;
}

} // namespace ostrum_tool
