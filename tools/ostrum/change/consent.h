#ifndef OSTRUM_TOOL_CHANGE_CONSENT_H
#define OSTRUM_TOOL_CHANGE_CONSENT_H
// Commands that change something say what, and how it is undone, before they do it.
#include <string>

#include "cli/command.h"

namespace ostrum_tool {

struct change_choice {
    std::string path;
    bool yes = false;
    bool dry_run = false;
};

void add_change_options(CLI::App& app, change_choice& chosen);

// Asks on a terminal; elsewhere throws usage_error without --yes. False: do nothing, which was said.
bool has_consent(const change_choice& chosen, const streams& to);

} // namespace ostrum_tool
#endif
