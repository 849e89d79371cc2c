#ifndef OSTRUM_PERF_LOG_FLUSH_TIMED_FLUSH_H
#define OSTRUM_PERF_LOG_FLUSH_TIMED_FLUSH_H
// Flushes and period changes of contexts whose threads do not come by themselves. Driven from the host's
// idle wait; no timer and no signal is involved.
#include <cstdint>
#include <sys/time.h>

extern "C" {
// Visits the calling thread's own context or, from a thread without one, every keyed context of the
// process: flushes what is due, or asks for it where an operation is in progress, and moves the context
// into the present period. A context in use is not waited for: its flush is asked for.
void timeout_handler_func(const char* caller);

// Entry points of a timer that this library does not use. Kept on purpose: empty, and nothing here calls
// them.
void set_alarm_timer(void);
void unset_alarm_timer(void);
void timeout_handler(int signal_number);

struct timeval* __ostrum_get_time_to_period_end(void* context, struct timeval* left);
}
#endif
