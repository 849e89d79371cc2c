#include "perf_log/operation/context_lookup.h"

#include "perf_log/context/context_list.h"
#include "perf_log/context/thread_slots.h"
#include "perf_log/lifecycle/context_release.h"
#include "process_state/process_state.h"
#include "startup/initialise.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

bool contexts_available()
{
    if (initialised_state() == 0) {
        (void)__ostrum_init(0);
    }
    return hands_out_contexts();
}

// Neither locked nor certain to be live.
struct found_context {
    log_context* context; // null = none
    bool pinned;          // without a slot or cache entry that would keep it
};

found_context find_own()
{
    if (log_context* context = kept_context(nullptr)) {
        return {context, false};
    }
    log_context* context = lip_list_add(nullptr, process_id(), own_thread_key);
    if (context == nullptr) {
        return {nullptr, false};
    }
    set_thread_slot(context); // the slot takes over the reference
    return {context, thread_slot() != context};
}

found_context find_named(const context_name& name)
{
    if (log_context* context = kept_context(&name)) {
        return {context, false};
    }
    log_context* context = lip_list_add(nullptr, name.pid, name.key);
    if (context != nullptr) {
        cache_context(context, name.pid, name.key);
    }
    return {context, context != nullptr};
}

// A context that was released meanwhile: this thread gives up its hold on it.
void let_go(const found_context& found, const context_name* name)
{
    if (found.pinned) {
        unpin(found.context);
    }
    if (name != nullptr) {
        drop_cached(name->pid, name->key);
    } else if (thread_slot() == found.context) {
        set_thread_slot(nullptr);
        unpin(found.context);
    }
}

found_context find_any(const context_name* name)
{
    return name != nullptr ? find_named(*name) : find_own();
}

// The context of the name, or the thread's own, with its lock held; one that was released meanwhile is let
// go of and looked for again. Null when there is none to be had.
held_context acquire_live(const context_name* name)
{
    for (;;) {
        const found_context found = find_any(name);
        if (found.context == nullptr) {
            return {nullptr, false};
        }
        acquire_for_hook(found.context->lock);
        if (!found.context->released) {
            return {found.context, found.pinned};
        }
        release(found.context->lock);
        let_go(found, name);
    }
}

// For callers outside the library, who get a borrowed pointer: the list, a slot or a cache keeps it alive.
log_context* find_live(const context_name* name)
{
    const library_scope scope;
    if (!scope.entered() || !contexts_available()) {
        return nullptr; // inside a hook of this thread, which may hold any lock
    }
    found_context found = find_any(name);
    while (found.context != nullptr && found.context->released) {
        let_go(found, name);
        found = find_any(name);
    }
    if (found.pinned) {
        unpin(found.context);
    }
    return found.context;
}

bool is_valid_key(int32_t key)
{
    if (key >= own_thread_key) {
        return true;
    }
    err_print("__ostrum_get_liptr_by_key : invalid key[%d] provided", key); // no line end, kept so
    return false;
}

} // namespace

held_context find_and_lock_context(const context_name* name)
{
    if (!contexts_available()) {
        return {nullptr, false};
    }
    const context_name* wanted = name != nullptr && is_valid_key(name->key) ? name : nullptr;
    const held_context found = acquire_live(wanted);
    return found.context == nullptr && wanted != nullptr ? acquire_live(nullptr) : found;
}

} // namespace ostrum

using namespace ostrum;

ostrum::log_context* __ostrum_get_liptr(int32_t key)
{
    return key >= 0 ? __ostrum_get_liptr_by_key(process_id(), key) : find_live(nullptr);
}

ostrum::log_context* __ostrum_get_liptr_by_key(int32_t pid, int32_t key)
{
    const context_name name{pid, key};
    return is_valid_key(key) ? find_live(&name) : nullptr;
}

void __ostrum_release_liptr_by_key(int32_t pid, int32_t key)
{
    if (initialised_state() == 0) {
        err_print("__ostrum_release_liptr_by_key : logging not initialised yet for key[%d]\n", key);
        return;
    }
    const library_scope scope;
    if (!scope.entered()) {
        return; // called from inside a hook of this thread, which may be holding that very context
    }
    bool released = false;
    if (key == own_thread_key) {
        log_context* own = thread_slot();
        set_thread_slot(nullptr);
        released = own != nullptr && release_listed(*own);
        if (own != nullptr) {
            unpin(own); // the slot's reference
        }
    } else {
        released = release_listed(pid, key);
        drop_cached(pid, key);
    }
    if (!released) {
        err_print("__ostrum_release_liptr : no loginfo structure found for key[%d]\n", key);
    }
}
