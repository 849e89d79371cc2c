#ifndef OSTRUM_TOOL_OUTPUT_VALUE_TEXT_H
#define OSTRUM_TOOL_OUTPUT_VALUE_TEXT_H
// Values as a person reads them.
#include <cstdint>
#include <string>
#include <string_view>

namespace ostrum_tool {

// "850ns", "12.3ms", "4.56s", "3m07s".
std::string duration_text(int64_t duration_tv);
// "12.3%"
std::string percent_text(double percent);
// Bytes that a terminal would act on, and those that are no UTF-8, are shown as "\xNN".
std::string printable(std::string_view text);
// Of UTF-8: a byte that is not the first of its character.
inline bool continues_character(char c)
{
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
}
// Columns that a text takes on a terminal.
size_t display_width(std::string_view text);
// The first columns that fit, of 0 columns all; what is cut off ends in '>'.
std::string cut_to(std::string_view text, size_t width);
// With blanks up to that many columns, in front or behind.
std::string padded(const std::string& text, size_t width, bool right);
// "NAME (7)"; the name alone for operations without a number.
std::string operation_text(std::string_view opname, int32_t opcode);
// "file.c:12", or "" without a file.
std::string source_text(std::string_view fname, int32_t lineno);
// Four groups of 16 bits, as the server platform writes database numbers: "1.0.0.12".
std::string db_text(int64_t db_number);
// A to Z become a to z; no other character changes.
std::string lower_case(std::string_view text);
// A word as a shell takes it.
std::string shell_word(const std::string& text);

} // namespace ostrum_tool
#endif
