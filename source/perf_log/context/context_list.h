#ifndef OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LIST_H
#define OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LIST_H
// The process's list of contexts, newest first, and how a thread keeps the ones it uses.
//
// Locks: the list mutex is held for searches, links and unlinks only; never for file work, and never
// together with a context's lock. Beside the list stands a table by (pid, key) with the same answers.
#include <cstdint>

#include "perf_log/context/log_context.h"

extern "C" {
// Without a context: finds the first listed one of (pid, key), whoever made it, or makes one. With a
// context: links it in at the head. The result carries a reference for the caller (unpin it); null when
// memory is short (after diagnostic lines) and once the process has begun to exit.
ostrum::log_context* lip_list_add(ostrum::log_context* existing, int32_t pid, int32_t key);

// Unlinks that context, or with null the first of (pid, key). The result carries the list's reference,
// which is now the caller's; null when there is none.
ostrum::log_context* lip_list_del(ostrum::log_context* context, int32_t pid, int32_t key);

void lip_list_print(void); // debug listing
}

namespace ostrum {

void initialise_context_list(); // start-up: the mutex
void empty_list_after_fork();   // child: forgets all entries, fresh mutex; frees nothing

// At exit: no context is handed out from now on. False when the mutex could not be had in time, which
// means that the thread it belongs to will not give it back.
bool close_context_list();
log_context* unlink_first(); // with the list's reference; null at the end

// Pins up to `most` contexts of this process, of threads only, that this visit has not seen yet.
int32_t pin_unvisited(log_context** out, int32_t most, uint64_t visit);
uint64_t begin_visit();

// The calling thread's slot: the context that the thread holds a reference to, or null. create_slots
// makes the thread-specific keys; the destructor runs with the slot's context when its thread ends.
int32_t create_context_key(void (*destructor)(void* context)); // 0, or an error number
pthread_key_t context_key();
void* shown_context_key(); // the key as debug lines show it
log_context* thread_slot();
void set_thread_slot(log_context* context); // does not touch references

// The calling thread's cache of keyed contexts; each entry holds a reference.
log_context* cached_context(int32_t pid, int32_t key);
void cache_context(log_context* context, int32_t pid, int32_t key); // takes a reference of its own
void drop_cached(int32_t pid, int32_t key);
void forget_thread_slots_after_fork(); // child: slot and cache, without giving references back

} // namespace ostrum
#endif
