#include <algorithm>

#include "change/changes_of_data_file.h"
#include "change/consent.h"
#include "data/data_file_command.h"

namespace ostrum_tool {
namespace {

void show_errors(const data_file& file, output_format format, const streams& to)
{
    std::vector<error_counter> errors = file.errors;
    std::stable_sort(errors.begin(), errors.end(),
                     [](const auto& a, const auto& b) { return a.count > b.count; });
    table rows({{"count", "count"},
                {"error", "error"},
                {"class", "class"},
                {"location", "location"},
                {"", "operation", cell_kind::text},
                {"name", "", cell_kind::text},
                {"opcode", ""},
                {"program", "program", cell_kind::text},
                {"", "db"},
                {"db", ""}});
    for (const error_counter& error : errors) {
        rows.add_row({error.count, uint64_t{error.errnum}, uint64_t{error.err_class},
                      uint64_t{error.location}, operation_text(error.opname, error.opcode), error.opname,
                      int64_t{error.opcode}, error.program, db_text(error.dbno), error.dbno});
    }
    if (format == output_format::text) {
        to.out << errors.size() << " kinds of errors; a part that is not recorded shows as 0 or no name\n\n";
    }
    rows.print(to.out, format, to.style, {{"kind", "errors"}});
}

command_body declare_errors(CLI::App& app)
{
    return with_verb(app, "reset", "Set all totals to 0", declare_reset_errors,
                     declare_data_file_command(app, show_errors));
}

} // namespace

extern const command errors_command;
const command errors_command{"errors", "Error counters, most frequent first", declare_errors};

} // namespace ostrum_tool
