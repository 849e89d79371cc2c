#ifndef OSTRUM_TOOL_DATA_FILE_COMMAND_H
#define OSTRUM_TOOL_DATA_FILE_COMMAND_H
// What the commands over the data file have in common.
#include "command_line.h"
#include "readers/data_file.h"
#include "text_table.h"
#include "value_text.h"

namespace ostrum_tool {

inline constexpr option_spec data_file_options[] = {format_option};

inline output_format format_of(const arguments& given)
{
    return format_named(given.value("--format", "text"));
}

// Reads the one operand; what looks wrong in it goes to err.
inline data_file data_file_of(const arguments& given, const streams& to)
{
    const std::string& path = single_operand(given);
    data_file file = read_data_file(path);
    for (const std::string& problem : file.problems) {
        to.err << path << ": " << problem << "\n";
    }
    return file;
}

inline int64_t signed_value(uint64_t word)
{
    return static_cast<int64_t>(word);
}

} // namespace ostrum_tool
#endif
