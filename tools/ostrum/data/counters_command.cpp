#include <algorithm>

#include "change/changes_of_data_file.h"
#include "change/consent.h"
#include "data/data_file_command.h"

namespace ostrum_tool {
namespace {

std::vector<cell> cells_of(const operation_counter& counter)
{
    const int64_t total_tv = signed_value(counter.total_tv);
    const int64_t calls = signed_value(counter.calls);
    return {operation_text(counter.opname, counter.opcode),
            counter.opname,
            int64_t{counter.opcode},
            uint64_t{counter.opflags},
            counter.program,
            source_text(counter.fname, counter.lineno),
            counter.fname,
            int64_t{counter.lineno},
            counter.obj_type,
            db_text(counter.db_number),
            counter.db_number,
            counter.calls,
            counter.errors,
            counter.recs,
            total_tv,
            calls == 0 ? cell() : cell(total_tv / calls),
            signed_value(counter.user_cpu_tv),
            signed_value(counter.sys_cpu_tv)};
}

void show_counters(const data_file& file, output_format format, const streams& to)
{
    std::vector<operation_counter> counters = file.counters;
    std::stable_sort(counters.begin(), counters.end(),
                     [](const auto& a, const auto& b) { return a.total_tv > b.total_tv; });
    table rows({{"", "operation", cell_kind::text},
                {"name", "", cell_kind::text},
                {"opcode", ""},
                {"flags", "flags"},
                {"program", "program", cell_kind::text},
                {"", "source", cell_kind::text},
                {"file", "", cell_kind::text},
                {"line", ""},
                {"type", "type", cell_kind::text},
                {"", "db"},
                {"db", ""},
                {"calls", "calls"},
                {"errors", "errors"},
                {"records", "records"},
                {"total_ns", "total", cell_kind::duration},
                {"average_ns", "average", cell_kind::duration},
                {"user_cpu_ns", "user cpu", cell_kind::duration},
                {"system_cpu_ns", "sys cpu", cell_kind::duration}});
    for (const operation_counter& counter : counters) {
        rows.add_row(cells_of(counter));
    }
    if (format == output_format::text) {
        to.out << counters.size() << " live counters, last opened by process " << file.pid << "\n\n";
    }
    rows.print(to.out, format, to.style, {{"kind", "counters"}, {"pid", file.pid}});
}

command_body declare_counters(CLI::App& app)
{
    return with_verb(app, "reset", "Set all totals to 0", declare_reset_counters,
                     declare_data_file_command(app, show_counters));
}

} // namespace

extern const command counters_command;
const command counters_command{"counters", "Live operation counters, by total time", declare_counters};

} // namespace ostrum_tool
