#include <utility>

#include "os/os_calls.h"
#include "perf_log/context/context_list.h"

namespace ostrum {

namespace {

// The keys are made once, at start-up, before any context is handed out.
struct slot_keys {
    pthread_key_t context;
    pthread_key_t cache; // its value only brings the destructor to threads that used the cache
    bool context_made;
    bool cache_made;
};
constinit slot_keys keys{};

struct cache_entry {
    int32_t pid;
    int32_t key;
    log_context* context; // holds a reference; null = free
};

constexpr uint32_t cache_entries = 16;

struct thread_cache {
    cache_entry entries[cache_entries];
    bool destructor_armed;
};
// In the static TLS block: an access costs no call.
[[gnu::tls_model("initial-exec")]] constinit thread_local thread_cache cache{};

cache_entry& entry_of(int32_t pid, int32_t key)
{
    return cache.entries[(static_cast<uint32_t>(pid) + static_cast<uint32_t>(key)) % cache_entries];
}

void drop(cache_entry& entry)
{
    log_context* context = std::exchange(entry.context, nullptr);
    if (context != nullptr) {
        unpin(context);
    }
}

void drop_cache_at_thread_exit(void*)
{
    cache.destructor_armed = false;
    for (cache_entry& entry : cache.entries) {
        drop(entry);
    }
}

// Without the destructor the references of a thread that ends would never be given back.
bool arm_destructor()
{
    if (!cache.destructor_armed && keys.cache_made) {
        cache.destructor_armed = pthread_setspecific(keys.cache, &cache) == 0;
    }
    return cache.destructor_armed;
}

} // namespace

int32_t create_context_key(void (*destructor)(void* context))
{
    const int error = os::create_thread_key(keys.context, destructor);
    keys.context_made = error == 0;
    keys.cache_made = error == 0 && os::create_thread_key(keys.cache, drop_cache_at_thread_exit) == 0;
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

log_context* thread_slot()
{
    return keys.context_made ? static_cast<log_context*>(pthread_getspecific(keys.context)) : nullptr;
}

void set_thread_slot(log_context* context)
{
    if (keys.context_made) {
        pthread_setspecific(keys.context, context);
    }
}

log_context* cached_context(int32_t pid, int32_t key)
{
    const cache_entry& entry = entry_of(pid, key);
    return entry.pid == pid && entry.key == key ? entry.context : nullptr;
}

void cache_context(log_context* context, int32_t pid, int32_t key)
{
    if (!arm_destructor()) {
        return;
    }
    cache_entry& entry = entry_of(pid, key);
    drop(entry);
    pin(context);
    entry = {pid, key, context};
}

void drop_cached(int32_t pid, int32_t key)
{
    cache_entry& entry = entry_of(pid, key);
    if (entry.pid == pid && entry.key == key) {
        drop(entry);
    }
}

void forget_thread_slots_after_fork()
{
    for (cache_entry& entry : cache.entries) {
        entry.context = nullptr;
    }
    set_thread_slot(nullptr);
}

} // namespace ostrum
