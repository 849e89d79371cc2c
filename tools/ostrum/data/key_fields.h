#ifndef OSTRUM_TOOL_DATA_KEY_FIELDS_H
#define OSTRUM_TOOL_DATA_KEY_FIELDS_H
// The key fields of counters and errors by which records may be merged, as the library's own aggregated
// queries do: records that are equal in all kept fields become one, the other fields 0 or empty.
#include <string>
#include <vector>

#include "output/record_columns.h"
#include "readers/data_file.h"

namespace ostrum_tool {

namespace counter_field {
enum bits : field_set { operation = 1, type = 2, program = 4, flags = 8, file = 16, line = 32, db = 64 };
} // namespace counter_field
namespace error_field {
enum bits : field_set { operation = 1, program = 2, error_class = 4, location = 8, error = 16, db = 32 };
} // namespace error_field

// The set of fields with these names, as --by takes them. Throws usage_error, which names the option.
field_set counter_fields(const std::string& option, const std::vector<std::string>& names);
field_set error_fields(const std::string& option, const std::vector<std::string>& names);
std::vector<std::string> counter_field_names();
std::vector<std::string> error_field_names();

// In order of first appearance; the records as they are when no field is named.
std::vector<operation_counter> merged_counters(std::vector<operation_counter> counters, field_set kept);
std::vector<error_counter> merged_errors(std::vector<error_counter> errors, field_set kept);

} // namespace ostrum_tool
#endif
