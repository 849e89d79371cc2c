#include <algorithm>

#include "change/changes_of_data_file.h"
#include "data/data_file_command.h"
#include "data/locked_reading.h"
#include "readers/local_time.h"

namespace ostrum_tool {
namespace {

void show_variables(const data_file& file, output_format format, const streams& to)
{
    std::vector<variable> variables = file.variables;
    std::sort(variables.begin(), variables.end(),
              [](const variable& a, const variable& b) { return a.name < b.name; });
    table rows({{"variable", "variable", cell_kind::text}, {"value", "value", cell_kind::text}});
    for (const variable& each : variables) {
        rows.add_row({each.name, each.value});
    }
    if (format == output_format::text) {
        to.out << variables.size() << " variables, last change "
               << (file.variables_changed_tv > 0 ? local_time_text(file.variables_changed_tv) : "unknown")
               << "\n\n";
    }
    rows.print(to.out, format, to.style, {{"kind", "vars"}, {"changed_ns", file.variables_changed_tv}});
}

command_body declare_variables(CLI::App& app)
{
    app.alias("variables");
    return with_verb(app, "set", "Set a variable, for all hosts that use the file", declare_set_variable,
                     declare_data_file_command(app, read_locked_variables, show_variables));
}

} // namespace

const command variables_command{"vars", "The variables that steer tracing at run time", declare_variables};

} // namespace ostrum_tool
