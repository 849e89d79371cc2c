#include "command_line.h"

#include <algorithm>

#include "tool_errors.h"

namespace ostrum_tool {

std::string arguments::value(const std::string& option, const std::string& fallback) const
{
    const auto found = options.find(option);
    return found == options.end() ? fallback : found->second;
}

arguments parse_arguments(std::span<const std::string> words, std::span<const option_spec> known)
{
    arguments given;
    bool options_ended = false;
    for (size_t at = 0; at < words.size(); ++at) {
        const std::string& word = words[at];
        if (options_ended || word == "-" || !word.starts_with("-")) {
            given.operands.push_back(word);
            continue;
        }
        if (word == "--") {
            options_ended = true;
            continue;
        }
        const size_t equals = word.find('=');
        const std::string name = word.substr(0, equals);
        const auto spec =
            std::find_if(known.begin(), known.end(), [&](const option_spec& s) { return name == s.name; });
        if (spec == known.end()) {
            throw usage_error("unknown option " + name);
        }
        const bool has_value = equals != std::string::npos;
        if (spec->value_name == nullptr && has_value) {
            throw usage_error("option " + name + " takes no value");
        }
        if (spec->value_name == nullptr) {
            given.options[name] = "";
        } else if (has_value) {
            given.options[name] = word.substr(equals + 1);
        } else if (at + 1 < words.size()) {
            given.options[name] = words[++at];
        } else {
            throw usage_error("option " + name + " needs a value: " + spec->value_name);
        }
    }
    return given;
}

const std::string& single_operand(const arguments& given)
{
    if (given.operands.size() != 1) {
        throw usage_error("exactly one DATAFILE is needed");
    }
    return given.operands.front();
}

void print_command_help(std::ostream& out, const command& of)
{
    out << "usage: ostrum " << of.name << " [options] " << of.operands << "\n" << of.summary << "\n";
    for (const option_spec& option : of.options) {
        std::string left = std::string("  ") + option.name;
        if (option.value_name != nullptr) {
            left += std::string(" ") + option.value_name;
        }
        left.resize(std::max<size_t>(left.size() + 2, 38), ' ');
        out << left << option.help << "\n";
    }
}

} // namespace ostrum_tool
