#ifndef OSTRUM_PERF_LOG_CONTEXT_THREAD_SLOTS_H
#define OSTRUM_PERF_LOG_CONTEXT_THREAD_SLOTS_H
// How a thread keeps hold of the contexts that it uses, so that a hook need not search the list: a slot for
// the one that belongs to threads, and a cache of keyed ones. What stands in them is held by a reference.
#include <cstdint>

#include <pthread.h>

#include "perf_log/context/log_context.h"

namespace ostrum {

// Start-up: makes the thread-specific keys. The destructor runs with the slot's context when its thread
// ends. Returns 0, or an error number.
int32_t create_context_key(void (*destructor)(void* context));
pthread_key_t context_key();
void* shown_context_key(); // the key as debug lines show it

struct cached_context_entry {
    int32_t pid;
    int32_t key;
    log_context* context; // null = free
};

inline constexpr uint32_t cached_contexts = 256; // neighbouring keys do not displace one another

// Owned by thread_slots.cpp; here so that a hook's look costs no call. In the static TLS block.
struct thread_slots {
    log_context* own;            // as the thread-specific key has it
    cached_context_entry* cache; // owned; cached_contexts entries, made at the first use
    uint32_t next_swept;
};
extern constinit thread_local thread_slots slots_of_this_thread [[gnu::tls_model("initial-exec")]];

inline log_context* thread_slot()
{
    return slots_of_this_thread.own;
}
void set_thread_slot(log_context* context); // does not touch references

inline cached_context_entry& cache_entry_of(int32_t pid, int32_t key)
{
    return slots_of_this_thread
        .cache[(static_cast<uint32_t>(pid) + static_cast<uint32_t>(key)) % cached_contexts];
}

inline log_context* cached_context(int32_t pid, int32_t key)
{
    if (slots_of_this_thread.cache == nullptr) {
        return nullptr;
    }
    const cached_context_entry& entry = cache_entry_of(pid, key);
    return entry.pid == pid && entry.key == key ? entry.context : nullptr;
}

void cache_context(log_context* context, int32_t pid, int32_t key); // takes a reference of its own
void drop_cached(int32_t pid, int32_t key);
void forget_thread_slots_after_fork(); // child: slot and cache, without giving references back

} // namespace ostrum
#endif
