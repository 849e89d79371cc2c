#include <fmt/ostream.h>
#include <fmt/ranges.h>

#include "completion/completion_scripts.h"

namespace ostrum_tool {
namespace {

// Finds which command the cursor is in, and what the word under it may be. An option's value may stand
// behind "=", which bash takes for a word of its own.
constexpr const char* frame_begin = R"sh(# bash completion of ostrum
_ostrum()
{
    local current=${COMP_WORDS[COMP_CWORD]} before=$((COMP_CWORD - 1)) command= at
    if [ "$current" = = ]; then
        current=
    elif [ "$before" -gt 0 ] && [ "${COMP_WORDS[before]}" = = ]; then
        before=$((before - 1))
    fi
    for ((at = 1; at < COMP_CWORD; at++)); do
        case "$command ${COMP_WORDS[at]}" in
)sh";

constexpr const char* frame_middle = R"sh(            command="$command ${COMP_WORDS[at]}" ;;
        esac
    done
    local takes= values= options= files=
    case "$command ${COMP_WORDS[before]}" in
)sh";

constexpr const char* frame_end = R"sh(    esac
    if [ -z "$takes" ]; then
        _ostrum_words "$command"
        [[ $current != -* ]] || { values=$options files=; }
    fi
    local kept=
    [[ -z $values || $current != *,* ]] || kept=${current%,*},
    mapfile -t COMPREPLY < <(
        compgen -P "$kept" -W "$values" -- "${current#"$kept"}"
        [ -z "$files" ] || compgen -f -- "$current")
}
complete -o filenames -o bashdefault -F _ostrum ostrum
)sh";

std::vector<std::string> names_of(const std::vector<option_model>& options)
{
    std::vector<std::string> names;
    for (const option_model& each : options) {
        names.insert(names.end(), each.names.begin(), each.names.end());
    }
    return names;
}

// "vars set" is known as " vars set", and the program itself as "".
std::string key_of(const command_model& command)
{
    return command.path.empty() ? "" : " " + command.path;
}

void print_option_values(const command_model& command, std::ostream& out)
{
    for (const option_model& option : command.options) {
        if (option.value.empty()) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : option.names) {
            patterns.push_back("\"" + key_of(command) + " " + name + "\"");
        }
        fmt::print(out, "    {}) ", fmt::join(patterns, " | "));
        fmt::print(out, "takes=yes values='{}' files={} ;;\n", fmt::join(option.values, " "),
                   option.is_file ? "yes" : "");
    }
}

void print_words(const command_model& command, std::ostream& out)
{
    std::vector<std::string> values;
    bool files = false;
    for (const command_model& each : command.commands) {
        values.push_back(each.name);
    }
    for (const option_model& each : command.operands) {
        values.insert(values.end(), each.values.begin(), each.values.end());
        files = files || each.is_file;
    }
    fmt::print(out, "    \"{}\")\n        options='{}' values='{}' files={} ;;\n", key_of(command),
               fmt::join(names_of(command.options), " "), fmt::join(values, " "), files ? "yes" : "");
}

} // namespace

void print_bash_completion(const command_model& program, std::ostream& out)
{
    std::vector<std::string> commands;
    for_each_command(program, [&](const command_model& each) {
        if (!each.path.empty()) {
            commands.push_back("\"" + key_of(each) + "\"");
        }
    });
    out << frame_begin;
    fmt::print(out, "        {})\n{}", fmt::join(commands, " | "), frame_middle);
    for_each_command(program, [&](const command_model& each) { print_option_values(each, out); });
    out << frame_end << "\n_ostrum_words()\n{\n    case \"$1\" in\n";
    for_each_command(program, [&](const command_model& each) { print_words(each, out); });
    out << "    esac\n}\n";
}

} // namespace ostrum_tool
