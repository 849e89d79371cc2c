#include <algorithm>
#include <memory>

#include "change/changes_of_data_file.h"
#include "change/consent.h"
#include "change/library_file.h"
#include "change/watch.h"
#include "cli/option_values.h"
#include "output/value_text.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr size_t longest_name = 127;
constexpr size_t longest_value = 1023;

struct set_choice {
    change_choice common;
    std::string name, value;
    std::string wait = "5s";
};

void check_lengths(const set_choice& chosen)
{
    if (chosen.name.empty() || chosen.name.size() > longest_name) {
        throw usage_error("NAME: 1 to 127 characters");
    }
    if (chosen.value.size() > longest_value) {
        throw usage_error("VALUE: 1023 characters at most");
    }
}

void say_what_changes(const set_choice& chosen, const variable* old, const streams& to)
{
    const std::string name = printable(chosen.name);
    to.out << printable(chosen.common.path) << ": " << name << " becomes \"" << printable(chosen.value)
           << "\"";
    if (old == nullptr) {
        to.out << "; there is no such variable yet, and none is ever removed\n";
        return;
    }
    to.out << ", is \"" << printable(old->value) << "\"\nundo: ostrum vars set "
           << printable(shell_word(chosen.name) + " " + shell_word(old->value) + " " +
                        shell_word(chosen.common.path))
           << "\n";
}

int run_set(const set_choice& chosen, const streams& to)
{
    check_lengths(chosen);
    const int64_t wait_tv = duration_value("--wait", chosen.wait);
    variable_change change{chosen.common.path, chosen.name, "", chosen.value,
                           look_at_data_file(chosen.common.path)};
    const auto& variables = change.at_change.file.variables;
    const auto old = std::find_if(variables.begin(), variables.end(),
                                  [&](const variable& each) { return each.name == chosen.name; });
    say_what_changes(chosen, old != variables.end() ? &*old : nullptr, to);
    if (old != variables.end()) {
        change.before = old->value;
    }
    if (!has_consent(chosen.common, to)) {
        return chosen.common.dry_run ? exit_done : exit_input;
    }
    {
        const library_file file = open_with_locks(chosen.common.path);
        if (ostrum_variable_set(file.get(), chosen.name.c_str(), chosen.value.c_str()) != 0) {
            throw input_error(chosen.common.path + ": the variable could not be set");
        }
    }
    to.out << "set\n";
    if (wait_tv > 0) {
        to.out.flush();
        to.out << printable(watch_hosts(change, wait_tv)) << "\n";
    }
    return exit_done;
}

} // namespace

command_body declare_set_variable(CLI::App& app)
{
    const auto chosen = std::make_shared<set_choice>();
    app.add_option("NAME", chosen->name, "The variable: time_on, flist_on, trace_opcodes, ...")->required();
    app.add_option("VALUE", chosen->value, "Its new value")->required();
    add_change_options(app, chosen->common);
    app.add_option("--wait", chosen->wait,
                   "How long to watch whether hosts take it; 0: not at all (default: 5s)");
    return [chosen](const streams& to) { return run_set(*chosen, to); };
}

} // namespace ostrum_tool
