#include <algorithm>
#include <array>
#include <memory>

#include <CLI/CLI.hpp>
#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include "cli/command.h"
#include "completion/completion_scripts.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

struct script_form {
    const char* name;
    void (*print)(const command_model& program, std::ostream& out);
};
constexpr std::array forms{
    script_form{"bash", print_bash_completion}, script_form{"zsh", print_zsh_completion},
    script_form{"fish", print_fish_completion}, script_form{"list", print_command_list}};

void print_line(const command_model& command, const char* kind, const option_model& option, std::ostream& out)
{
    const std::string value =
        option.values.empty() ? option.value : fmt::format("{}", fmt::join(option.values, "|"));
    fmt::print(out, "{}\t{}\t{}\t{}{}\t{}\n", command.path, kind, fmt::join(option.names, ","), value,
               option.repeats || option.is_list ? "..." : "", option.help);
}

command_body declare_completion(CLI::App& app)
{
    const auto form = std::make_shared<std::string>();
    std::vector<std::string> names(forms.size());
    std::transform(forms.begin(), forms.end(), names.begin(),
                   [](const script_form& each) { return each.name; });
    app.add_option("SHELL", *form, "bash, zsh or fish; list: all options, for programs that make documents")
        ->required()
        ->check(CLI::IsMember(names));
    return [form, program = app.get_parent()](const streams& to) {
        const auto* const chosen = std::find_if(forms.begin(), forms.end(),
                                                [&](const script_form& each) { return *form == each.name; });
        chosen->print(model_of_program(*program), to.out);
        return exit_done;
    };
}

} // namespace

void print_command_list(const command_model& program, std::ostream& out)
{
    for_each_command(program, [&](const command_model& command) {
        fmt::print(out, "{}\tcommand\t\t\t{}\n", command.path, command.summary);
        for (const option_model& each : command.options) {
            print_line(command, "option", each, out);
        }
        for (const option_model& each : command.operands) {
            print_line(command, each.is_required ? "required" : "operand", each, out);
        }
    });
}

const command completion_command{"completion", "What a shell needs to complete words of the command line",
                                 declare_completion};

} // namespace ostrum_tool
