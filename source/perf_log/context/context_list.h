#ifndef OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LIST_H
#define OSTRUM_PERF_LOG_CONTEXT_CONTEXT_LIST_H
// The process's list of contexts, newest first.
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

} // namespace ostrum
#endif
