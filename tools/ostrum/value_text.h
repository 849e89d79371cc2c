#ifndef OSTRUM_TOOL_VALUE_TEXT_H
#define OSTRUM_TOOL_VALUE_TEXT_H
// Values as a person reads them; in CSV as a program does.
#include <cstdint>
#include <string>

#include "text_table.h"

namespace ostrum_tool {

// "850ns", "12.3ms", "4.56s", "3m07s"; in CSV seconds with nine decimals.
std::string duration_text(int64_t duration_tv, output_format format);
// Local date and time to the second.
std::string date_text(int64_t time_tv);
// "12.3%"; "-" of nothing. In CSV a bare number.
std::string share_text(int64_t part, int64_t whole, output_format format);
// Bytes that a terminal would act on are shown as "\xNN".
std::string printable(const std::string& text);
// "NAME (7)"; the name alone for operations without a number.
std::string operation_text(const std::string& opname, int32_t opcode);
// "file.c:12", or "" without a file.
std::string source_text(const std::string& fname, int32_t lineno);

// Four groups of 16 bits, as the server platform writes database numbers: "1.0.0.12"; in CSV the number.
std::string db_text(int64_t db_number, output_format format);

} // namespace ostrum_tool
#endif
