#include "perf_log/context/context_lock.h"

#include <algorithm>

#include "os/os_calls.h"

namespace ostrum {

namespace {

constexpr int32_t spins_before_sleep = 200; // about the time of one hook
constexpr int64_t look_again_tv = 50'000;

bool looks_free(const context_lock& lock)
{
    return lock.word.load(std::memory_order_relaxed) == 0;
}

} // namespace

bool acquire_within(context_lock& lock, int64_t limit_tv)
{
    for (int32_t i = 0; i < spins_before_sleep; ++i) {
        if (looks_free(lock) && try_acquire(lock)) {
            return true;
        }
        __builtin_ia32_pause();
    }
    const int64_t begun_tv = os::monotonic_ns();
    while (!try_acquire(lock)) {
        const int64_t waited_tv = os::monotonic_ns() - begun_tv;
        if (limit_tv != no_limit_tv && waited_tv >= limit_tv) {
            return false;
        }
        os::sleep_ns(limit_tv == no_limit_tv ? look_again_tv : std::min(look_again_tv, limit_tv - waited_tv));
    }
    return true;
}

} // namespace ostrum
