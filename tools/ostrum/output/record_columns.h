#ifndef OSTRUM_TOOL_OUTPUT_RECORD_COLUMNS_H
#define OSTRUM_TOOL_OUTPUT_RECORD_COLUMNS_H
// Rows of records, by a table with a line for each column.
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "output/table.h"

namespace ostrum_tool {

using field_set = uint32_t; // parts of a record's key, one bit each

// Whether merging has left nothing of any of these fields; 0: nothing was merged.
inline bool are_merged_away(field_set fields, field_set kept)
{
    return fields != 0 && kept != 0 && (fields & kept) == 0;
}

// In the order in which tables read best, not the most compact one.
template <typename Row>
struct record_column { // NOLINT(clang-analyzer-optin.performance.Padding)
    const char* key;   // as in struct column
    const char* title; // as there
    cell_kind kind;
    cell (*value)(const Row& row);
    field_set fields = 0; // key fields that it shows; 0: it is no part of the key
};

// What was merged away has no title, so that people do not see it, and no values. Programs find the column
// in its place all the same.
template <typename Row>
std::vector<column> columns_of(std::span<const record_column<Row>> shown, field_set kept = 0)
{
    std::vector<column> columns;
    for (const record_column<Row>& each : shown) {
        columns.push_back({each.key, are_merged_away(each.fields, kept) ? "" : each.title, each.kind});
    }
    return columns;
}

template <typename Row>
std::vector<cell> cells_of(std::span<const record_column<Row>> shown, const Row& row, field_set kept = 0)
{
    std::vector<cell> cells;
    for (const record_column<Row>& each : shown) {
        cells.push_back(are_merged_away(each.fields, kept) ? cell() : each.value(row));
    }
    return cells;
}

// The column of that key or title; the number of columns when there is none.
size_t find_column(std::span<const column> columns, const std::string& name);

// Largest first is what people want of numbers.
inline bool sorts_descending(const column& by)
{
    return by.kind != cell_kind::text;
}

// Rows that are equal in the column keep their order. Nothing is less than any number.
void sort_rows(std::vector<std::vector<cell>>& rows, size_t by, bool descending);

// The number in a cell; of others what is less than any number.
double number_in(const cell& value);

} // namespace ostrum_tool
#endif
