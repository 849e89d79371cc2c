#include "completion/command_model.h"

#include "cli/option_values.h"

namespace ostrum_tool {
namespace {

// What stands in braces: "TEXT:{auto,always,never}".
std::vector<std::string> values_in(const std::string& type_name)
{
    const size_t from = type_name.find('{');
    const size_t to = type_name.rfind('}');
    std::vector<std::string> values;
    if (from != std::string::npos && to != std::string::npos) {
        for (const std::string& each : CLI::detail::split(type_name.substr(from + 1, to - from - 1), ',')) {
            values.push_back(CLI::detail::trim_copy(each));
        }
    }
    return values;
}

option_model model_of(const CLI::Option& option)
{
    option_model model;
    for (const std::string& name : option.get_snames()) {
        model.names.push_back("-" + name);
    }
    for (const std::string& name : option.get_lnames()) {
        model.names.push_back("--" + name);
    }
    if (model.names.empty()) {
        model.names.push_back(option.get_name(true));
    }
    model.help = option.get_description();
    if (option.get_items_expected_max() > 0) {
        const std::string type_name = option.get_type_name();
        model.value = type_name.substr(0, type_name.find(':'));
        model.values = values_in(type_name);
    }
    model.is_file = model.value == file_name || model.names.front().ends_with("FILE"); // the operands' names
    model.is_list = option.get_delimiter() != '\0';
    model.repeats = option.get_items_expected_max() > 1;
    model.is_required = option.get_required();
    return model;
}

// Groups of options are commands without a name, each with a --help that nobody sees.
void add_options(const CLI::App& app, command_model& model)
{
    const bool is_group = app.get_parent() != nullptr && app.get_name().empty();
    for (const CLI::Option* option : app.get_options()) {
        if (!is_group || (option != app.get_help_ptr() && option != app.get_help_all_ptr())) {
            (option->get_positional() ? model.operands : model.options).push_back(model_of(*option));
        }
    }
    for (const CLI::App* group :
         app.get_subcommands([](const CLI::App* each) { return each->get_name().empty(); })) {
        add_options(*group, model);
    }
}

command_model model_of_command(const CLI::App& app, const std::string& path)
{
    command_model model{app.get_name(), app.get_description(), path, {}, {}, {}};
    add_options(app, model);
    for (const CLI::App* each :
         app.get_subcommands([](const CLI::App* sub) { return !sub->get_name().empty(); })) {
        model.commands.push_back(
            model_of_command(*each, path.empty() ? each->get_name() : path + " " + each->get_name()));
    }
    return model;
}

} // namespace

command_model model_of_program(const CLI::App& program)
{
    return model_of_command(program, "");
}

} // namespace ostrum_tool
