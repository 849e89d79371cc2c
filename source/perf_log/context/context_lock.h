#ifndef OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
#define OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
// The process-local lock of one context. Taking it is one atomic step, giving it back a plain store: a
// thread that finds it held looks again by itself, soon at first and then every 50 microseconds, so that
// no hook pays for waking anybody. Not recursive and not fair. A plain word, so that a forked child can
// look at it and forget it.
#include <atomic>
#include <cstdint>

namespace ostrum {

struct context_lock {
    std::atomic<uint32_t> word; // 0 = free, 1 = held
};

[[nodiscard]] inline bool try_acquire(context_lock& lock)
{
    uint32_t expected = 0;
    return lock.word.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed);
}

inline constexpr int64_t no_limit_tv = -1;

// False: still held after so long.
[[nodiscard]] bool acquire_within(context_lock& lock, int64_t limit_tv);

inline void acquire(context_lock& lock)
{
    if (!try_acquire(lock)) {
        (void)acquire_within(lock, no_limit_tv);
    }
}

inline void release(context_lock& lock)
{
    lock.word.store(0, std::memory_order_release);
}

// By anybody; for the forked child, where nothing else runs.
inline bool is_held(const context_lock& lock)
{
    return lock.word.load(std::memory_order_relaxed) != 0;
}

} // namespace ostrum
#endif
