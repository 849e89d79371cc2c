#include <algorithm>

#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "output/terminal.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr const char* about = "Reads the files that the Ostrum tracing library writes.";
constexpr const char* statuses =
    "Exit status: 0 done, 1 something could not be read or written, 2 the command line is "
    "wrong, 3 nothing matched, 4 a threshold was crossed, 5 the input is damaged and what "
    "could be read is shown.";

struct chosen_command {
    CLI::App* model;
    command_body body;
};

// Everything the command line may hold. The bodies keep the values that parsing fills in.
class command_line {
public:
    command_line() : app_(about, "ostrum")
    {
        app_.footer(statuses);
        app_.require_subcommand(1);
        app_.set_help_all_flag("--help-all", "Show the options of all commands");
        for (const command* each : all_commands()) {
            CLI::App* const model = app_.add_subcommand(each->name, each->summary);
            commands_.push_back({model, each->declare(*model)});
            model->add_option("--color,--colour", colour_, "auto (default), always or never")
                ->check(CLI::IsMember({"auto", "always", "never"}));
        }
    }

    int run(std::span<const std::string> words, const streams& to)
    {
        if (!words.empty() && !words.front().starts_with("-") && !knows(words.front())) {
            throw usage_error("unknown command " + words.front());
        }
        app_.parse(std::vector<std::string>(words.rbegin(), words.rend())); // it takes them from the back
        streams styled{to.out, to.err, to.style, to.err_is_terminal};
        styled.style.colour = colour_ == "always" || (colour_ == "auto" && to.style.colour);
        for (const chosen_command& each : commands_) {
            if (each.model->parsed()) {
                return each.body(styled);
            }
        }
        return exit_usage;
    }

    // Help is data, a wrong command line is talk.
    int explain(const CLI::ParseError& error, const streams& to) const
    {
        if (error.get_exit_code() == 0) {
            app_.exit(error, to.out, to.err);
            return exit_done;
        }
        to.err << "ostrum: " << error.what() << "\nTry \"ostrum --help\".\n";
        return exit_usage;
    }

private:
    [[nodiscard]] bool knows(const std::string& name) const
    {
        return std::any_of(commands_.begin(), commands_.end(),
                           [&](const chosen_command& each) { return each.model->check_name(name); });
    }

    CLI::App app_;
    std::string colour_ = "auto";
    std::vector<chosen_command> commands_;
};

int run_parsed(command_line& line, std::span<const std::string> words, const streams& to)
{
    try {
        return line.run(words, to);
    } catch (const CLI::ParseError& error) {
        return line.explain(error, to);
    } catch (const usage_error& error) {
        to.err << "ostrum: " << error.what() << "\nTry \"ostrum --help\".\n";
        return exit_usage;
    } catch (const nothing_matched& error) {
        to.err << "ostrum: " << error.what() << "\n";
        return exit_nothing;
    } catch (const std::exception& error) {
        to.err << "ostrum: " << error.what() << "\n";
        return exit_input;
    }
}

} // namespace

int run_tool(std::span<const std::string> words, const streams& to)
{
    command_line line;
    const int status = run_parsed(line, words, to);
    if (!to.out.flush()) {
        if (reader_has_gone(to.out)) {
            return status; // whoever read had enough
        }
        to.err << "ostrum: writing the output failed\n";
        return exit_input;
    }
    return status;
}

} // namespace ostrum_tool
