#include <algorithm>
#include <array>

#include "command_line.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr std::array commands{&report_command, &counters_command, &errors_command, &variables_command,
                              &metrics_command};

void print_help(std::ostream& out)
{
    out << "usage: ostrum COMMAND [options] ...\n"
           "Reads the files that the Ostrum tracing library writes.\n\n";
    for (const command* each : commands) {
        std::string left = std::string("  ") + each->name + " " + each->operands;
        left.resize(std::max<size_t>(left.size() + 2, 38), ' ');
        out << left << each->summary << "\n";
    }
    out << "\n\"ostrum COMMAND --help\" shows the options of a command.\n"
           "Exit status: 0, 1 when something could not be read, 2 when the command line is wrong.\n";
}

bool asks_for_help(std::span<const std::string> words)
{
    return std::find_if(words.begin(), words.end(), [](const std::string& word) {
               return word == "--help" || word == "-h";
           }) != words.end();
}

const command& command_named(const std::string& name)
{
    const auto found = std::find_if(commands.begin(), commands.end(),
                                    [&](const command* each) { return name == each->name; });
    if (found == commands.end()) {
        throw usage_error("unknown command " + name);
    }
    return **found;
}

int run_command(std::span<const std::string> words, const streams& to)
{
    if (words.empty()) {
        throw usage_error("a command is needed");
    }
    if (words.front() == "--help" || words.front() == "-h" || words.front() == "help") {
        print_help(to.out);
        return 0;
    }
    const command& chosen = command_named(words.front());
    if (asks_for_help(words.subspan(1))) {
        print_command_help(to.out, chosen);
        return 0;
    }
    return chosen.run(parse_arguments(words.subspan(1), chosen.options), to);
}

} // namespace

int run_tool(std::span<const std::string> words, const streams& to)
{
    try {
        const int status = run_command(words, to);
        if (!to.out.flush()) {
            throw input_error("writing the output failed");
        }
        return status;
    } catch (const usage_error& error) {
        to.err << "ostrum: " << error.what() << "\nTry \"ostrum --help\".\n";
        return exit_usage;
    } catch (const std::exception& error) {
        to.err << "ostrum: " << error.what() << "\n";
        return exit_input;
    }
}

} // namespace ostrum_tool
