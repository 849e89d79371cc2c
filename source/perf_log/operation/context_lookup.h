#ifndef OSTRUM_PERF_LOG_OPERATION_CONTEXT_LOOKUP_H
#define OSTRUM_PERF_LOG_OPERATION_CONTEXT_LOOKUP_H
// Which context a hook works on, and holding it for the length of the hook.
#include <cstdint>

#include "perf_log/context/log_context.h"
#include "perf_log/context/thread_slots.h"
#include "process_state/process_state.h"

namespace ostrum {

// The context that a _key hook names.
struct context_name {
    int32_t pid;
    int32_t key;
};

// The context that the calling thread keeps by that name, or for itself; null when it must be looked for.
inline log_context* kept_context(const context_name* name)
{
    return name != nullptr ? cached_context(name->pid, name->key) : thread_slot();
}

// A quiet start hands out no context, and neither does a process that is about to end.
inline bool hands_out_contexts()
{
    return initialised_state() >= 1 && decided_start_mode() == start_mode::full;
}

// A context with its lock held.
struct held_context {
    log_context* context; // null = none
    bool pinned;          // without a slot or cache entry that would keep it
};

// The context that the calling thread keeps and owns, entered. Null: it has to be had the long way.
inline log_context* enter_own_context(const context_name* name)
{
    log_context* kept = kept_context(name);
    if (kept == nullptr || !is_own(kept->lock) || !enter_as_owner(kept->lock)) [[unlikely]] {
        return nullptr;
    }
    if (kept->released.load(std::memory_order_relaxed)) [[unlikely]] {
        leave_as_owner(kept->lock);
        return nullptr;
    }
    return kept;
}

// The long way: a context that another thread made, that has to be looked for or made; or the library has
// to be brought up first.
held_context find_and_lock_context(const context_name* name);

// The context of one hook call: the named one, or without a name, or one that has no context, the calling
// thread's own. None when there is none to be had: logging is disabled, memory is short, or the process has
// begun to exit. To be given back with leave_context.
inline held_context enter_context(const context_name* name)
{
    if (hands_out_contexts()) [[likely]] {
        if (log_context* own = enter_own_context(name)) [[likely]] {
            return {own, false};
        }
    } else if (initialised_state() != 0) {
        return {nullptr, false};
    }
    return find_and_lock_context(name);
}

inline void leave_context(const held_context& held)
{
    release(held.context->lock);
    if (held.pinned) [[unlikely]] {
        unpin(held.context);
    }
}

} // namespace ostrum

extern "C" {
// The calling thread's own context (key -1) or that of (this process, key), made on first use; null when
// there is none to be had. Not locked; stays with the library. The first is kept on purpose: nothing here
// calls it.
ostrum::log_context* __ostrum_get_liptr(int32_t key);
ostrum::log_context* __ostrum_get_liptr_by_key(int32_t pid, int32_t key);
void __ostrum_release_liptr_by_key(int32_t pid, int32_t key);
}
#endif
