#include "change/changes_of_data_file.h"
#include "data/data_file_command.h"
#include "data/key_columns.h"
#include "data/locked_reading.h"

namespace ostrum_tool {
namespace {

using counter = operation_counter;
using key = counter_column;

constexpr record_column<counter> counter_columns[] = {
    key::operation,
    key::name,
    key::opcode,
    key::flags,
    key::program,
    key::source,
    key::file,
    key::line,
    key::type,
    key::db_name,
    key::db,
    {"calls", "calls", cell_kind::number, [](const counter& of) { return cell(of.calls); }},
    {"errors", "errors", cell_kind::number, [](const counter& of) { return cell(of.errors); }},
    {"records", "records", cell_kind::number, [](const counter& of) { return cell(of.recs); }},
    {"total_ns", "total", cell_kind::duration,
     [](const counter& of) { return cell(signed_value(of.total_tv)); }},
    {"average_ns", "average", cell_kind::duration, [](const counter& of) { return average_cell(of); }},
    {"user_cpu_ns", "user cpu", cell_kind::duration,
     [](const counter& of) { return cell(signed_value(of.user_cpu_tv)); }},
    {"system_cpu_ns", "sys cpu", cell_kind::duration,
     [](const counter& of) { return cell(signed_value(of.sys_cpu_tv)); }},
};

constexpr record_table<counter> counters{"counters",           " live counters, last opened by process {}",
                                         &data_file::counters, counter_columns,
                                         "total_ns",           counter_field_names,
                                         counter_fields,       merged_counters,
                                         read_locked_counters};

command_body declare_counters(CLI::App& app)
{
    return with_verb(app, "reset", "Set all totals to 0", declare_reset_counters,
                     declare_record_command(app, counters));
}

} // namespace

const command counters_command{"counters", "Live operation counters, by total time", declare_counters};

} // namespace ostrum_tool
