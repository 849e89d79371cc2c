#include "perf_log/context/context_lock.h"

#include <algorithm>

#include "os/os_calls.h"

namespace ostrum {

namespace {

constexpr int32_t spins_before_sleep = 200; // about the time of one hook
constexpr int64_t look_again_tv = 50'000;
constexpr int64_t store_becomes_visible_tv = 1'000'000; // by far

constinit std::atomic<bool> barrier_available{false};

// Looks until `succeeds` says true. False: not within the limit.
template <typename Attempt>
bool keep_trying(int64_t limit_tv, Attempt succeeds)
{
    for (int32_t i = 0; i < spins_before_sleep; ++i) {
        if (succeeds()) {
            return true;
        }
        __builtin_ia32_pause();
    }
    const int64_t begun_tv = os::monotonic_ns();
    while (!succeeds()) {
        const int64_t waited_tv = os::monotonic_ns() - begun_tv;
        if (limit_tv != no_limit_tv && waited_tv >= limit_tv) {
            return false;
        }
        os::sleep_ns(limit_tv == no_limit_tv ? look_again_tv : std::min(look_again_tv, limit_tv - waited_tv));
    }
    return true;
}

bool take_word(context_lock& lock)
{
    uint32_t expected = 0;
    return lock.word.load(std::memory_order_relaxed) == 0 &&
           lock.word.compare_exchange_strong(expected, 1, std::memory_order_acquire,
                                             std::memory_order_relaxed);
}

bool has_other_owner(const context_lock& lock)
{
    return lock.owner.load(std::memory_order_relaxed) != 0 && !is_own(lock);
}

bool owner_is_out(const context_lock& lock)
{
    return lock.owner_inside.load(std::memory_order_acquire) == 0;
}

// With the word. From the barrier on, the owner either sees that it is stopped or is seen inside.
void stop_owner(context_lock& lock)
{
    lock.owner_stopped.store(1, std::memory_order_seq_cst);
    if (!os::barrier_in_all_threads()) {
        os::sleep_ns(store_becomes_visible_tv);
    }
}

} // namespace

void prepare_owned_locks()
{
#ifdef __SANITIZE_THREAD__
    // The sanitizer does not see the order that the barrier makes.
    barrier_available = false;
#else
    barrier_available = os::register_barrier_in_all_threads();
#endif
}

void own_lock(context_lock& lock)
{
    lock.owner = barrier_available ? thread_mark() : 0;
}

bool try_acquire(context_lock& lock)
{
    if (is_own(lock)) {
        return owner_is_out(lock) && (enter_as_owner(lock) || take_word(lock));
    }
    if (!take_word(lock)) {
        return false;
    }
    if (has_other_owner(lock)) {
        stop_owner(lock);
        if (!owner_is_out(lock)) {
            release_word(lock);
            return false;
        }
    }
    return true;
}

bool acquire_within(context_lock& lock, int64_t limit_tv)
{
    if (try_acquire(lock)) {
        return true;
    }
    if (is_own(lock) && !owner_is_out(lock)) {
        return false; // the calling thread holds it itself
    }
    const int64_t begun_tv = os::monotonic_ns();
    if (!keep_trying(limit_tv, [&lock] { return take_word(lock); })) {
        return false;
    }
    if (!has_other_owner(lock)) {
        return true;
    }
    stop_owner(lock);
    const int64_t left_tv = limit_tv == no_limit_tv
                                ? no_limit_tv
                                : std::max<int64_t>(limit_tv - (os::monotonic_ns() - begun_tv), 0);
    if (keep_trying(left_tv, [&lock] { return owner_is_out(lock); })) {
        return true;
    }
    release_word(lock);
    return false;
}

void acquire_for_hook_slowly(context_lock& lock)
{
    (void)keep_trying(no_limit_tv, [&lock] { return take_word(lock); });
    if (has_other_owner(lock)) {
        stop_owner(lock);
        (void)keep_trying(no_limit_tv, [&lock] { return owner_is_out(lock); });
        lock.owner.store(0, std::memory_order_relaxed); // it stays stopped: it may be about to look
    }
}

void release_word(context_lock& lock)
{
    if (has_other_owner(lock)) {
        lock.owner_stopped.store(0, std::memory_order_release);
    }
    lock.word.store(0, std::memory_order_release);
}

} // namespace ostrum
