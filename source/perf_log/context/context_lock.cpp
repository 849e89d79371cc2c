#include "perf_log/context/context_lock.h"

#include <atomic>

#include "os/os_calls.h"

namespace ostrum {

namespace {

constexpr uint32_t free_word = 0;
constexpr uint32_t held = 1;
constexpr uint32_t held_and_waited_for = 2;
constexpr int32_t spins_before_sleep = 100; // about the time of one hook

using atomic_word = std::atomic_ref<uint32_t>;

bool take_if_free(context_lock& lock)
{
    uint32_t expected = free_word;
    return atomic_word(lock.word).compare_exchange_strong(expected, held, std::memory_order_acquire,
                                                          std::memory_order_relaxed);
}

} // namespace

bool try_acquire(context_lock& lock)
{
    return take_if_free(lock);
}

bool acquire_within(context_lock& lock, int64_t limit_tv)
{
    for (int32_t i = 0; i < spins_before_sleep; ++i) {
        if (take_if_free(lock)) {
            return true;
        }
    }
    const int64_t deadline_tv = limit_tv < 0 ? 0 : os::monotonic_ns() + limit_tv;
    while (atomic_word(lock.word).exchange(held_and_waited_for, std::memory_order_acquire) != free_word) {
        int64_t left_tv = -1;
        if (limit_tv >= 0) {
            left_tv = deadline_tv - os::monotonic_ns();
            if (left_tv <= 0) {
                return false;
            }
        }
        os::wait_on_word(&lock.word, held_and_waited_for, left_tv);
    }
    return true;
}

void acquire(context_lock& lock)
{
    if (!take_if_free(lock)) {
        (void)acquire_within(lock, -1);
    }
}

void release(context_lock& lock)
{
    if (atomic_word(lock.word).exchange(free_word, std::memory_order_release) == held_and_waited_for) {
        os::wake_one(&lock.word);
    }
}

bool is_held(const context_lock& lock)
{
    return atomic_word(const_cast<uint32_t&>(lock.word)).load(std::memory_order_relaxed) != free_word;
}

} // namespace ostrum
