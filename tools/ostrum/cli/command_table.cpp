#include <array>

#include "cli/command.h"

namespace ostrum_tool {

std::span<const command* const> all_commands()
{
    static constexpr std::array commands{
        &report_command, &diff_command,      &check_command,   &export_command,    &counters_command,
        &errors_command, &variables_command, &metrics_command, &serve_command,     &flame_command,
        &top_command,    &doctor_command,    &demo_command,    &completion_command};
    return commands;
}

} // namespace ostrum_tool
