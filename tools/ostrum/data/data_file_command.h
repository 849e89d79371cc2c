#ifndef OSTRUM_TOOL_DATA_DATA_FILE_COMMAND_H
#define OSTRUM_TOOL_DATA_DATA_FILE_COMMAND_H
// What the commands over the data file have in common.
#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include <fmt/format.h>

#include "change/library_file.h"
#include "cli/command.h"
#include "cli/option_values.h"
#include "data/key_fields.h"
#include "output/record_columns.h"
#include "readers/data_file.h"
#include "tool_errors.h"

namespace ostrum_tool {

// `show` gets the file as it is at that moment; with --locked it has what `read_locked` got from the library.
using data_file_show = std::function<void(const data_file& file, output_format format, const streams& to)>;
using locked_reading = void (*)(rt_info* from, data_file& file);
command_body declare_data_file_command(CLI::App& app, locked_reading read_locked, data_file_show show);

// A table of records, in the order of a column, merged if so wished.
template <typename Record>
struct record_table {
    const char* kind;
    const char* head; // behind the number of records
    std::vector<Record> data_file::*records;
    std::span<const record_column<Record>> columns;
    const char* sort_key; // the column that orders the rows unless another one is named
    std::vector<std::string> (*field_names)();
    field_set (*fields)(const std::string& option, const std::vector<std::string>& names);
    std::vector<Record> (*merged)(std::vector<Record> records, field_set kept);
    locked_reading read_locked;
};

struct row_choice {
    std::vector<std::string> by;
    std::string sort;
    size_t top = 0; // 0: all
};
void add_row_options(CLI::App& app, row_choice& chosen, const std::vector<std::string>& fields,
                     const std::vector<column>& columns);

// "merged by operation, db: 7 rows; the first 3 by calls", or "".
std::string choices_text(const row_choice& chosen, size_t rows);

template <typename Record>
void show_records(const record_table<Record>& shown, const row_choice& chosen, const data_file& file,
                  output_format format, const streams& to)
{
    const field_set kept = shown.fields("--by", chosen.by);
    std::vector<std::vector<cell>> rows;
    for (const Record& record : shown.merged(file.*shown.records, kept)) {
        rows.push_back(cells_of(shown.columns, record, kept));
    }
    const std::vector<column> columns = columns_of(shown.columns, kept);
    const size_t by = find_column(columns, chosen.sort);
    sort_rows(rows, by, sorts_descending(columns[by]));
    if (format == output_format::text) {
        to.out << (file.*shown.records).size() << fmt::format(fmt::runtime(shown.head), file.pid) << "\n"
               << choices_text(chosen, rows.size()) << "\n";
    }
    rows.resize(chosen.top == 0 ? rows.size() : std::min(rows.size(), chosen.top));
    table printed(columns);
    for (auto& row : rows) {
        printed.add_row(std::move(row));
    }
    printed.print(to.out, format, to.style, {{"kind", shown.kind}, {"pid", file.pid}});
}

// `shown` stays.
template <typename Record>
command_body declare_record_command(CLI::App& app, const record_table<Record>& shown)
{
    const auto chosen = std::make_shared<row_choice>();
    chosen->sort = shown.sort_key;
    add_row_options(app, *chosen, shown.field_names(), columns_of(shown.columns, 0));
    return declare_data_file_command(app, shown.read_locked,
                                     [chosen, &shown](const auto& file, auto format, const streams& to) {
                                         show_records(shown, *chosen, file, format, to);
                                     });
}

} // namespace ostrum_tool
#endif
