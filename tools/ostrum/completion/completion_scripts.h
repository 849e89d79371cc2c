#ifndef OSTRUM_TOOL_COMPLETION_COMPLETION_SCRIPTS_H
#define OSTRUM_TOOL_COMPLETION_COMPLETION_SCRIPTS_H
// The command line in the words of those that complete or describe it.
#include <ostream>

#include "completion/command_model.h"

namespace ostrum_tool {

void print_bash_completion(const command_model& program, std::ostream& out);
void print_zsh_completion(const command_model& program, std::ostream& out);
void print_fish_completion(const command_model& program, std::ostream& out);
// For programs that make documents: a line for each command, option and operand, with tabs between command,
// kind, names, value, help.
void print_command_list(const command_model& program, std::ostream& out);

} // namespace ostrum_tool
#endif
