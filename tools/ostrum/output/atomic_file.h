#ifndef OSTRUM_TOOL_OUTPUT_ATOMIC_FILE_H
#define OSTRUM_TOOL_OUTPUT_ATOMIC_FILE_H
#include <string>
#include <string_view>

namespace ostrum_tool {

// Writes a file that others read at any moment: they see the old one or the whole new one, even when the
// machine stops meanwhile. It is written beside its place, under a name that begins with a dot and has
// another ending; what killed processes have left under such names is removed. Throws input_error, which
// names the file; the old one is then as it was.
void write_file_atomically(const std::string& path, std::string_view text);

} // namespace ostrum_tool
#endif
