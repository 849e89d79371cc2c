#ifndef OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
#define OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LOCK_H
// The process-local lock of one context. Nearly all contexts are used by the thread that made them, so the
// lock leans towards that thread, its owner (a biased lock with an asymmetric barrier, membarrier): the owner
// only says that it is inside and looks whether somebody has stopped it, without an atomic step. Everybody
// else takes the word, stops the owner, makes all threads pass a memory barrier, so that either side sees the
// other, and waits until the owner is out. A visitor lets the owner go on afterwards; a hook of another
// thread takes the ownership away for good.
//
// A thread that finds the lock held looks again by itself, soon at first and then every 50 microseconds, so
// that no hook pays for waking anybody. Not recursive and not fair. Plain words, so that a forked child can
// look at them and forget them. A zeroed lock is free and has no owner.
#include <atomic>
#include <cstdint>

#include "process_state/process_state.h"

namespace ostrum {

struct context_lock {
    std::atomic<uintptr_t> owner;       // the thread's mark; 0 = everybody takes the word
    std::atomic<uint32_t> owner_inside; // written by the owner only
    std::atomic<uint32_t> owner_stopped;
    std::atomic<uint32_t> word; // 0 = free, 1 = held
};

inline constexpr int64_t no_limit_tv = -1;

// Start-up: asks the system for the barrier. Where it has none, locks get no owner.
void prepare_owned_locks();
// Of a new context: the calling thread becomes the owner.
void own_lock(context_lock& lock);

inline bool is_own(const context_lock& lock)
{
    return lock.owner.load(std::memory_order_relaxed) == thread_mark();
}

// False: somebody has stopped the owner, who takes the word instead, like everybody else.
inline bool enter_as_owner(context_lock& lock)
{
    lock.owner_inside.store(1, std::memory_order_relaxed);
    std::atomic_signal_fence(std::memory_order_seq_cst); // the other side's barrier orders the two for us
    if (lock.owner_stopped.load(std::memory_order_acquire) == 0) [[likely]] {
        return true;
    }
    lock.owner_inside.store(0, std::memory_order_release);
    return false;
}

inline void leave_as_owner(context_lock& lock)
{
    lock.owner_inside.store(0, std::memory_order_release);
}

// Visitors, from whatever thread. False: held, by the calling thread itself perhaps; or still held after
// so long.
[[nodiscard]] bool try_acquire(context_lock& lock);
[[nodiscard]] bool acquire_within(context_lock& lock, int64_t limit_tv);

void acquire_for_hook_slowly(context_lock& lock);
void release_word(context_lock& lock);

// For a hook, which never holds the lock already.
inline void acquire_for_hook(context_lock& lock)
{
    if (!is_own(lock) || !enter_as_owner(lock)) [[unlikely]] {
        acquire_for_hook_slowly(lock);
    }
}

inline void release(context_lock& lock)
{
    if (is_own(lock) && lock.owner_inside.load(std::memory_order_relaxed) != 0) [[likely]] {
        leave_as_owner(lock);
    } else {
        release_word(lock);
    }
}

// By anybody; for the forked child, where nothing else runs.
inline bool is_held(const context_lock& lock)
{
    return lock.word.load(std::memory_order_relaxed) != 0 ||
           lock.owner_inside.load(std::memory_order_relaxed) != 0;
}

} // namespace ostrum
#endif
