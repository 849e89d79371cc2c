#ifndef OSTRUM_PERF_LOG_LIFECYCLE_CONTEXT_RELEASE_H
#define OSTRUM_PERF_LOG_LIFECYCLE_CONTEXT_RELEASE_H
// The end of a context: on request, or with its thread.
#include "perf_log/context/log_context.h"

extern "C" {
// Flushes (a context from the parent process is not flushed), closes and empties a context that was taken
// off the list, and gives the list's reference back. Null: a debug line.
void release_loginfo(ostrum::log_context* context);

void release_at_thread_exit(void* context); // destructor of the thread-specific key
}

namespace ostrum {

// As release_loginfo, but waits for no longer than that for a hook that holds the context.
void release_within(log_context* context, int64_t limit_tv);

// Takes that context, or the first of (pid, key), off the list and releases it. The process does not end in
// between. False: it is not in the list.
bool release_listed(log_context& context);
bool release_listed(int32_t pid, int32_t key);

// Whether a thread has taken a context off the list, and is about to write it.
bool releases_in_progress();
void forget_releases_after_fork(); // of threads that do not exist in the child

} // namespace ostrum
#endif
