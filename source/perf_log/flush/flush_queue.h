#ifndef OSTRUM_PERF_LOG_FLUSH_FLUSH_QUEUE_H
#define OSTRUM_PERF_LOG_FLUSH_FLUSH_QUEUE_H
// What the threads that run operations hand to the flusher thread: full trees and alarm records. Newer
// entries stand in front of older ones and are written first. The queue has no limit: without a flusher
// thread it only grows. In a long one the trees give up their share of the open file.
//
// Locks: the record's mutex is held for a push, a detach or a wait only, never while a file is written;
// it may be taken with a context's lock held.
#include <cstdint>

#include "perf_log/alarms/alarm_record.h"
#include "perf_log/context/log_context.h"

namespace ostrum {

// A tree on its way, with all that writing it takes. It shares the trace file with the context it came
// from, which may close it before the tree is written.
struct queued_tree {
    queued_tree* next;
    trace_source source;
    bool reopens_file; // its file was closed to save descriptors; the writer opens it by its name
};

struct queued_work {
    queued_tree* trees;
    int32_t tree_count;
    alarm_record* alarms;
    int32_t alarm_count;
};

struct flush_record : queued_work {
    pthread_mutex_t mutex;    // guards all of it
    pthread_cond_t condition; // signalled at each addition and at the request to terminate
    pthread_t thread;         // 0 = none, or it could not be created
    uint32_t terminate;       // 1 = finish the queued work and end
};

flush_record& process_flush_record(); // one per process; start-up initialises it

class flush_record_guard {
public:
    explicit flush_record_guard(flush_record& record) : record_(record) { pthread_mutex_lock(&record.mutex); }
    ~flush_record_guard() { pthread_mutex_unlock(&record_.mutex); }
    flush_record_guard(const flush_record_guard&) = delete;
    flush_record_guard& operator=(const flush_record_guard&) = delete;

private:
    flush_record& record_;
};

void release_queued_tree(queued_tree* queued); // the tree, the share of the file, the entry
void drop_queue(queued_work& work);            // what nobody will write; the caller excludes others

} // namespace ostrum

extern "C" {
// Moves the source's tree into the queue and gives it a new empty one; its flush times move on as after a
// write. The caller holds the context's lock. Returns the number of new nodes handed over; -1, after one
// diagnostic line, when memory is short: for the queue entry, then nothing has changed; or for the new
// tree, then the old one is lost and the source has none.
int32_t perf_async_flush_add_lip(ostrum::flush_record* record, ostrum::trace_source* source);

// Hands an alarm record over; it belongs to the queue from then on.
void perf_async_flush_add_alarm(ostrum::flush_record* record, ostrum::alarm_record* alarm);
}
#endif
