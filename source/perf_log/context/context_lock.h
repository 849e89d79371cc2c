#ifndef OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
#define OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
// The process-local lock of one context: one atomic step to take and one to give back when nobody else
// wants it. Not recursive and not fair. A plain word, so that a forked child can look at it and forget it.
#include <cstdint>

namespace ostrum {

struct context_lock {
    uint32_t word; // 0 = free, 1 = held, 2 = held and waited for
};

[[nodiscard]] bool try_acquire(context_lock& lock);
void acquire(context_lock& lock);
[[nodiscard]] bool acquire_within(context_lock& lock, int64_t limit_tv); // false: still held after so long
void release(context_lock& lock);
bool is_held(const context_lock& lock); // by anybody; for the forked child, where nothing else runs

} // namespace ostrum
#endif
