#include <algorithm>

#include "data_file_command.h"

namespace ostrum_tool {
namespace {

int run_errors(const arguments& given, const streams& to)
{
    const output_format format = format_of(given);
    data_file file = data_file_of(given, to);
    std::stable_sort(file.errors.begin(), file.errors.end(),
                     [](const auto& a, const auto& b) { return a.count > b.count; });
    text_table table({{"count", align::right},
                      {"error", align::right},
                      {"class", align::right},
                      {"location", align::right},
                      {"operation", align::left},
                      {"program", align::left},
                      {"db", align::right}});
    for (const error_counter& error : file.errors) {
        table.add_row({std::to_string(error.count), std::to_string(error.errnum),
                       std::to_string(error.err_class), std::to_string(error.location),
                       operation_text(error.opname, error.opcode), printable(error.program),
                       db_text(error.dbno, format)});
    }
    if (format == output_format::text) {
        to.out << file.errors.size()
               << " kinds of errors; a part that is not recorded shows as 0 or no name\n\n";
    }
    table.print(to.out, format);
    return 0;
}

} // namespace

const command errors_command{"errors", "DATAFILE", "error counters, most frequent first", data_file_options,
                             run_errors};

} // namespace ostrum_tool
