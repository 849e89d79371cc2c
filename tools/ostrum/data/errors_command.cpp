#include "change/changes_of_data_file.h"
#include "data/data_file_command.h"
#include "data/key_columns.h"
#include "data/locked_reading.h"

namespace ostrum_tool {
namespace {

using counter = error_counter;
using key = error_column;

constexpr record_column<counter> error_columns[] = {
    {"count", "count", cell_kind::number, [](const counter& of) { return cell(of.count); }},
    key::error,
    key::error_class,
    key::location,
    key::operation,
    key::name,
    key::opcode,
    key::program,
    key::db_name,
    key::db,
};

constexpr record_table<counter> errors{"errors",
                                       " kinds of errors; a part that is not recorded shows as 0 or no name",
                                       &data_file::errors,
                                       error_columns,
                                       "count",
                                       error_field_names,
                                       error_fields,
                                       merged_errors,
                                       read_locked_errors};

command_body declare_errors(CLI::App& app)
{
    return with_verb(app, "reset", "Set all totals to 0", declare_reset_errors,
                     declare_record_command(app, errors));
}

} // namespace

const command errors_command{"errors", "Error counters, most frequent first", declare_errors};

} // namespace ostrum_tool
