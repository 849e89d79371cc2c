#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include "completion/completion_scripts.h"

namespace ostrum_tool {
namespace {

std::string quoted(const std::string& text)
{
    std::string result = "'";
    for (const char each : text) {
        result += each == '\'' || each == '\\' ? "\\" : "";
        result += each;
    }
    return result + "'";
}

void print_option(const option_model& option, const std::string& where, std::ostream& out)
{
    out << where;
    for (const std::string& name : option.names) {
        const bool is_long = name.starts_with("--");
        fmt::print(out, " -{} {}", is_long ? 'l' : 's', name.substr(is_long ? 2 : 1));
    }
    if (!option.values.empty()) {
        const std::string words = fmt::format("{}", fmt::join(option.values, " "));
        fmt::print(out, " -x -a {}", quoted(option.is_list ? "(__fish_append , " + words + ")" : words));
    } else if (!option.value.empty()) {
        out << (option.is_file ? " -r -F" : " -x");
    }
    fmt::print(out, " -d {}\n", quoted(option.help));
}

void print_command(const command_model& command, std::ostream& out)
{
    const std::string where =
        fmt::format("complete -c ostrum -n {}", quoted("__ostrum_in " + quoted(command.path)));
    for (const command_model& each : command.commands) {
        fmt::print(out, "{} -a {} -d {}\n", where, each.name, quoted(each.summary));
    }
    for (const option_model& operand : command.operands) {
        if (!operand.values.empty()) {
            fmt::print(out, "{} -a {}\n", where, quoted(fmt::format("{}", fmt::join(operand.values, " "))));
        } else if (operand.is_file) {
            fmt::print(out, "{} -F\n", where);
        }
    }
    for (const option_model& option : command.options) {
        print_option(option, where, out);
    }
}

} // namespace

void print_fish_completion(const command_model& program, std::ostream& out)
{
    std::vector<std::string> paths;
    for_each_command(program, [&](const command_model& each) { paths.push_back(quoted(each.path)); });
    fmt::print(out, R"sh(# fish completion of ostrum
function __ostrum_in -d 'whether the cursor is in that command'
    set -l command
    for word in (commandline -opc)[2..-1]
        if contains -- "$(string join -- ' ' $command $word)" {}
            set -a command $word
        end
    end
    test "$command" = "$argv[1]"
end
complete -c ostrum -f
)sh",
               fmt::join(paths, " "));
    for_each_command(program, [&](const command_model& each) { print_command(each, out); });
}

} // namespace ostrum_tool
