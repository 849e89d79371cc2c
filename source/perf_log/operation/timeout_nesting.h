#ifndef OSTRUM_PERF_LOG_OPERATION_TIMEOUT_NESTING_H
#define OSTRUM_PERF_LOG_OPERATION_TIMEOUT_NESTING_H
#include <cstdint>

#include "process_state/process_state.h"

namespace ostrum {

// The timeout nesting word: how deep the main thread is inside the logging, whether a timed flush was put off
// until it is out again, and whether one is running. Touched on the main thread only. The process's record
// holds it: a forked child begins with 0. Kept on purpose: nothing in this build puts a flush off, so that
// the two bits are never set and leaving only counts down.
inline constexpr uint32_t nesting_count_mask = 0x0FFFFFFF;
inline constexpr uint32_t timeout_deferred = 1U << 28;
inline constexpr uint32_t timeout_running = 1U << 29;

inline uint32_t& timeout_nesting_word()
{
    return this_process.timeout_nesting;
}

void run_deferred_timeout();

// Counts one stay inside the logging; the last to leave runs what was put off.
class timeout_nesting_scope {
public:
    timeout_nesting_scope() : on_main_thread_(is_main_thread())
    {
        if (on_main_thread_) {
            ++timeout_nesting_word();
        }
    }
    ~timeout_nesting_scope()
    {
        if (on_main_thread_ && --timeout_nesting_word() == timeout_deferred) [[unlikely]] {
            run_deferred_timeout();
        }
    }
    timeout_nesting_scope(const timeout_nesting_scope&) = delete;
    timeout_nesting_scope& operator=(const timeout_nesting_scope&) = delete;

private:
    bool on_main_thread_;
};

} // namespace ostrum
#endif
