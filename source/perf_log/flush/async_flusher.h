#ifndef OSTRUM_PERF_LOG_FLUSH_ASYNC_FLUSHER_H
#define OSTRUM_PERF_LOG_FLUSH_ASYNC_FLUSHER_H
// The flusher thread: writes what the queue holds, alarms before trees, and waits for more.
#include "perf_log/flush/flush_queue.h"

extern "C" {
// Empties the record and creates the thread that works for it. Returns 0, or pthread_create's error number
// after one diagnostic line; the queue then grows and is never written. What the record held before is
// neither freed nor written.
int32_t perf_initialise_flushing_thread(ostrum::flush_record* record);

void* perf_async_flusher(void* record); // the thread's body
}

namespace ostrum {

// Exit: asks the thread to end, and waits until it has written all that was queued before. Nothing when
// there is no thread, or when the caller is that thread.
void finish_flushing_thread(flush_record& record);

// Exit in the midst of a hook: the same, but it waits for a second only, since the thread may need what the
// hook holds.
void hurry_flushing_thread(flush_record& record);

// True while this very process has a thread that works for the record.
bool has_flushing_thread(const flush_record& record);

// Child: drops what the parent had queued, and starts a thread of the child's own, once.
void restart_flushing_thread_after_fork(flush_record& record);
void note_flusher_after_fork(); // child: this process and thread count as the flusher until there is one

} // namespace ostrum
#endif
