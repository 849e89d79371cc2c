#include "perf_log/operation/context_lookup.h"

#include "perf_log/context/context_list.h"
#include "perf_log/flush/lifecycle.h"
#include "process_state/process_state.h"
#include "startup/initialise.h"
#include "util/diagnostics.h"

namespace ostrum {

namespace {

struct found_context {
    log_context* context = nullptr;
    bool pinned = false; // the finder must give a reference back
};

// A quiet start hands out no context, and neither does a process that is about to end.
bool contexts_available()
{
    if (initialised_state() == 0) {
        (void)__ostrum_init(0);
    }
    return initialised_state() >= 1 && decided_start_mode() == start_mode::full;
}

found_context find_own()
{
    if (log_context* context = thread_slot()) {
        return {context, false};
    }
    log_context* context = lip_list_add(nullptr, process_id(), own_thread_key);
    if (context == nullptr) {
        return {};
    }
    set_thread_slot(context); // the slot takes over the reference
    return {context, thread_slot() != context};
}

found_context find_named(const context_name& name)
{
    if (log_context* context = cached_context(name.pid, name.key)) {
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

// The context of the name, or the thread's own, with its lock held; one that was released meanwhile is let
// go of and looked for again. Null when there is none to be had.
found_context acquire_live(const context_name* name)
{
    for (;;) {
        const found_context found = name != nullptr ? find_named(*name) : find_own();
        if (found.context == nullptr) {
            return {};
        }
        acquire(found.context->lock);
        if (!found.context->released) {
            return found;
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
    const found_context found = acquire_live(name);
    if (found.context == nullptr) {
        return nullptr;
    }
    release(found.context->lock);
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

locked_context::locked_context(const context_name* name)
{
    if (!contexts_available()) {
        return;
    }
    const context_name* wanted = name != nullptr && is_valid_key(name->key) ? name : nullptr;
    found_context found = acquire_live(wanted);
    if (found.context == nullptr && wanted != nullptr) {
        found = acquire_live(nullptr);
    }
    context_ = found.context;
    pinned_ = found.pinned;
}

locked_context::~locked_context()
{
    if (context_ == nullptr) {
        return;
    }
    release(context_->lock);
    if (pinned_) {
        unpin(context_);
    }
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
    log_context* listed = nullptr;
    if (key == own_thread_key) {
        log_context* own = thread_slot();
        set_thread_slot(nullptr);
        if (own != nullptr) {
            listed = lip_list_del(own, 0, 0);
        }
        if (listed != nullptr) {
            release_loginfo(listed);
        }
        if (own != nullptr) {
            unpin(own); // the slot's reference
        }
    } else {
        listed = lip_list_del(nullptr, pid, key);
        if (listed != nullptr) {
            release_loginfo(listed);
        }
        drop_cached(pid, key);
    }
    if (listed == nullptr) {
        err_print("__ostrum_release_liptr : no loginfo structure found for key[%d]\n", key);
    }
}
