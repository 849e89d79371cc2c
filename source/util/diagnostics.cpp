#include "util/diagnostics.h"

#include "util/errno_keeper.h"
#include "util/guarded_write.h"
#include "util/resources.h"
#include "util/signal_safe_scope.h"
#include "util/time_value.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

using namespace ostrum;

constinit std::atomic<int32_t> ostrum::debug_setting{0};

namespace {

// Lines up to this size need no heap, so that a signal handler may write them. Small, because a handler
// may run on a stack of a few kilobytes.
constexpr size_t stack_line_bytes = 1024;
constexpr int32_t time_text_bytes = 64;

size_t print_prefix(char* line, size_t line_bytes)
{
    char now[time_text_bytes];
    const auto thread_id = static_cast<uint32_t>(pthread_self());
    const int length =
        snprintf(line, line_bytes,
                 "%s (%u/%u) : ", ostrum_fmt_tv(present_time_tv, now, time_text_bytes, format_year_first_us),
                 static_cast<uint32_t>(os::process_id()), thread_id);
    return static_cast<size_t>(length);
}

// Length of the whole message, also when it is cut; 0 when it cannot be formatted.
__attribute__((format(printf, 3, 0))) size_t print_message(char* out, size_t out_bytes, const char* format,
                                                           va_list arguments)
{
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(out, out_bytes, format, again);
    va_end(again);
    return length > 0 ? static_cast<size_t>(length) : 0;
}

void write_line(const char* line, size_t length)
{
    write_all_guarded(STDERR_FILENO, line, length); // a failure has nowhere to be reported
}

// A line that does not fit the stack's buffer, of which that buffer holds the beginning.
__attribute__((format(printf, 4, 0))) void write_long_line(char* cut_line, size_t prefix_bytes,
                                                           size_t message_bytes, const char* format,
                                                           va_list arguments)
{
    const size_t length = prefix_bytes + message_bytes;
    const heap_ptr<char> line = must_be_signal_safe() ? nullptr : heap_zeroed<char>(length + 1);
    if (!line) {
        cut_line[stack_line_bytes - 1] = '\n';
        write_line(cut_line, stack_line_bytes);
        return;
    }
    memcpy(line.get(), cut_line, prefix_bytes);
    print_message(line.get() + prefix_bytes, message_bytes + 1, format, arguments);
    write_line(line.get(), length);
}

} // namespace

void _err_print(const char* format, va_list arguments)
{
    const errno_keeper keeper;
    char line[stack_line_bytes];
    const size_t prefix_bytes = print_prefix(line, sizeof(line));
    const size_t room = sizeof(line) - prefix_bytes;
    const size_t message_bytes = print_message(line + prefix_bytes, room, format, arguments);
    if (message_bytes < room) {
        write_line(line, prefix_bytes + message_bytes);
    } else {
        write_long_line(line, prefix_bytes, message_bytes, format, arguments);
    }
}

void err_print(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    _err_print(format, arguments);
    va_end(arguments);
}

void debug_print(const char* format, ...)
{
    if (debug_bits() == 0) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    _err_print(format, arguments);
    va_end(arguments);
}

void ostrum::set_debug_bits(int32_t bits)
{
    debug_setting.store(bits, std::memory_order_relaxed);
}
