#include <algorithm>

#include "data_file_command.h"

namespace ostrum_tool {
namespace {

int run_variables(const arguments& given, const streams& to)
{
    const output_format format = format_of(given);
    data_file file = data_file_of(given, to);
    std::sort(file.variables.begin(), file.variables.end(),
              [](const variable& a, const variable& b) { return a.name < b.name; });
    text_table table({{"variable", align::left}, {"value", align::left}});
    for (const variable& each : file.variables) {
        table.add_row({printable(each.name), printable(each.value)});
    }
    if (format == output_format::text) {
        to.out << file.variables.size() << " variables, last change "
               << (file.variables_changed_tv > 0 ? date_text(file.variables_changed_tv) : "unknown")
               << "\n\n";
    }
    table.print(to.out, format);
    return 0;
}

} // namespace

const command variables_command{"variables", "DATAFILE", "the variables that steer tracing at run time",
                                data_file_options, run_variables};

} // namespace ostrum_tool
