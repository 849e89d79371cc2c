#ifndef OSTRUM_TOOL_DATA_KEY_FIELDS_H
#define OSTRUM_TOOL_DATA_KEY_FIELDS_H
// The key fields of counters and errors by which records may be merged, as the library's own aggregated
// queries do: records that are equal in all kept fields become one, the other fields 0 or empty.
#include <cstdint>
#include <string>
#include <vector>

#include "readers/data_file.h"

namespace ostrum_tool {

using field_set = uint32_t; // one bit a field; 0: the records as they are

// Names as --by takes them: operation, type, program, flags, file, line, db.
field_set counter_fields(const std::string& option, const std::vector<std::string>& names);
// operation, program, class, location, error, db.
field_set error_fields(const std::string& option, const std::vector<std::string>& names);
extern const char* const counter_field_names; // for help texts
extern const char* const error_field_names;

// In order of first appearance.
std::vector<operation_counter> merged_counters(std::vector<operation_counter> counters, field_set kept);
std::vector<error_counter> merged_errors(std::vector<error_counter> errors, field_set kept);

} // namespace ostrum_tool
#endif
