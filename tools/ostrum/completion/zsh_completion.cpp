#include <algorithm>

#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include "completion/completion_scripts.h"

namespace ostrum_tool {
namespace {

// A text within single quotes, where _arguments reads it: its own brackets and colons end no part of the
// option's line.
std::string text_of(const std::string& text)
{
    std::string result;
    for (const char each : text) {
        if (each == '\'') {
            result += "'\\''";
            continue;
        }
        result += std::string("[]:\\").find(each) == std::string::npos ? "" : "\\";
        result += each;
    }
    return result;
}

std::string function_of(const command_model& command)
{
    std::string name = command.path.empty() ? "_ostrum" : "_ostrum_" + command.path;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
}

// What _arguments does for a value.
std::string action_of(const option_model& option)
{
    if (!option.values.empty()) {
        const std::string words = fmt::format("{}", fmt::join(option.values, " "));
        return option.is_list ? "_sequence compadd - " + words : "(" + words + ")";
    }
    return option.is_file ? "_files" : " ";
}

void print_option(const option_model& option, std::ostream& out)
{
    const std::string others =
        option.repeats || option.is_list ? "*" : fmt::format("({})", fmt::join(option.names, " "));
    for (const std::string& name : option.names) {
        const bool takes_value = !option.value.empty();
        fmt::print(out, "        '{}{}{}[{}]{}' \\\n", others, name,
                   takes_value && name.starts_with("--") ? "=" : "", text_of(option.help),
                   takes_value ? ":value:" + action_of(option) : "");
    }
}

// Of a command with others below it: the first word that is no option is one of them, or an operand.
void print_choice(const command_model& command, std::ostream& out)
{
    out << "        '1: :->first' '*:: :->rest' && return\n    case $state in\n    first)\n        local -a "
           "commands=(\n";
    for (const command_model& each : command.commands) {
        fmt::print(out, "            '{}:{}'\n", each.name, text_of(each.summary));
    }
    const bool files = std::any_of(command.operands.begin(), command.operands.end(),
                                   [](const option_model& each) { return each.is_file; });
    fmt::print(out,
               "        )\n        _describe command commands{} ;;\n    rest)\n        case $line[1] in\n",
               files ? "\n        _files" : "");
    for (const command_model& each : command.commands) {
        fmt::print(out, "        {}) {} ;;\n", each.name, function_of(each));
    }
    out << "        esac ;;\n    esac\n";
}

void print_operands(const command_model& command, std::ostream& out)
{
    for (const option_model& operand : command.operands) {
        fmt::print(out, "        '{}:{}:{}' \\\n",
                   operand.repeats       ? "*"
                   : operand.is_required ? ""
                                         : ":",
                   operand.names.front(), action_of(operand));
    }
    out << "        && return\n";
}

void print_function(const command_model& command, std::ostream& out)
{
    fmt::print(out,
               "{}()\n{{\n    local curcontext=$curcontext state line\n    typeset -A opt_args\n    "
               "_arguments -C \\\n",
               function_of(command));
    for (const option_model& option : command.options) {
        print_option(option, out);
    }
    command.commands.empty() ? print_operands(command, out) : print_choice(command, out);
    out << "}\n";
}

} // namespace

// Installed as a file that zsh loads when it is needed, and sourced from a start-up file: both work.
void print_zsh_completion(const command_model& program, std::ostream& out)
{
    out << "#compdef ostrum\n# zsh completion of ostrum\n";
    for_each_command(program, [&](const command_model& each) { print_function(each, out); });
    out << "if [ \"$funcstack[1]\" = _ostrum ]; then\n    _ostrum \"$@\"\nelse\n    compdef _ostrum "
           "ostrum\nfi\n";
}

} // namespace ostrum_tool
