#ifndef OSTRUM_TOOL_TOP_TERMINAL_SCREEN_H
#define OSTRUM_TOOL_TOP_TERMINAL_SCREEN_H
// The terminal while top has it. It gets it back as it was when this goes, also after SIGINT, SIGTERM and
// SIGHUP, which end the wait for a key.
#include <csignal>
#include <vector>

#include "top/screen_text.h"

namespace ostrum_tool {

class terminal_screen {
public:
    // Throws usage_error when standard input and output are no terminal that can be drawn on.
    explicit terminal_screen(bool colour);
    ~terminal_screen();
    terminal_screen(const terminal_screen&) = delete;
    terminal_screen& operator=(const terminal_screen&) = delete;

    [[nodiscard]] screen_size size() const;
    void draw(const std::vector<screen_line>& lines);

    enum class event { key, resized, time, left };
    // Waits for a key, at most for so long. `left`: a signal came, or the terminal is gone.
    event wait(int64_t limit_tv, key_press& pressed);

private:
    event read_key(key_press& pressed);

    void* screen_ = nullptr; // curses' own
    sigset_t before_{};      // signals that were blocked
    struct sigaction handlers_[3]{};
};

} // namespace ostrum_tool
#endif
