#include <algorithm>

#include "data_file_command.h"

namespace ostrum_tool {
namespace {

std::vector<std::string> row_of(const operation_counter& counter, output_format format)
{
    const auto time = [format](uint64_t tv) { return duration_text(signed_value(tv), format); };
    const uint64_t average_tv = counter.calls == 0 ? 0 : counter.total_tv / counter.calls;
    return {operation_text(counter.opname, counter.opcode),
            std::to_string(counter.opflags),
            printable(counter.program),
            source_text(counter.fname, counter.lineno),
            printable(counter.obj_type),
            db_text(counter.db_number, format),
            std::to_string(counter.calls),
            std::to_string(counter.errors),
            std::to_string(counter.recs),
            time(counter.total_tv),
            time(average_tv),
            time(counter.user_cpu_tv),
            time(counter.sys_cpu_tv)};
}

int run_counters(const arguments& given, const streams& to)
{
    const output_format format = format_of(given);
    data_file file = data_file_of(given, to);
    std::stable_sort(file.counters.begin(), file.counters.end(),
                     [](const auto& a, const auto& b) { return a.total_tv > b.total_tv; });
    text_table table({{"operation", align::left},
                      {"flags", align::right},
                      {"program", align::left},
                      {"source", align::left},
                      {"type", align::left},
                      {"db", align::right},
                      {"calls", align::right},
                      {"errors", align::right},
                      {"records", align::right},
                      {"total", align::right},
                      {"average", align::right},
                      {"user cpu", align::right},
                      {"sys cpu", align::right}});
    for (const operation_counter& counter : file.counters) {
        table.add_row(row_of(counter, format));
    }
    if (format == output_format::text) {
        to.out << file.counters.size() << " live counters, last opened by process " << file.pid << "\n\n";
    }
    table.print(to.out, format);
    return 0;
}

} // namespace

const command counters_command{"counters", "DATAFILE", "live operation counters, by total time",
                               data_file_options, run_counters};

} // namespace ostrum_tool
