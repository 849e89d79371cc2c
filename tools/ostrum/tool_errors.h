#ifndef OSTRUM_TOOL_ERRORS_H
#define OSTRUM_TOOL_ERRORS_H
// What a command throws; run_tool() turns it into one line and an exit status.
#include <stdexcept>

namespace ostrum_tool {

inline constexpr int exit_input = 1; // something could not be read or written
inline constexpr int exit_usage = 2;

struct input_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace ostrum_tool
#endif
