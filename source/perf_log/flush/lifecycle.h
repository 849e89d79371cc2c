#ifndef OSTRUM_PERF_LOG_FLUSH_LIFECYCLE_H
#define OSTRUM_PERF_LOG_FLUSH_LIFECYCLE_H
// What happens to contexts when a thread ends, the process exits, or a child is forked. Registered by
// start-up.
#include "perf_log/context/log_context.h"

extern "C" {
// Flushes (a context from the parent process is not flushed), closes and empties a context that was taken
// off the list, and gives the list's reference back. Null: a debug line.
void release_loginfo(ostrum::log_context* context);

void release_at_thread_exit(void* context); // destructor of the thread-specific key
void release_at_process_exit(void);         // exit handler
void clean_child_atfork(void);              // fork handler, in the child
}

namespace ostrum {

// Takes that context, or the first of (pid, key), off the list and releases it. The process does not end in
// between. False: it is not in the list.
bool release_listed(log_context& context);
bool release_listed(int32_t pid, int32_t key);

} // namespace ostrum
#endif
