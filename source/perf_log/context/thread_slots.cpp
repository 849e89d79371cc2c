#include "perf_log/context/thread_slots.h"

#include <utility>

#include "os/os_calls.h"
#include "util/resources.h"

namespace ostrum {

constinit thread_local thread_slots slots_of_this_thread{};

namespace {

// The keys are made once, at start-up, before any context is handed out.
struct slot_keys {
    pthread_key_t context;
    pthread_key_t cache; // its value is the cache, so that the destructor frees it
    bool context_made;
    bool cache_made;
};
constinit slot_keys keys{};

constexpr uint32_t swept_at_once = 8;

void drop(cached_context_entry& entry)
{
    log_context* context = std::exchange(entry.context, nullptr);
    if (context != nullptr) {
        unpin(context);
    }
}

void free_cache_at_thread_exit(void* value)
{
    const heap_ptr<cached_context_entry> cache{static_cast<cached_context_entry*>(value)};
    slots_of_this_thread.cache = nullptr;
    for (uint32_t i = 0; i < cached_contexts; ++i) {
        drop(cache.get()[i]);
    }
}

// Without the destructor the references of a thread that ends would never be given back.
bool make_cache()
{
    heap_ptr<cached_context_entry> cache = heap_zeroed<cached_context_entry>(cached_contexts);
    if (!keys.cache_made || !cache || pthread_setspecific(keys.cache, cache.get()) != 0) {
        return false;
    }
    slots_of_this_thread.cache = cache.release();
    return true;
}

// Contexts that were released while they stood here, of keys that nobody asks for again: with every new
// entry a few are looked at, so that they do not gather.
void sweep_released()
{
    thread_slots& slots = slots_of_this_thread;
    for (uint32_t i = 0; i < swept_at_once; ++i) {
        cached_context_entry& entry = slots.cache[slots.next_swept++ % cached_contexts];
        if (entry.context != nullptr && entry.context->released.load(std::memory_order_relaxed)) {
            drop(entry);
        }
    }
}

} // namespace

int32_t create_context_key(void (*destructor)(void* context))
{
    const int error = os::create_thread_key(keys.context, destructor);
    keys.context_made = error == 0;
    keys.cache_made = error == 0 && os::create_thread_key(keys.cache, free_cache_at_thread_exit) == 0;
    return error;
}

pthread_key_t context_key()
{
    return keys.context;
}

void* shown_context_key()
{
    return reinterpret_cast<void*>(uintptr_t{keys.context}); // NOLINT(performance-no-int-to-ptr): only shown
}

void set_thread_slot(log_context* context)
{
    if (keys.context_made && pthread_setspecific(keys.context, context) == 0) {
        slots_of_this_thread.own = context;
    }
}

void cache_context(log_context* context, int32_t pid, int32_t key)
{
    if (slots_of_this_thread.cache == nullptr && !make_cache()) {
        return;
    }
    sweep_released();
    cached_context_entry& entry = cache_entry_of(pid, key);
    drop(entry);
    pin(context);
    entry = {pid, key, context};
}

void drop_cached(int32_t pid, int32_t key)
{
    if (cached_context(pid, key) != nullptr) {
        drop(cache_entry_of(pid, key));
    }
}

void forget_thread_slots_after_fork()
{
    for (uint32_t i = 0; slots_of_this_thread.cache != nullptr && i < cached_contexts; ++i) {
        slots_of_this_thread.cache[i].context = nullptr;
    }
    set_thread_slot(nullptr);
}

} // namespace ostrum
