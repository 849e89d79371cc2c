#ifndef OSTRUM_TOOL_ERRORS_H
#define OSTRUM_TOOL_ERRORS_H
// Exit statuses, and what a command throws; run_tool() turns it into one line and a status.
#include <stdexcept>

namespace ostrum_tool {

inline constexpr int exit_done = 0;
inline constexpr int exit_input = 1; // something could not be read or written
inline constexpr int exit_usage = 2;
inline constexpr int exit_nothing = 3;   // nothing matched
inline constexpr int exit_threshold = 4; // a limit given on the command line was crossed
inline constexpr int exit_damaged = 5;   // the input is damaged; what could be read was used

struct input_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// What was read before it is right.
struct damaged_input : input_error {
    using input_error::input_error;
};

struct usage_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct nothing_matched : std::runtime_error {
    using std::runtime_error::runtime_error;
};

} // namespace ostrum_tool
#endif
