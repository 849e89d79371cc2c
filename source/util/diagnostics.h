#ifndef OSTRUM_UTIL_DIAGNOSTICS_H
#define OSTRUM_UTIL_DIAGNOSTICS_H
// The library's diagnostic output: one line on standard error per call, with the prefix
// "%s (%u/%u) : " (local time in code 38, process id, thread id cut to 32 bits). A message begins with
// the reporting function's name and " : " and carries its own line end; a few have none, kept so.
//
// A line is put together in memory and written with one write(2), so that it is never torn, holds no
// stdio lock and leaves nothing buffered for a forked child to repeat. errno is preserved.
#include <atomic>
#include <cstdarg>
#include <cstdint>

extern "C" {
void err_print(const char* format, ...) __attribute__((format(printf, 1, 2)));
void _err_print(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));
// Writes whenever the debug value is non-zero; callers test their bit first.
void debug_print(const char* format, ...) __attribute__((format(printf, 1, 2)));
}

namespace ostrum {

// Bits of the setting "ostrum_debug".
inline constexpr int32_t debug_general = 0x1; // start-up, decisions, flushes; lines with no bit of their own
inline constexpr int32_t debug_detail = 0x2;  // host bindings, timeout handler
inline constexpr int32_t debug_fine = 0x4;    // per-operation logging, tree dumps, counters

void set_debug_bits(int32_t bits); // once, at start-up

// Owned by diagnostics.cpp. Here so that a test of a bit costs the hooks one load.
extern std::atomic<int32_t> debug_setting;
inline int32_t debug_bits()
{
    return debug_setting.load(std::memory_order_relaxed);
}
inline bool debug_on(int32_t bit)
{
    return (debug_bits() & bit) != 0;
}

// For messages that show an address as "%#x": cut to 32 bits (kept on purpose).
inline unsigned low_address_bits(const void* address)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(address));
}

} // namespace ostrum
#endif
