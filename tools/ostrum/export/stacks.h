#ifndef OSTRUM_TOOL_EXPORT_STACKS_H
#define OSTRUM_TOOL_EXPORT_STACKS_H
// Call paths as the stacks that flame-graph programs read.
#include <ostream>
#include <string>
#include <vector>

#include "report/profile.h"

namespace ostrum_tool {

enum class stack_weight { self_tv, calls };

// One line a path: the names from the outermost on, with ';' between them, and the weight in ns or calls.
// In names ';' and line ends become ':' and blanks. Paths of weight 0 are left out.
void write_collapsed(std::ostream& out, const call_profile& profile, const std::vector<bool>& visible,
                     stack_weight weight);

// A file of https://www.speedscope.app/file-format-schema.json, one profile for each group or for all.
void write_speedscope(std::ostream& out, const call_profile& profile, const std::vector<bool>& visible,
                      stack_weight weight, const std::string& name);

} // namespace ostrum_tool
#endif
