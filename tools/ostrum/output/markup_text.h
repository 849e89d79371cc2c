#ifndef OSTRUM_TOOL_OUTPUT_MARKUP_TEXT_H
#define OSTRUM_TOOL_OUTPUT_MARKUP_TEXT_H
#include <string>
#include <string_view>

namespace ostrum_tool {

// As it stands in HTML and XML, in text and in attributes between double quotes.
std::string markup_text(std::string_view text);

} // namespace ostrum_tool
#endif
