#include "change/consent.h"

#include <iostream>

#include <unistd.h>

#include "tool_errors.h"

namespace ostrum_tool {

void add_change_options(CLI::App& app, change_choice& chosen)
{
    app.add_option("DATAFILE", chosen.path, "The data file (default: ostrum_data.dat)");
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

std::string shell_word(const std::string& text)
{
    const char* const plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,:=@%+";
    if (!text.empty() && text.find_first_not_of(plain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char c : text) {
        word += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return word + "'";
}

command_body with_verb(CLI::App& app, const char* verb, const char* summary,
                       command_body (*declare)(CLI::App& app), command_body show)
{
    CLI::App* const model = app.add_subcommand(verb, summary);
    return [model, change = declare(*model), show = std::move(show)](const streams& to) {
        return model->parsed() ? change(to) : show(to);
    };
}

} // namespace ostrum_tool
