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

// A quiet start hands out no context.
bool contexts_available()
{
    if (initialised_state() == 0) {
        (void)__ostrum_init(0);
    }
    return initialised_state() >= 1 && decided_start_mode() != start_mode::quiet;
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
    for (;;) {
        found_context found = wanted != nullptr ? find_named(*wanted) : find_own();
        if (found.context == nullptr && wanted != nullptr) {
            wanted = nullptr;
            found = find_own();
        }
        if (found.context == nullptr) {
            return;
        }
        acquire(found.context->lock);
        if (!found.context->released) {
            context_ = found.context;
            pinned_ = found.pinned;
            return;
        }
        release(found.context->lock);
        let_go(found, wanted);
    }
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

// Callers outside the library get a borrowed pointer: the list, a slot or a cache keeps it alive.
ostrum::log_context* __ostrum_get_liptr(int32_t key)
{
    if (!contexts_available()) {
        return nullptr;
    }
    if (key >= 0) {
        return __ostrum_get_liptr_by_key(process_id(), key);
    }
    const found_context found = find_own();
    if (found.pinned) {
        unpin(found.context);
    }
    return found.context;
}

ostrum::log_context* __ostrum_get_liptr_by_key(int32_t pid, int32_t key)
{
    if (!is_valid_key(key) || !contexts_available()) {
        return nullptr;
    }
    const found_context found = find_named({pid, key});
    if (found.pinned) {
        unpin(found.context);
    }
    return found.context;
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
