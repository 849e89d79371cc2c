#include "change/consent.h"

#include <iostream>

#include <unistd.h>

#include "cli/option_values.h"
#include "tool_errors.h"

namespace ostrum_tool {

void add_change_options(CLI::App& app, change_choice& chosen)
{
    add_data_file_operand(app, chosen.path);
    app.add_flag("--yes", chosen.yes, "Do not ask");
    app.add_flag("--dry-run", chosen.dry_run, "Say what would change, and change nothing");
}

bool has_consent(const change_choice& chosen, const streams& to)
{
    if (chosen.dry_run) {
        to.out << "nothing was changed (--dry-run)\n";
        return false;
    }
    if (chosen.yes) {
        return true;
    }
    if (::isatty(STDIN_FILENO) != 1 || !to.err_is_terminal) {
        throw usage_error("there is nobody to ask: --yes does it without a question");
    }
    to.out.flush();
    to.err << "do it? [y/N] " << std::flush;
    std::string answer;
    std::getline(std::cin, answer);
    const bool agreed = answer == "y" || answer == "Y" || answer == "yes";
    to.out << (agreed ? "" : "nothing was changed\n");
    return agreed;
}

} // namespace ostrum_tool
