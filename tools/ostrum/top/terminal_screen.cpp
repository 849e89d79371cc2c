#include "top/terminal_screen.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cwchar>
#include <poll.h>
#include <unistd.h>

#define NCURSES_WIDECHAR 1
#define NCURSES_NOMACROS 1
#include <curses.h>

#include "readers/time_units.h"
#include "tool_errors.h"

namespace ostrum_tool {
namespace {

constexpr std::array ending_signals{SIGINT, SIGTERM, SIGHUP};
constexpr wint_t escape_character = 27;
constexpr int escape_wait_ms = 25;

volatile sig_atomic_t must_leave = 0;

void note_signal(int /*number*/)
{
    must_leave = 1;
}

attr_t attributes_of(line_look look)
{
    switch (look) {
    case line_look::title:
        return A_BOLD;
    case line_look::header:
        return A_REVERSE;
    case line_look::warning:
        return A_BOLD | static_cast<attr_t>(COLOR_PAIR(1));
    case line_look::plain:
        break;
    }
    return A_NORMAL;
}

// As many characters as fit; wide ones take two columns.
std::wstring wide_text(const std::string& text, size_t columns)
{
    std::wstring wide;
    std::mbstate_t state{};
    size_t taken = 0;
    for (size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const size_t length = std::mbrtowc(&character, text.data() + at, text.size() - at, &state);
        const bool is_bad = length == static_cast<size_t>(-1) || length == static_cast<size_t>(-2);
        const int width = is_bad ? -1 : ::wcwidth(character);
        if (is_bad) {
            state = {};
        }
        taken += width < 0 ? 1U : static_cast<size_t>(width);
        if (taken > columns) {
            break;
        }
        wide += width < 0 ? L'?' : character;
        at += is_bad ? 1 : std::max<size_t>(length, 1);
    }
    return wide;
}

std::string narrow_text(wint_t character)
{
    std::array<char, MB_LEN_MAX> bytes{};
    std::mbstate_t state{};
    const size_t length = std::wcrtomb(bytes.data(), static_cast<wchar_t>(character), &state);
    return length == static_cast<size_t>(-1) ? "" : std::string(bytes.data(), length);
}

// A terminal's text capability is null when it is missing, and -1 when there is no such capability.
bool can_move_cursor()
{
    const auto text = reinterpret_cast<intptr_t>(::tigetstr("cup"));
    return text != 0 && text != -1;
}

struct named_key {
    wint_t code;
    key name;
};
constexpr named_key function_keys[] = {{KEY_UP, key::up},         {KEY_DOWN, key::down},
                                       {KEY_PPAGE, key::page_up}, {KEY_NPAGE, key::page_down},
                                       {KEY_HOME, key::home},     {KEY_END, key::end},
                                       {KEY_LEFT, key::left},     {KEY_RIGHT, key::right},
                                       {KEY_ENTER, key::enter},   {KEY_BACKSPACE, key::backspace}};
constexpr named_key control_keys[] = {{'\r', key::enter},
                                      {'\n', key::enter},
                                      {127, key::backspace},
                                      {'\b', key::backspace},
                                      {escape_character, key::escape}};

} // namespace

terminal_screen::terminal_screen(bool colour)
{
    if (::isatty(STDIN_FILENO) != 1 || ::isatty(STDOUT_FILENO) != 1) {
        throw usage_error("top draws on a terminal; use top -b elsewhere");
    }
    // Not initscr(): it ends the process for a terminal that it does not know.
    SCREEN* const screen = ::newterm(nullptr, stdout, stdin);
    if (screen == nullptr || !can_move_cursor()) {
        if (screen != nullptr) {
            ::endwin();
            ::delscreen(screen);
        }
        throw usage_error("this terminal (see TERM) cannot be drawn on; use top -b");
    }
    screen_ = screen;
    ::cbreak();
    ::noecho();
    ::nonl();
    ::keypad(stdscr, TRUE);
    ::nodelay(stdscr, TRUE);
    ::set_escdelay(escape_wait_ms);
    ::curs_set(0);
    if (colour && ::has_colors()) {
        ::start_color();
        ::use_default_colors();
        ::init_pair(1, COLOR_YELLOW, -1);
    }
    must_leave = 0;
    sigset_t blocked;
    sigemptyset(&blocked);
    struct sigaction action {};
    action.sa_handler = note_signal;
    for (size_t at = 0; at < ending_signals.size(); ++at) {
        sigaddset(&blocked, ending_signals[at]);
        sigaction(ending_signals[at], &action, &handlers_[at]);
    }
    sigprocmask(SIG_BLOCK, &blocked, &before_); // they come while waiting only
}

terminal_screen::~terminal_screen()
{
    ::endwin();
    ::delscreen(static_cast<SCREEN*>(screen_));
    for (size_t at = 0; at < ending_signals.size(); ++at) {
        sigaction(ending_signals[at], &handlers_[at], nullptr);
    }
    sigprocmask(SIG_SETMASK, &before_, nullptr);
}

screen_size terminal_screen::size() const
{
    return {static_cast<size_t>(std::max(getmaxy(stdscr), 1)),
            static_cast<size_t>(std::max(getmaxx(stdscr), 1))};
}

void terminal_screen::draw(const std::vector<screen_line>& lines)
{
    const screen_size fits = size();
    ::erase();
    for (size_t row = 0; row < std::min(lines.size(), fits.rows); ++row) {
        const std::wstring text = wide_text(lines[row].text, fits.columns);
        ::attrset(static_cast<int>(attributes_of(lines[row].look)));
        ::mvaddnwstr(static_cast<int>(row), 0, text.c_str(), static_cast<int>(text.size()));
    }
    ::attrset(A_NORMAL);
    ::refresh();
}

terminal_screen::event terminal_screen::wait(int64_t limit_tv, key_press& pressed)
{
    const event waiting = read_key(pressed); // curses may have read ahead
    if (waiting != event::time) {
        return waiting;
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    const timespec limit{limit_tv / ns_per_second, limit_tv % ns_per_second};
    const int ready = ::ppoll(&input, 1, &limit, &before_);
    // Of a terminal that is gone there is something to read for ever: that it is gone.
    const bool gone = ready > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
    return must_leave != 0 || gone ? event::left : read_key(pressed);
}

terminal_screen::event terminal_screen::read_key(key_press& pressed)
{
    wint_t code = 0;
    const int kind = ::get_wch(&code);
    if (kind == ERR) {
        return event::time;
    }
    if (kind == KEY_CODE_YES && code == KEY_RESIZE) {
        return event::resized;
    }
    const auto find_in = [&](const auto& keys) {
        const auto found = std::find_if(std::begin(keys), std::end(keys),
                                        [&](const auto& each) { return each.code == code; });
        if (found != std::end(keys)) {
            pressed = {found->name, ""};
        }
        return found != std::end(keys);
    };
    if (kind == KEY_CODE_YES) {
        return find_in(function_keys) ? event::key : event::resized; // keys without a meaning
    }
    if (!find_in(control_keys)) {
        pressed = {key::character, narrow_text(code)};
    }
    return event::key;
}

} // namespace ostrum_tool
